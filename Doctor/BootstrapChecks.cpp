#include "Doctor/BootstrapChecks.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "Doctor/Conclusion.h"
#include "Doctor/Texts.h"
#include "Doctor/TrustChecks.h"
#include "OmbryZephCore/ZephUrl.h"

namespace Ombry::Doctor {
namespace {

namespace MachineFiles = ClientCommunications::MachineFiles;

// What stands in the place of the file has to go before the file comes.
std::string AfterRemoving(const Machine& machine, const std::string& path, const std::string& command) {
    const auto details = Platform::Inspection().Details(path);
    const bool isInTheWay = details && details->kind != Platform::FileKind::File;
    return machine.ObstacleTo(path).empty() && isInTheWay ? "rm -rf -- " + Quoted(path) + " && " + command
                                                          : command;
}

// The file of the certificate that trust begins with, under the name that its bytes give it; empty for none.
std::string TrustedFile(const Machine& machine) {
    try {
        const auto certificates = ClientCommunications::getBootstrapCertificates(machine.Parameters());
        if (certificates.empty()) return {};
        const std::string name = CertificateFileOf(certificates.front());
        const Entry* file = machine.Tree().Child(machine.StoreFolder(), name);
        return file ? machine.StoreFolder() + "/" + name : std::string();
    } catch (const std::runtime_error&) {
        return {};
    }
}

Finding Unreadable(const Machine& machine, const std::string& path, const Machine::Reading& reading,
                   const std::string& command) {
    return {.severity = reading.isTooLong ? Severity::Warning : Severity::Critical,
            .message = path + " " + reading.failure,
            .pairs = {{"path", path}},
            .remedy = reading.isForbidden ? "sudo ombry-doctor" : AfterRemoving(machine, path, command),
            .isUndecided = reading.isForbidden};
}

}  // namespace

Findings CheckAddress(const Machine& machine) {
    const std::string path = machine.Parameters().securityDirectory + MachineFiles::Bootstrap;
    const Machine::Reading& address = machine.Address();
    if (!address.failure.empty()) {
        return {Unreadable(machine, path, address, machine.ConfigureCommand(false))};
    }
    Finding finding{.message = "The service is at " + address.text,
                    .pairs = {{"address", address.text}, {"path", path}}};
    if (OmbryZephCore::ParseUrl(address.text).host.empty()) {
        finding.severity = Severity::Critical;
        finding.message = "The address of the service, '" + address.text + "', names no host";
    } else if (!IsSecureAddress(address.text)) {
        finding.severity = Severity::Warning;
        finding.message = "The service at " + address.text +
                          " is called in clear text: the address does not begin with https://";
    }
    if (finding.severity != Severity::Success) finding.remedy = machine.ConfigureCommand(false);
    return {finding};
}

Findings CheckDatacenter(const Machine& machine) {
    const Machine::Reading& datacenter = machine.Datacenter();
    const std::string path = machine.IsDatacenterFromCommonFile()
                                 ? machine.Parameters().commonConfigPath
                                 : machine.Parameters().securityDirectory + MachineFiles::DatacenterId;
    if (datacenter.failure.empty()) {
        return {{.message = "The datacenter is " + datacenter.text + ", from " + path,
                 .pairs = {{"datacenter", datacenter.text}, {"path", path}}}};
    }
    if (!machine.IsDatacenterFromCommonFile()) {
        return {Unreadable(machine, path, datacenter, machine.ConfigureCommand(true, false))};
    }
    // It outranks what the tool writes. Without its element the machine's own file counts.
    return {{.severity = Severity::Critical,
             .message = "The datacenter's id in " + path + " " + datacenter.failure,
             .pairs = {{"path", path}},
             .remedy = "sed -i -z 's/<DatacenterId>[^<]*</<DatacenterId></' " + Quoted(path) + " && " +
                       machine.ConfigureCommand(true, false)}};
}

Findings CheckWhole(const Machine& machine) {
    const std::string& security = machine.Parameters().securityDirectory;
    std::vector<std::string> paths{security + MachineFiles::Bootstrap};
    const std::string certificate = TrustedFile(machine);
    if (!certificate.empty()) paths.insert(paths.begin(), certificate);
    if (!machine.IsDatacenterFromCommonFile()) paths.push_back(security + MachineFiles::DatacenterId);
    for (std::size_t place = 1; place < paths.size(); ++place) {
        const auto earlier = Platform::Inspection().Details(paths[place - 1]);
        const auto later = Platform::Inspection().Details(paths[place]);
        if (!earlier || !later || later->modified >= earlier->modified) continue;
        return {{.severity = Severity::Warning,
                 .message = paths[place] + " is older than " + paths[place - 1] +
                            ": a configure-bootstrap-url was cut off, and they may be of two services",
                 .pairs = {{"older", paths[place]}, {"younger", paths[place - 1]}},
                 .remedy = machine.ConfigureCommand(false, false)}};
    }
    Findings findings;
    Conclude(machine, {security + "/CS", machine.StoreFolder()},
             {.message = "Certificate, address and datacenter can be of one run"}, findings);
    return findings;
}

}  // namespace Ombry::Doctor
