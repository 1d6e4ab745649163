#pragma once

#include "Platform/MadeOnce.h"

#include <array>
#include <cstddef>
#include <string>

namespace Ombry::ClientCommunications {

/// The headers that the libraries put on requests, in the byte order of their names.
enum class KnownHeader : std::size_t {
    Authorization,
    ContentType,
    ContractVersion,
    DatacenterId,
    DestinationServiceId,
    DestinationServiceIsLocal,
    DestinationServiceName,
    DestinationServiceNamespace,
    RequestId,
    RootAttempt,
    RootCorrelationId,
    RootRequestIsInfrastructure,
    RootRequestType,
    SourceClientId,
    SourceClientName,
    SourceDatacenterId
};

/// Their names, as the strings that requests take, so that none is made anew for each call.
struct KnownHeaderNames {
    static constexpr std::size_t Count = 16;
    const std::array<std::string, Count> names{"Authorization",
                                               "Content-Type",
                                               "Contract-Version",
                                               "Datacenter-Id",
                                               "SF-Destination-Service-Id",
                                               "SF-Destination-Service-Is-Local-DC",
                                               "SF-Destination-Service-Name",
                                               "SF-Destination-Service-Namespace",
                                               "SF-Request-Id",
                                               "SF-Root-Attempt",
                                               "SF-Root-Correlation-Id",
                                               "SF-Root-Request-Is-Infrastructure",
                                               "SF-Root-Request-Type",
                                               "SF-Source-Client-Id",
                                               "SF-Source-Client-Name",
                                               "SF-Source-Datacenter-Id"};
};

inline const std::array<std::string, KnownHeaderNames::Count>& NamesOfKnownHeaders() {
    return Platform::MadeOnce<const KnownHeaderNames>().names;
}

inline const std::string& NameOf(KnownHeader header) {
    return NamesOfKnownHeaders()[static_cast<std::size_t>(header)];
}

}  // namespace Ombry::ClientCommunications
