#include "ClientCommunications/Impl/ServiceResponse.h"

#include "ClientCommunications/Impl/LowerCase.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>

namespace Ombry::ClientCommunications {
namespace {

bool IsSameName(std::string_view left, std::string_view right) {
    return std::ranges::equal(
        left, right, {}, [](char c) { return LowerCase(c); }, [](char c) { return LowerCase(c); });
}

// A status beyond an `int` stays above all others: as a negative number callers would take it for a success.
int ToStatusCode(std::uint32_t nHttpStatus) {
    constexpr std::uint32_t greatest = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(nHttpStatus, greatest));
}

}  // namespace

bool HeaderNameLess::operator()(const std::string& left, const std::string& right) const {
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(), [](char l, char r) {
            return static_cast<unsigned char>(LowerCase(l)) < static_cast<unsigned char>(LowerCase(r));
        });
}

ServiceResponse::ServiceResponse(const OmbryZephCore::ZephSorrelSyncHttpClient& client,
                                 std::shared_ptr<IService> service)
    : statusCode(ToStatusCode(client.GetHttpStatus())),
      service(std::move(service)),
      headers(client.GetResponseHeaders()) {}

ServiceResponse::ServiceResponse(OmbryZephCore::ZephSorrelSyncHttpClient&& client,
                                 std::shared_ptr<IService> service)
    : statusCode(ToStatusCode(client.GetHttpStatus())),
      service(std::move(service)),
      headers(client.TakeResponseHeaders()) {}

// The value of the first header of that name in any case; null without one.
const char* ServiceResponse::Find(std::string_view name) const {
    const char* found = nullptr;
    headers.ForEach([&](std::string_view candidate, const char* value) {
        if (!found && IsSameName(candidate, name)) found = value;
    });
    return found;
}

std::string ServiceResponse::GetHeader(const std::string& name) const {
    const char* const found = Find(name);
    if (!found) ThrowInvalidMapKey();
    return found;
}

void ServiceResponse::ForEachHeader(
    std::function<void(const std::string& name, const std::string& value)> callback) const {
    std::map<std::string, std::string, HeaderNameLess> inOrder;
    headers.ForEach([&](const char* name, const char* value) { inOrder.emplace(name, value); });
    ForEachPair(inOrder, callback);
}

}  // namespace Ombry::ClientCommunications
