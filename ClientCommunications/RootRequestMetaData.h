#pragma once

#include "ClientCommunications/IRootRequestMetaData.h"
#include "ClientCommunications/IServiceRequest.h"

#include <memory>
#include <string>

/// Makes the metadata that `IServiceRequestFactory::Create` and `IServiceFinder::Find` take, and carries it
/// on requests. Any thread may call these.
namespace Ombry::ClientCommunications::RootRequestMetaData {

/// Metadata with the kind of the root operation.
std::shared_ptr<IRootRequestMetaData> create(const std::string& requestType);

/// The same, marked as background work that no user caused.
std::shared_ptr<IRootRequestMetaData> createInfrastructure(const std::string& requestType);

/// Fills in what a request must carry; returns the argument itself if nothing is missing. `metaData` may be
/// null. What `IServiceRequestFactory::Create` is given need not be filled in.
std::shared_ptr<IRootRequestMetaData> normalize(std::shared_ptr<IRootRequestMetaData> metaData);

/// Sets each pair as a header. `metaData` must not be null.
void addToRequest(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IRootRequestMetaData> metaData);

/// The pairs among the headers whose names begin with "SF-Root-"; null if there is none.
std::shared_ptr<IRootRequestMetaData> getFromRequest(std::shared_ptr<IServiceRequest> request);

}  // namespace Ombry::ClientCommunications::RootRequestMetaData
