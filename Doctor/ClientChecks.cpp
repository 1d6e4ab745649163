#include "Doctor/ClientChecks.h"

#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/LocalServiceLookup.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "ClientCommunications/LocalConfiguration.h"
#include "Doctor/Conclusion.h"
#include "Doctor/Texts.h"
#include "ObjectMapping/Serialization.h"
#include "Platform/ErrorNumber.h"

#include <algorithm>
#include <optional>

namespace Ombry::Doctor {
namespace {

namespace MachineFiles = ClientCommunications::MachineFiles;
using Platform::FileKind;
using Platform::KeyState;

struct Client {
    std::string name;
    const Entry* credentials = nullptr;  // null for none
    std::vector<std::string> services = {};
};

std::string Inner(const std::string& text) {
    return text.substr(1, text.size() - (text.ends_with('/') ? 2 : 1));
}

std::string CredentialsPath(const Machine& machine, const std::string& client) {
    return machine.ComponentsFolder() + "/" + client + MachineFiles::Credentials;
}

std::string RecordPath(const Machine& machine, const std::string& client, const std::string& service) {
    return MachineFiles::ServicesOf(machine.Parameters().securityDirectory, client) + service +
           MachineFiles::ServiceRecord;
}

// The names behind the records of a folder. One with a solidus lies in a deeper folder.
void AddServices(const Machine& machine, const std::string& folder, const std::string& prefix,
                 std::vector<std::string>& services) {
    const std::string_view suffix = MachineFiles::ServiceRecord;
    for (const Entry& entry : machine.Tree().Children(folder)) {
        const std::string name = prefix + entry.name;
        if (name.ends_with(suffix) && entry.name.size() > suffix.size()) {
            services.push_back(name.substr(0, name.size() - suffix.size()));
        } else if (entry.details.kind == FileKind::Folder) {
            AddServices(machine, folder + "/" + entry.name, name + "/", services);
        }
    }
}

// Likewise for the clients. A client's folder that holds nothing any more is none.
void AddClients(const Machine& machine, const std::string& folder, const std::string& name,
                std::vector<Client>& clients) {
    Client client{name};
    if (!name.empty()) client.credentials = machine.Tree().Child(folder, Inner(MachineFiles::Credentials));
    const std::string services = Inner(MachineFiles::Services);
    for (const Entry& entry : machine.Tree().Children(folder)) {
        if (entry.details.kind != FileKind::Folder) continue;
        const std::string path = folder + "/" + entry.name;
        if (entry.name == services && !name.empty()) {
            AddServices(machine, path, "", client.services);
        } else if (&entry != client.credentials) {
            AddClients(machine, path, name.empty() ? entry.name : name + "/" + entry.name, clients);
        }
    }
    if (client.credentials || !client.services.empty()) clients.push_back(std::move(client));
}

std::vector<Client> ClientsOf(const Machine& machine) {
    std::vector<Client> clients;
    AddClients(machine, machine.ComponentsFolder(), "", clients);
    return clients;
}

// Tokens of the client that it was before would be used, and refused, while they are young.
std::string EnrollCommand(const Machine& machine, const std::string& client) {
    return "rm -rf -- " + Quoted(machine.CachesFolder() + "/" + client + MachineFiles::TokenCache) +
           " && Ombry.SecClientConfig enroll-client -u USER -p PASSWORD -nn " + Quoted(client);
}

// Takes away whatever is no file, and then does what makes one.
std::string Anew(const std::string& path, const std::string& command) {
    const auto details = Platform::Inspection().Details(path);
    const bool isInTheWay = details && details->kind != FileKind::File;
    return (isInTheWay ? "rm -rf -- " + Quoted(path) + " && " : std::string()) + command;
}

std::string EnrollAllCommand(const Machine& machine) {
    std::string command;
    for (const Client& client : ClientsOf(machine)) {
        if (!client.credentials) continue;
        command += (command.empty() ? "" : " && ") +
                   Anew(CredentialsPath(machine, client.name), EnrollCommand(machine, client.name));
    }
    return command;
}

std::string MakePrivateCommand(const std::string& path) {
    Platform::IInspection& inspection = Platform::Inspection();
    const auto details = inspection.Details(path);
    const bool isForeign = details && details->owner != 0 && details->owner != inspection.User();
    const std::string chown = (inspection.User() == 0 ? "chown " : "sudo chown ") +
                              std::to_string(inspection.User()) + " -- " + Quoted(path) + " && ";
    return (isForeign ? chown : std::string()) + "chmod 600 -- " + Quoted(path);
}

// Behind a new identity or a new key all credentials are lost.
std::string WithClientsAnew(const Machine& machine, std::string command) {
    const std::string enrollAll = EnrollAllCommand(machine);
    return std::move(command) + (enrollAll.empty() ? "" : " && ") + enrollAll;
}

std::string NewIdentityCommand(const Machine& machine) {
    const std::string path = Quoted(machine.Key().identity);
    return WithClientsAnew(machine, "rm -rf -- " + path + " && tr -d - < /proc/sys/kernel/random/uuid > " +
                                        path + " && chmod 444 -- " + path);
}

bool IsKeyForbidden(const Machine& machine) {
    return Platform::Inspection().MeansForbidden(machine.Key().error);
}

bool CanBeDeciphered(const Machine& machine, const std::string& client) {
    const auto store = ClientCommunications::CreateClientCredentialsStore(
        machine.Parameters().securityDirectory, true, nullptr);
    try {
        ClientCommunications::LoadExisting(*store, client);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// Why credentials cannot be deciphered with a key that is whole, as far as what else there is tells.
struct Cause {
    const char* word;
    const char* text;
};

Cause CauseOf(const Machine& machine, const Client& client, std::size_t deciphered, std::size_t failed) {
    if (client.credentials->details.size == 0) return {"damaged", "its credentials file is empty"};
    if (deciphered > 0) {
        return {"damaged",
                "its credentials are damaged, or come from another machine: those of others can be "
                "deciphered here"};
    }
    const auto key = Platform::Inspection().Details(machine.Key().path);
    if (key && key->modified > client.credentials->details.modified) {
        return {"key-lost",
                "its credentials cannot be deciphered: the key was made after them, so that the "
                "one before it was lost"};
    }
    if (failed > 1) {
        return {"cloned",
                "its credentials cannot be deciphered, nor can any others here: the machine was "
                "cloned, or its identity or key replaced"};
    }
    return {"damaged-or-cloned",
            "its credentials cannot be deciphered: they are damaged, or the machine was "
            "cloned; without another client there is no telling which"};
}

Finding JudgeFailure(const Machine& machine, const Client& client, std::size_t deciphered,
                     std::size_t failed) {
    const std::string path = CredentialsPath(machine, client.name);
    Finding finding{.severity = Severity::Error,
                    .pairs = {{"client", client.name}, {"path", path}},
                    .remedy = Anew(path, EnrollCommand(machine, client.name))};
    const auto tell = [&](const std::string& cause, const std::string& text) {
        finding.message = client.name + ": " + text;
        finding.pairs.emplace_back("cause", cause);
        return finding;
    };
    if (const auto reading = machine.WhyUnreadable(path); !reading.failure.empty()) {
        finding.isUndecided = reading.isForbidden;
        if (finding.isUndecided) finding.remedy = "sudo ombry-doctor";
        if (reading.isTooLong) finding.severity = Severity::Warning;
        return tell("no-file", "its credentials file " + reading.failure);
    }
    switch (machine.Key().verdict) {
        case KeyState::Verdict::Missing:
            return tell("key-lost", "its credentials cannot be deciphered: the key file is lost");
        case KeyState::Verdict::Damaged:
            return tell("key-damaged", "its credentials cannot be deciphered: the key file is damaged");
        case KeyState::Verdict::NotPrivate:
            finding.remedy = MakePrivateCommand(machine.Key().path);
            return tell("key-not-private", "its credentials are not deciphered while others may use the key");
        case KeyState::Verdict::OutOfReach:
        case KeyState::Verdict::NoIdentity:
            finding.isUndecided = IsKeyForbidden(machine);
            if (finding.isUndecided) finding.remedy = "sudo ombry-doctor";
            return tell("key-out-of-reach",
                        "its credentials cannot be deciphered: the key, or the machine's identity, cannot be "
                        "read");
        case KeyState::Verdict::Whole:
            break;
    }
    const Cause cause = CauseOf(machine, client, deciphered, failed);
    return tell(cause.word, cause.text);
}

// The id in a record as the tool takes it, and whether other readers take the record, too.
struct Record {
    std::string id;
    bool isWhole = false;
};

std::optional<Record> ReadRecord(const Machine& machine, const std::string& client,
                                 const std::string& service) {
    const auto storage = std::make_shared<ClientCommunications::NamedFileStorage>(
        MachineFiles::ServicesOf(machine.Parameters().securityDirectory, client), MachineFiles::ServiceRecord,
        true);
    try {
        ClientCommunications::LocalServiceStorageDto dto;
        ObjectMapping::DeserializeObject(dto, storage->Get(service)->Load(), nullptr, false);
        Record record{dto.guid};
        try {
            ClientCommunications::LocalServiceLookup(storage).Lookup(service);
            record.isWhole = true;
        } catch (const std::exception&) {
        }
        return record;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Searches that are fresh do not show the older registration, which has to go first.
std::string EnrollServiceCommand(const Machine& machine, const std::string& client,
                                 const std::string& service) {
    return Anew(RecordPath(machine, client, service),
                "rm -rf -- " + Quoted(machine.CachesFolder() + MachineFiles::FinderCache) +
                    " && Ombry.SecClientConfig enroll-service -u USER -p PASSWORD -owner " + Quoted(client) +
                    " -name " + Quoted(service) + " -url URL -namespace NAMESPACE -hostname HOST");
}

Finding JudgeService(const Machine& machine, const Client& client, const std::string& service) {
    const std::string path = RecordPath(machine, client.name, service);
    const std::string whose = "service " + service + " of client " + client.name;
    Finding finding{.pairs = {{"client", client.name}, {"service", service}, {"path", path}}};
    const auto record = ReadRecord(machine, client.name, service);
    if (!record) {
        const auto reading = machine.WhyUnreadable(path);
        finding.severity = reading.isTooLong ? Severity::Warning : Severity::Error;
        finding.message = "The record of " + whose + " " +
                          (reading.failure.empty() ? std::string("is damaged") : reading.failure);
        finding.remedy = client.credentials ? EnrollServiceCommand(machine, client.name, service)
                                            : "rm -rf -- " + Quoted(path);
        finding.isUndecided = reading.isForbidden;
        if (finding.isUndecided) finding.remedy = "sudo ombry-doctor";
        return finding;
    }
    finding.pairs.emplace_back("id", record->id);
    finding.message = "The " + whose + " has the id " + record->id;
    if (!client.credentials) {
        finding.severity = Severity::Warning;
        finding.message += "; the client is not enrolled here any more";
        finding.remedy = "Ombry.SecClientConfig unenroll-service -u USER -p PASSWORD -on " +
                         Quoted(client.name) + " -s " + Quoted(service);
    } else if (!IsHeaderText(record->id)) {
        finding.severity = Severity::Warning;
        finding.message = "The record of " + whose +
                          " holds no id: unenroll-service forgets it, and the service "
                          "stays registered";
        finding.remedy = EnrollServiceCommand(machine, client.name, service);
    } else if (!record->isWhole) {
        finding.severity = Severity::Warning;
        finding.message += "; the record is not whole, and programs on the libraries do not find the service";
        finding.remedy = EnrollServiceCommand(machine, client.name, service);
    }
    return finding;
}

}  // namespace

Findings CheckKey(const Machine& machine) {
    const KeyState& key = machine.Key();
    const std::string enrollAll = EnrollAllCommand(machine);
    Finding finding{.pairs = {{"path", key.path}}};
    switch (key.verdict) {
        case KeyState::Verdict::Whole:
            finding.message = key.path + " is there, and nobody else's";
            break;
        case KeyState::Verdict::Missing:
            finding.message = "There is no key yet; the first enroll-client makes one";
            if (const std::string hidden = machine.Tree().HiddenOf(machine.ComponentsFolder());
                !hidden.empty())
                return {CannotLook(hidden, machine.Tree().WhyHidden(hidden))};
            if (enrollAll.empty()) break;
            finding.severity = Severity::Error;
            finding.message = key.path + " is lost, and with it all credentials";
            finding.remedy = enrollAll;
            break;
        case KeyState::Verdict::NotPrivate:
            finding.severity = Severity::Error;
            finding.message = key.path +
                              " may be read or written by others, and is not used; if somebody has read it, "
                              "enrol the clients anew with a new key";
            finding.remedy = MakePrivateCommand(key.path);
            break;
        case KeyState::Verdict::Damaged:
            finding.severity = Severity::Error;
            finding.message = key.path + " is damaged, and with it all credentials are lost";
            finding.remedy = WithClientsAnew(machine, "rm -rf -- " + Quoted(key.path));
            break;
        case KeyState::Verdict::OutOfReach:
            finding.severity = Severity::Error;
            finding.message = key.path + " cannot be read, with error " + Platform::ErrorNumber(key.error);
            // Kept: what cannot be read now may be whole.
            finding.remedy = WithClientsAnew(
                machine, "mv -- " + Quoted(key.path) + " " + Quoted(key.path + ".unreadable"));
            break;
        case KeyState::Verdict::NoIdentity:
            finding.severity = Severity::Error;
            finding.message = key.identity + ", the machine's identity, cannot be read, with error " +
                              Platform::ErrorNumber(key.error) +
                              ": nothing can be enciphered; credentials stay good if it is brought back";
            finding.pairs.emplace_back("identity", key.identity);
            finding.remedy = NewIdentityCommand(machine);
            break;
    }
    const bool isOutOfReach =
        key.verdict == KeyState::Verdict::OutOfReach || key.verdict == KeyState::Verdict::NoIdentity;
    if (isOutOfReach && IsKeyForbidden(machine)) {
        finding.remedy = "sudo ombry-doctor";
        finding.isUndecided = true;
    }
    return {finding};
}

Findings CheckCredentials(const Machine& machine) {
    std::vector<Client> failed;
    Findings findings;
    for (Client& client : ClientsOf(machine)) {
        if (!client.credentials) continue;
        if (!CanBeDeciphered(machine, client.name)) {
            failed.push_back(std::move(client));
            continue;
        }
        findings.push_back({.message = client.name + ": its credentials can be deciphered; it has " +
                                       CountText(client.services.size(), "service"),
                            .pairs = {{"client", client.name},
                                      {"path", CredentialsPath(machine, client.name)},
                                      {"services", static_cast<long long>(client.services.size())}}});
    }
    const std::size_t deciphered = findings.size();
    for (const Client& client : failed)
        findings.push_back(JudgeFailure(machine, client, deciphered, failed.size()));
    Conclude(machine, {machine.ComponentsFolder()}, {.message = "No client is enrolled here"}, findings);
    return findings;
}

Findings CheckServices(const Machine& machine) {
    Findings findings;
    for (const Client& client : ClientsOf(machine)) {
        for (const std::string& service : client.services)
            findings.push_back(JudgeService(machine, client, service));
    }
    Conclude(machine, {machine.ComponentsFolder()}, {.message = "No service is enrolled here"}, findings);
    return findings;
}

std::vector<std::string> ClientNamesOf(const Machine& machine) {
    std::vector<std::string> names;
    for (Client& client : ClientsOf(machine)) {
        if (client.credentials) names.push_back(std::move(client.name));
    }
    return names;
}

}  // namespace Ombry::Doctor
