#include "ClientCommunications/EnrollmentRecords.h"

namespace Ombry::ClientCommunications::SfsGateway {

void ServicePropsInner::Map(ObjectMapping::MapperIf& mapper) {
    key.Map(mapper);
    value.Map(mapper);
}

void ServicePropsInner::Reset() {
    *this = ServicePropsInner();
}

void LocationAwareClient::Map(ObjectMapping::MapperIf& mapper) {
    id.Map(mapper);
    clientSecretId.Map(mapper);
    publicCertPem.Map(mapper);
    groups.Map(mapper);
    description.Map(mapper);
    datacenterId.Map(mapper);
    rolesPerService.Map(mapper);
}

void LocationAwareClient::Reset() {
    WipeIdentity();
    *this = LocationAwareClient();
}

void LocationAwareClient::WipeIdentity() {
    id.Wipe();
    clientSecretId.Wipe();
}

void ServiceEnrollment::Map(ObjectMapping::MapperIf& mapper) {
    serviceId.Map(mapper);
    serviceName.Map(mapper);
    clientId.Map(mapper);
    directUrl.Map(mapper);
    directCert.Map(mapper);
    endpointUrl.Map(mapper);
    endpointCert.Map(mapper);
    serviceHostname.Map(mapper);
    serviceNamespace.Map(mapper);
    datacenterId.Map(mapper);
    links.Map(mapper);
    roles.Map(mapper);
    ttlSeconds.Map(mapper);
    status.Map(mapper);
    serviceProps.Map(mapper);
}

void ServiceEnrollment::Reset() {
    clientId.Wipe();
    *this = ServiceEnrollment();
}

}  // namespace Ombry::ClientCommunications::SfsGateway
