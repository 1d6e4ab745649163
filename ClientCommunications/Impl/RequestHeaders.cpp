#include "ClientCommunications/Impl/RequestHeaders.h"

#include "Platform/SecureWipe.h"

#include <algorithm>
#include <functional>

namespace Ombry::ClientCommunications {
namespace {

// The place of a header among the known ones; their number if it is none of them. The libraries ask with the
// very strings of the table, whose texts need no look.
std::size_t PlaceOf(const std::string& name) {
    const auto& names = NamesOfKnownHeaders();
    const std::less<const std::string*> isBefore;
    if (!isBefore(&name, names.data()) && isBefore(&name, names.data() + names.size()))
        return static_cast<std::size_t>(&name - names.data());
    return static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
}

// Whatever memory lacks, the value is as it was or as it is to be.
void Replace(std::string& held, const std::string& value) {
    if (&held == &value) return;
    std::string fresh = value;
    held.swap(fresh);
    Platform::SecureWipe(fresh);
}

}  // namespace

RequestHeaders::~RequestHeaders() {
    for (Known& header : known) {
        if (header.isSet) Platform::SecureWipe(header.value);
    }
    for (auto& [name, value] : others)
        Platform::SecureWipe(value);
}

void RequestHeaders::Set(const std::string& name, const std::string& value) {
    const std::size_t place = PlaceOf(name);
    if (place < known.size()) {
        Known& header = known[place];
        if (header.isSet) {
            Replace(header.value, value);
        } else {
            header.value = value;
            header.isSet = true;
        }
        return;
    }
    const auto [other, isNew] = others.try_emplace(name, value);
    if (!isNew) Replace(other->second, value);
}

void RequestHeaders::Remove(const std::string& name) {
    const std::size_t place = PlaceOf(name);
    if (place < known.size()) {
        Platform::SecureWipe(known[place].value);
        known[place].value.clear();
        known[place].isSet = false;
        return;
    }
    const auto found = others.find(name);
    if (found == others.end()) return;
    Platform::SecureWipe(found->second);
    others.erase(found);
}

std::string RequestHeaders::Get(const std::string& name) const {
    const std::size_t place = PlaceOf(name);
    if (place < known.size()) return known[place].value;
    const auto found = others.find(name);
    return found == others.end() ? std::string() : found->second;
}

}  // namespace Ombry::ClientCommunications
