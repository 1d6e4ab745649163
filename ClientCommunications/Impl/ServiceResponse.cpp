#include "ClientCommunications/Impl/ServiceResponse.h"

#include "ClientCommunications/Impl/LowerCase.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"

#include <algorithm>

namespace Ombry::ClientCommunications {

bool HeaderNameLess::operator()(const std::string& left, const std::string& right) const {
    return std::lexicographical_compare(
        left.begin(), left.end(), right.begin(), right.end(), [](char l, char r) {
            return static_cast<unsigned char>(LowerCase(l)) < static_cast<unsigned char>(LowerCase(r));
        });
}

ServiceResponse::ServiceResponse(const OmbryZephCore::ZephSorrelSyncHttpClient& client,
                                 std::shared_ptr<IService> service)
    : statusCode(static_cast<int>(client.GetHttpStatus())), service(std::move(service)) {
    // They come in the order of their names, so that each mostly belongs at the end.
    client.ForEachResponseHeader([this](const std::string& name, const std::string& value) {
        headers.emplace_hint(headers.end(), name, value);
    });
}

std::string ServiceResponse::GetHeader(const std::string& name) const {
    const auto found = headers.find(name);
    if (found == headers.end()) ThrowInvalidMapKey();
    return found->second;
}

void ServiceResponse::ForEachHeader(
    std::function<void(const std::string& name, const std::string& value)> callback) const {
    ForEachPair(headers, callback);
}

}  // namespace Ombry::ClientCommunications
