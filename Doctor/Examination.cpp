#include "Doctor/Examination.h"

#include "Doctor/BootstrapChecks.h"
#include "Doctor/CacheChecks.h"
#include "Doctor/ClientChecks.h"
#include "Doctor/ConnectChecks.h"
#include "Doctor/StateChecks.h"
#include "Doctor/TrustChecks.h"

#include <algorithm>

namespace Ombry::Doctor {
namespace {

using Plain = Findings (*)(const Machine&);

std::function<Findings(const Machine&, const Wishes&)> On(Plain check) {
    return [check](const Machine& machine, const Wishes&) { return check(machine); };
}

bool IsWished(const Check& check, const Wishes& wishes) {
    if (check.connects && !wishes.connects) return false;
    return wishes.only.empty() ||
           std::any_of(wishes.only.begin(), wishes.only.end(), [&](const std::string& name) {
               return name == check.source || name == check.FullName();
           });
}

}  // namespace

const std::vector<Check>& AllChecks() {
    static const std::vector<Check>& checks = *new std::vector<Check>{
        {"state", "place", "where the state lies, and whether its folders are folders", false,
         On(CheckPlace)},
        {"state", "owners", "whether everything belongs to root or to who looks", false, On(CheckOwners)},
        {"state", "modes", "whether others may read or write any of it", false, On(CheckModes)},
        {"state", "leftovers", "what killed runs left behind, and how old it is", false, On(CheckLeftovers)},
        {"state", "clock", "whether anything was written in the future", false, On(CheckClock)},
        {"bootstrap", "address", "where the service is", false, On(CheckAddress)},
        {"bootstrap", "datacenter", "which datacenter, and which file says so", false, On(CheckDatacenter)},
        {"bootstrap", "whole", "whether certificate, address and datacenter can be of one run", false,
         On(CheckWhole)},
        {"trust", "certificate", "the certificate that the machine's trust begins with", false,
         [](const Machine& machine, const Wishes& wishes) { return CheckTrust(machine, wishes.warnDays); }},
        {"caches", "discovery", "the lists of the discovery servers", false, On(CheckDiscoveryCaches)},
        {"caches", "search", "what was found through discovery, and how long it may serve", false,
         On(CheckSearchCaches)},
        {"tokens", "token", "for which services there are tokens, and how long they last", false,
         On(CheckTokens)},
        {"clients", "key", "the file that credentials are deciphered with", false, On(CheckKey)},
        {"clients", "credentials", "whether each client's credentials can be deciphered here", false,
         On(CheckCredentials)},
        {"clients", "service", "the services of each client, and records without one", false,
         On(CheckServices)},
        {"connect", "server", "whether the service and each discovery server answer with the trusted key",
         true,
         [](const Machine& machine, const Wishes& wishes) {
             return CheckConnections(machine, wishes.warnDays);
         }},
    };
    return checks;
}

bool IsCheck(const std::string& name) {
    return std::any_of(AllChecks().begin(), AllChecks().end(),
                       [&](const Check& check) { return name == check.source || name == check.FullName(); });
}

Findings Examine(const Machine& machine, const Wishes& wishes) {
    Findings findings;
    for (const Check& check : AllChecks()) {
        if (!IsWished(check, wishes)) continue;
        for (Finding& finding : check.run(machine, wishes)) {
            finding.source = check.source;
            finding.name = check.name;
            findings.push_back(std::move(finding));
        }
    }
    return findings;
}

Status StatusOf(const Findings& findings) {
    Status status = Status::Fine;
    bool isUndecided = false;
    for (const Finding& finding : findings) {
        isUndecided |= finding.isUndecided;
        if (finding.severity == Severity::Success || finding.isUndecided) continue;
        if (finding.severity != Severity::Warning) return Status::Critical;
        status = Status::Warning;
    }
    return isUndecided ? Status::Unknown : status;
}

}  // namespace Ombry::Doctor
