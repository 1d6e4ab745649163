#include "Ombry.SecClientConfig/CommandOptions.h"

#include "ClientCommunications/Impl/SecretBuffer.h"

#include <algorithm>
#include <iostream>

namespace Ombry::SecClientConfig {

Identity::~Identity() {
    Platform::SecureWipe(password);
    Platform::SecureWipe(token);
}

bool ReadOptions(int argc, char** argv, const std::vector<Option>& options,
                 const std::function<void(bool& error)>& checks) {
    // Options come in pairs behind the program and the command: an odd count means that a name or a value is
    // missing somewhere, and no message could say where.
    if (argc % 2 != 0) return false;

    bool error = false;
    for (int i = 2; i < argc; i += 2) {
        const std::string arg = argv[i];
        std::string value = argv[i + 1];
        const ClientCommunications::ScopedWipe wipe(value);  // a password, perhaps
        const bool taken = std::any_of(options.begin(), options.end(), [&](const Option& option) {
            return TakeOption(option.name, option.target, error, arg, value);
        });
        if (!taken) ReportError("Unrecognized option " + arg, error);
    }
    checks(error);
    if (error) std::cerr << "\n";
    return !error;
}

std::vector<Option> WithIdentity(Identity& identity, const std::vector<Option>& own) {
    std::vector<Option> options = {{"-u", identity.userName},
                                   {"-p", identity.password},
                                   {"-n", identity.clientName},
                                   {"-t", identity.token}};
    for (const Option& option : own)
        options.push_back(option);
    return options;
}

bool TakeOption(const std::string& name, std::string& target, bool& error, const std::string& arg,
                const std::string& value) {
    if (arg != name) return false;
    if (target.empty()) {
        target = value;
    } else {
        ReportError("Option " + name + " was specified more than once.", error);
    }
    return true;
}

void RequireOption(const std::string& name, const std::string& value, bool& error) {
    if (value.empty()) ReportError("Required option " + name + " is missing.", error);
}

void CheckIdentity(const std::string& userName, const std::string& password, const std::string& clientName,
                   const std::string& token, bool& error) {
    if (userName.empty() && password.empty() && clientName.empty() && token.empty()) {
        ReportError("No userName and password, client name or token was provided.", error);
        return;
    }
    if (userName.empty() != password.empty()) {
        ReportError("When a userName or password is provided then the other must be provided as well.",
                    error);
        return;
    }
    // The password is not counted: a user with a password is one identity.
    const int identities = !userName.empty() + !clientName.empty() + !token.empty();
    if (identities != 1) {
        ReportError("Only one of username/password, client name or token is allowed.", error);
    }
}

void CheckIdentity(const Identity& identity, bool& error) {
    CheckIdentity(identity.userName, identity.password, identity.clientName, identity.token, error);
}

std::shared_ptr<ClientCommunications::IClientCommunications> MakeCommunications(const Identity& identity) {
    return ClientCommunications::MakeCommunications(identity.userName, identity.password, identity.clientName,
                                                    identity.token);
}

void ReportError(const std::string& text, bool& error) {
    error = true;
    std::cerr << "ERROR: " + text + "\n";
}

}  // namespace Ombry::SecClientConfig
