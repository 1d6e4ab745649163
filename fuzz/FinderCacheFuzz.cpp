// Invariant: whatever text lies in the finder's cache, and whatever the discovery service answers, `Find`
// either returns or throws an exception of the standard library, and: a copy that cannot be read is the
// caller's to hear of, and stays; a fresh copy is served without a call; one behind its time is asked for
// anew, cheaply, and served when that fails, as it was; one behind its greatest age goes, and the call has
// its full budget. What an answer leaves in the cache reads back strictly, and is served to the next `Find`
// without a call for as long as it is fresh.
//
// Input: byte 0 = what the service does; then the text in the cache, the answer's Cache-Control and its body,
// with a byte 0x1D between them.

#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ObjectMapping/Serialization.h"
#include "fuzz/Require.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/MemoryKeyValueStorage.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using namespace Ombry;
using namespace Ombry::ClientCommunications;
using Ombry::Fuzz::Require;

namespace {

constexpr long long Now = 1'600'000'000;
const std::string Path = "/services/services/secure/name/some";

enum class Answer { Throws, Fails, Succeeds };

struct Script {
    Answer answer = Answer::Succeeds;
    std::string cached;
    std::string cacheControl;  ///< empty: no such header
    std::string body;
};

Script Parse(std::string_view input) {
    const auto next = [&] {
        const std::size_t end = std::min(input.find('\x1d'), input.size());
        const std::string part(input.substr(0, end));
        input.remove_prefix(std::min(end + 1, input.size()));
        return part;
    };
    Script script;
    script.answer = static_cast<Answer>(std::min(input[0] & 3, 2));
    input.remove_prefix(1);
    script.cached = next();
    script.cacheControl = next();
    script.body = std::string(input);
    return script;
}

bool Reads(const std::string& text, FoundServicesDto& dto, bool strict) {
    try {
        ObjectMapping::DeserializeObject(dto, text, nullptr, strict);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

using Urls = std::vector<std::string>;

Urls Of(const std::list<ServiceDto>& services) {
    Urls urls;
    for (const ServiceDto& service : services)
        urls.push_back(service.endpointUrl);
    std::sort(urls.begin(), urls.end());
    return urls;
}

Urls Of(const std::list<std::shared_ptr<IService>>& services) {
    Urls urls;
    for (const auto& service : services)
        urls.push_back(service->GetEndpointUrl());
    std::sort(urls.begin(), urls.end());
    return urls;
}

void RequireSame(const FoundServicesDto& dto, const IFoundServices& found) {
    Require(Of(dto.local) == Of(found.GetLocal()));
    Require(Of(dto.remote) == Of(found.GetRemote()));
}

/// Whether not even the greatest age is enough, without an overflow.
bool IsTooOld(const FoundServicesDto& dto) {
    return static_cast<__int128>(dto.expiryTime) + dto.maxStaleTime < Now;
}

class Play {
public:
    explicit Play(Script given) : script(std::move(given)) {
        if (!script.cached.empty()) cache->Put(Path, script.cached);
    }

    void Run() {
        FoundServicesDto copy;
        const bool hasCopy = !script.cached.empty();
        const bool readable = hasCopy && Reads(script.cached, copy, false);
        const bool fresh = readable && Now < copy.expiryTime;
        const bool usable = readable && !fresh && !IsTooOld(copy);
        const auto found = Find();
        if ((hasCopy && !readable) || fresh) {
            Require(gateway->calls.empty() && cache->Values().at(Path) == script.cached);
            Require((found != nullptr) == fresh);
            if (fresh) RequireSame(copy, *found);
            return;
        }
        Require(gateway->calls.size() == 1);
        Require((gateway->calls[0].maxRetries == 0) == usable);
        Require((gateway->calls[0].attemptTimeout == std::chrono::seconds(6)) == usable);
        if (Stored() != (usable ? script.cached : "")) {
            RequireAnswerWasStored(found);
        } else if (usable) {
            Require(found != nullptr);
            // The copy, unless the answer was stored as the very text that was there.
            FoundServicesDto answer;
            if (script.answer != Answer::Succeeds || !Reads(script.body, answer, false))
                RequireSame(copy, *found);
        } else {
            Require(found == nullptr);
        }
    }

private:
    std::string Stored() const {
        const auto values = cache->Values();
        const auto at = values.find(Path);
        return at == values.end() ? std::string() : at->second;
    }

    void RequireAnswerWasStored(const std::shared_ptr<IFoundServices>& found) {
        FoundServicesDto answer, stored;
        Require(script.answer == Answer::Succeeds && found != nullptr);
        Require(Reads(script.body, answer, false) && Reads(Stored(), stored, true));
        RequireSame(answer, *found);
        RequireSame(stored, *found);
        if (Now >= stored.expiryTime) return;
        const auto again = Find();
        Require(again != nullptr && gateway->calls.size() == 1);
        RequireSame(stored, *again);
    }

    /// Null if it threw.
    std::shared_ptr<IFoundServices> Find() {
        if (script.answer == Answer::Throws) {
            gateway->Throw(std::runtime_error("down"));
        } else {
            std::map<std::string, std::string> headers;
            if (!script.cacheControl.empty()) headers["Cache-Control"] = script.cacheControl;
            gateway->Answer(script.answer == Answer::Fails ? 503 : 200, script.body, headers);
        }
        try {
            return ServiceFinder(gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"),
                                 cache, nullptr, Path)
                .Find(Cancellation::Token());
        } catch (const std::runtime_error&) {
        } catch (const std::logic_error& failure) {
            // What a Cache-Control without its directives ends in.
            Require(failure.what() == std::string("invalid string position"));
        }
        return nullptr;
    }

    const Script script;
    Tests::FakeClock clock{TimePoint(Duration(SecondsToTicks(Now)))};
    const Platform::Testing::Replace<Platform::IClock> replaced{clock};
    const std::shared_ptr<Tests::ScriptedGateway> gateway = std::make_shared<Tests::ScriptedGateway>();
    const std::shared_ptr<Tests::MemoryKeyValueStorage> cache =
        std::make_shared<Tests::MemoryKeyValueStorage>();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 0) Play(Parse({reinterpret_cast<const char*>(data), size})).Run();
    return 0;
}
