#pragma once

#include "ObjectMapping/MapperIf.h"

#include <list>
#include <string>

namespace Ombry::ClientCommunications {

/// An instance of a service as it travels and is stored. Record inside: no installed function takes or gives
/// it.
class ServiceDto : public ObjectMapping::ObjectIf {
public:
    class Property : public ObjectMapping::ObjectIf {
    public:
        void Map(ObjectMapping::MapperIf& mapper) override;
        void Reset() override;

        std::string key;
        std::string value;
    };

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string serviceHostname;
    std::string serviceNamespace;
    std::string id;
    std::string serviceName;
    std::string endpointUrl;
    std::string endpointCert;  ///< Base64 text of the DER certificate to pin, or empty
    std::list<Property> properties;
};

}  // namespace Ombry::ClientCommunications
