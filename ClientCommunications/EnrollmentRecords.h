#pragma once

#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapperIf.h"
#include "Platform/SecureWipe.h"

#include <list>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace Ombry::ClientCommunications::SfsGateway {

/// One named optional field. Unset, it is written as null; a null or missing key reads back as unset.
template <class T>
class Property : public ObjectMapping::ObjectIf {
public:
    /// `name` is the key in the JSON text.
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

    /// From now on it is set.
    void Set(T newValue) {
        value = std::move(newValue);
        isSet = true;
    }
    /// Whether there is a value.
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

/// One free pair of an enrolled service.
class ServicePropsInner : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> key{"key"};      ///< the pair's key
    Property<std::string> value{"value"};  ///< the pair's value
};

/// The body of a client enrolment. The client's id and secret are wiped with it.
class LocationAwareClient : public ObjectMapping::ObjectIf {
public:
    LocationAwareClient() = default;
    ~LocationAwareClient() override { WipeIdentity(); }
    /// Copies hold the secret too.
    LocationAwareClient(const LocationAwareClient&) = default;
    /// As the copy constructor.
    LocationAwareClient& operator=(const LocationAwareClient&) = default;

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> id{"id"};                                ///< the new client's id, a UUID
    Property<std::string> clientSecretId{"clientSecretId"};        ///< its secret
    Property<std::string> publicCertPem{"publicCertPem"};          ///< its certificate, PEM
    Property<std::list<std::string>> groups{"groups"};             ///< groups that it is to be in
    Property<std::string> description{"description"};              ///< for people
    Property<std::string> datacenterId{"datacenterId"};            ///< where it stands
    Property<EmptyDictionary> rolesPerService{"rolesPerService"};  ///< empty: the service hands out roles

private:
    void WipeIdentity();
};

/// The body of a service enrolment. The owner's id is wiped with it.
class ServiceEnrollment : public ObjectMapping::ObjectIf {
public:
    ServiceEnrollment() = default;
    ~ServiceEnrollment() override { clientId.Wipe(); }
    /// Copies hold the id too.
    ServiceEnrollment(const ServiceEnrollment&) = default;
    /// As the copy constructor.
    ServiceEnrollment& operator=(const ServiceEnrollment&) = default;

    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    Property<std::string> serviceId{"serviceId"};      ///< the new service's id, a UUID
    Property<std::string> serviceName{"serviceName"};  ///< what it is found by
    Property<std::string> clientId{"clientId"};        ///< id of the client that owns it
    Property<std::string> directUrl{"directUrl"};      ///< its own address
    Property<std::string> directCert{"directCert"};    ///< certificate of that address, Base64 of DER
    Property<std::string> endpointUrl{"endpointUrl"};  ///< the address that discovery gives
    Property<std::string> endpointCert{
        "endpointCert"};  ///< certificate of that address, Base64 of DER; callers pin it
    Property<std::string> serviceHostname{"serviceHostname"};    ///< its host
    Property<std::string> serviceNamespace{"serviceNamespace"};  ///< its namespace (product)
    Property<std::string> datacenterId{
        "datacenterID"};  ///< where it stands; the key is unlike the client's key: the service wants it so
    Property<EmptyDictionary> links{"links"};         ///< empty
    Property<std::list<std::string>> roles{"roles"};  ///< roles that it is to have
    Property<int> ttlSeconds{
        "ttlSeconds"};  ///< seconds that the registration is to last; not set, as by default, the service
                        ///< decides; any number goes out as it is, 0 too
    Property<std::string> status{"status"};  ///< the service's own word for its state
    Property<std::list<ServicePropsInner>> serviceProps{
        "serviceProps"};  ///< free pairs, which discovery hands on
};

}  // namespace Ombry::ClientCommunications::SfsGateway
