#pragma once

#include <list>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapperIf.h"
#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications::SfsGateway {

/// One named optional field. Unset, it is written as null; a null or missing key reads back as unset.
template <class T>
class Property : public ObjectMapping::ObjectIf {
public:
    explicit Property(std::string name) : name(std::move(name)) {}

    void Map(ObjectMapping::MapperIf& mapper) override {
        if constexpr (IsList<T>::value) {
            ObjectMapping::ListArray array(value, true);
            mapper.Field(name.c_str(), array, &isSet);
        } else {
            mapper.Field(name.c_str(), value, &isSet);
        }
    }
    void Reset() override {
        value = T();
        isSet = false;
    }

    void Set(T newValue) {
        value = std::move(newValue);
        isSet = true;
    }
    bool IsSet() const { return isSet; }
    /// `std::runtime_error` if it is not set.
    const T& Get() const {
        if (!isSet) throw std::runtime_error(name + " is not set.");
        return value;
    }

    /// Overwrites a value that is a secret. It stays set, and is worth nothing.
    void Wipe() requires std::is_same_v<T, std::string> { Platform::SecureWipe(value); }

private:
    template <class U>
    struct IsList : std::false_type {};
    template <class U>
    struct IsList<std::list<U>> : std::true_type {};

    std::string name;
    T value{};
    bool isSet = false;
};

/// Writes as {}.
class EmptyDictionary : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf&) override {}
    void Reset() override {}
};

class ServicePropsInner : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> key{"key"};
    Property<std::string> value{"value"};
};

/// The body of a client enrolment. The client's id and secret are wiped with it.
class LocationAwareClient : public ObjectMapping::ObjectIf {
public:
    LocationAwareClient() = default;
    ~LocationAwareClient() override { WipeIdentity(); }
    LocationAwareClient(const LocationAwareClient&) = default;
    LocationAwareClient& operator=(const LocationAwareClient&) = default;

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> id{"id"};
    Property<std::string> clientSecretId{"clientSecretId"};
    Property<std::string> publicCertPem{"publicCertPem"};
    Property<std::list<std::string>> groups{"groups"};
    Property<std::string> description{"description"};
    Property<std::string> datacenterId{"datacenterId"};
    Property<EmptyDictionary> rolesPerService{"rolesPerService"};

private:
    void WipeIdentity();
};

/// The body of a service enrolment.
class ServiceEnrollment : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> serviceId{"serviceId"};
    Property<std::string> serviceName{"serviceName"};
    Property<std::string> clientId{"clientId"};
    Property<std::string> directUrl{"directUrl"};
    Property<std::string> directCert{"directCert"};
    Property<std::string> endpointUrl{"endpointUrl"};
    Property<std::string> endpointCert{"endpointCert"};
    Property<std::string> serviceHostname{"serviceHostname"};
    Property<std::string> serviceNamespace{"serviceNamespace"};
    Property<std::string> datacenterId{"datacenterID"};  // unlike the client's key: the service wants it so
    Property<EmptyDictionary> links{"links"};
    Property<std::list<std::string>> roles{"roles"};
    Property<int> ttlSeconds{"ttlSeconds"};
    Property<std::string> status{"status"};
    Property<std::list<ServicePropsInner>> serviceProps{"serviceProps"};
};

}  // namespace Ombry::ClientCommunications::SfsGateway
