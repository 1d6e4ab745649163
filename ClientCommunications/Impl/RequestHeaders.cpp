#include "ClientCommunications/Impl/RequestHeaders.h"

#include "Platform/SecureWipe.h"

#include <algorithm>
#include <functional>

namespace Ombry::ClientCommunications {
namespace {

// The place of a header among the known ones; their number if it is none of them. The libraries ask with the
// very strings of the table, whose texts need no look.
std::size_t NumberOf(const std::string& name) {
    const auto& names = NamesOfKnownHeaders();
    const std::less<const std::string*> isBefore;
    if (!isBefore(&name, names.data()) && isBefore(&name, names.data() + names.size()))
        return static_cast<std::size_t>(&name - names.data());
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

std::shared_ptr<const std::string> NotOwned(const std::string& value) {
    return {std::shared_ptr<void>(), &value};
}

}  // namespace

RequestHeaders::~RequestHeaders() {
    for (Known& header : known) {
        if (header.value.get() == &header.own) Platform::SecureWipe(header.own);
    }
    for (auto& [name, value] : others)
        Platform::SecureWipe(value);
}

void RequestHeaders::WipeOwn(Known& header) {
    if (header.value.get() != &header.own) return;
    Platform::SecureWipe(header.own);
    header.own.clear();
}

void RequestHeaders::Set(const std::string& name, const std::string& value) {
    const std::size_t place = NumberOf(name);
    if (place < known.size()) {
        Known& header = known[place];
        Platform::ReplaceSecret(header.own, value);
        header.value = NotOwned(header.own);
        return;
    }
    const auto [other, isNew] = others.try_emplace(name, value);
    if (!isNew) Platform::ReplaceSecret(other->second, value);
}

void RequestHeaders::Set(KnownHeader header, std::string&& value) {
    Known& place = PlaceOf(header);
    WipeOwn(place);
    place.own = std::move(value);
    place.value = NotOwned(place.own);
}

void RequestHeaders::Share(KnownHeader header, std::shared_ptr<const std::string> value) {
    Known& place = PlaceOf(header);
    WipeOwn(place);
    place.value = std::move(value);
}

void RequestHeaders::Remove(const std::string& name) {
    const std::size_t place = NumberOf(name);
    if (place < known.size()) {
        Remove(static_cast<KnownHeader>(place));
        return;
    }
    const auto found = others.find(name);
    if (found == others.end()) return;
    Platform::SecureWipe(found->second);
    others.erase(found);
}

void RequestHeaders::Remove(KnownHeader header) {
    Known& place = PlaceOf(header);
    WipeOwn(place);
    place.value = nullptr;
}

std::string RequestHeaders::Get(const std::string& name) const {
    const std::size_t place = NumberOf(name);
    if (place < known.size()) return known[place].value ? *known[place].value : std::string();
    const auto found = others.find(name);
    return found == others.end() ? std::string() : found->second;
}

}  // namespace Ombry::ClientCommunications
