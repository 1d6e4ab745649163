#include "ClientCommunications/FoundServicesDto.h"

#include "ObjectMapping/ListArray.h"
#include "Platform/IClock.h"

namespace Ombry::ClientCommunications {

FoundServicesDto::FoundServicesDto() : expiryTime(Platform::WallSeconds() + 300) {}

void FoundServicesDto::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("expiryTime", expiryTime, nullptr);
    bool hasMaxStaleTime = true;
    long long staleTime = maxStaleTime;
    mapper.Field("maxStaleTime", staleTime, &hasMaxStaleTime);
    // An absent key is read as 0 here; the default is to stand instead.
    if (hasMaxStaleTime) maxStaleTime = staleTime;
    bool hasLocal = true;
    ObjectMapping::ListArray localArray(local);
    mapper.Field("local", localArray, &hasLocal);
    bool hasRemote = true;
    ObjectMapping::ListArray remoteArray(remote);
    mapper.Field("remote", remoteArray, &hasRemote);
}

void FoundServicesDto::Reset() {
    *this = FoundServicesDto();
}

}  // namespace Ombry::ClientCommunications
