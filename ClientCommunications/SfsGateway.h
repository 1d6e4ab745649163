#pragma once

#include "ClientCommunications/EnrollmentRecords.h"
#include "ClientCommunications/IClientCommunications.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications::SfsGateway {

// The enrolment calls of a Security Framework service. An unexpected status is `std::runtime_error`; what a
// gateway throws passes through. A deletion of what is already gone is no failure.

void EnrollClient(std::shared_ptr<IClientCommunications> communications, const LocationAwareClient& client);
/// Deletes the client that the caller's token stands for.
void DeleteClient(std::shared_ptr<IClientCommunications> communications);
void DeleteClientById(std::shared_ptr<IClientCommunications> communications, const std::string& id);
void EnrollService(std::shared_ptr<IClientCommunications> communications, const ServiceEnrollment& service);
void DeleteServiceById(std::shared_ptr<IClientCommunications> communications, const std::string& id);

}  // namespace Ombry::ClientCommunications::SfsGateway
