#include "ClientCommunications/Impl/DataProtectionBase64.h"

#include "ClientCommunications/Impl/Base64.h"

namespace Ombry::ClientCommunications {

void DataProtectionBase64::Protect(std::string& data) {
    inner->Protect(data);
    data = Base64Encode(data);
}

void DataProtectionBase64::Unprotect(std::string& data) {
    data = Base64Decode(data);
    inner->Unprotect(data);
}

}  // namespace Ombry::ClientCommunications
