#pragma once

#include "ClientCommunications/ServiceDto.h"
#include "ObjectMapping/MapperIf.h"

#include <list>

namespace Ombry::ClientCommunications {

/// The discovery answer as it travels and is stored. The defaults stand where a document lacks a key. Record
/// inside: no installed function takes or gives it.
class FoundServicesDto : public ObjectMapping::ObjectIf {
public:
    /// Fresh for 300 seconds from now.
    FoundServicesDto();

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    long long expiryTime;             ///< seconds since 1970 until which the document is fresh
    long long maxStaleTime = 604500;  ///< seconds after that in which a stale copy may serve
    std::list<ServiceDto> local;
    std::list<ServiceDto> remote;
};

}  // namespace Ombry::ClientCommunications
