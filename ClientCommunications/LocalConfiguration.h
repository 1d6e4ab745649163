#pragma once

#include "ObjectMapping/MapperIf.h"

#include <string>

namespace Ombry::ClientCommunications {

/// The content of the machine's bootstrap file: where the discovery service is. Record inside: no installed
/// function takes or gives it.
class OmbrySecurityConfig : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string ssdsUri;
};

/// The local record of an enrolled service. Record inside: no installed function takes or gives it.
class LocalServiceStorageDto : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string version = "1.0";
    std::string guid;
};

}  // namespace Ombry::ClientCommunications
