#pragma once

#include "ClientCommunications/EnrollmentRecords.h"
#include "ClientCommunications/IClientCommunications.h"

#include <memory>
#include <string>

/// The enrolment calls of a Security Framework service. An unexpected status is `std::runtime_error`; what a
/// gateway throws passes through. A deletion of what is already gone is no failure. Each call blocks until it
/// is answered or has failed. Any thread may make them, several at once; `communications` is never null, and
/// is needed until the call returns.
namespace Ombry::ClientCommunications::SfsGateway {

/// Enrols a client; its credentials are not saved here.
void EnrollClient(std::shared_ptr<IClientCommunications> communications, const LocationAwareClient& client);
/// Deletes the client that the caller's token stands for.
void DeleteClient(std::shared_ptr<IClientCommunications> communications);
/// Deletes the client with that id.
void DeleteClientById(std::shared_ptr<IClientCommunications> communications, const std::string& id);
/// Enrols a service.
void EnrollService(std::shared_ptr<IClientCommunications> communications, const ServiceEnrollment& service);
/// Deletes the service with that id.
void DeleteServiceById(std::shared_ptr<IClientCommunications> communications, const std::string& id);

}  // namespace Ombry::ClientCommunications::SfsGateway
