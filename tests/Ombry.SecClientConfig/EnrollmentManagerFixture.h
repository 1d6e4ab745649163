#pragma once

#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "Ombry.SecClientConfig/EnrollmentManager.h"
#include "tests/Fakes/CapturedOutput.h"
#include "tests/Fakes/FakeCommunications.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/MemoryFiles.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {

/// A manager over a composition without a network and a disk in memory. `steps` lists what it does to both,
/// in order. Nothing may be printed.
class EnrollmentManagerFixture : public testing::Test {
protected:
    using Texts = std::vector<std::string>;

    static inline const std::string Security = MemoryMachine() + "/Quennet/OmbrySecurity";

    EnrollmentManagerFixture() {
        files.Put(Security + "/CS/datacenterid.config", "dc-1");
        communications->onStep = [this](const std::string& step) { steps.push_back(step); };
        files.Decide([this](const FileOperation& operation) {
            steps.push_back(operation.Text());
            return Judge(operation);
        });
    }
    ~EnrollmentManagerFixture() override {
        EXPECT_EQ(captured.Out(), "");
        EXPECT_EQ(captured.Error(), "");
    }

    static std::string CredentialsPath(const std::string& name) {
        return Security + "/Components/" + name + "/ombrycomponent.config";
    }
    static std::string RecordPath(const std::string& owner, const std::string& service) {
        return Security + "/Components/" + owner + "/Services/" + service + ".config";
    }
    static std::string RecordText(const std::string& id) {
        return "{\n    \"Version\": \"1.0\",\n    \"Guid\": \"" + id + "\"\n}";
    }

    static std::shared_ptr<ClientCommunications::IClientCredentialsStore> Store() {
        return ClientCommunications::CreateClientCredentialsStore(Security, true, nullptr);
    }

    /// Stores credentials of an earlier enrolment.
    void PutClient(const std::string& name, const std::string& id, const std::string& secret = "secret") {
        Store()->Save(std::make_shared<ClientCommunications::ClientCredentials>(
            std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), name, id, secret));
        steps.clear();
    }

    /// "id secret" of what is stored under the name, "" if nothing is.
    std::string StoredClient(const std::string& name) {
        if (!files.Exists(CredentialsPath(name))) return "";
        const Texts before = steps;
        const auto credentials = Store()->Load(name);
        steps = before;
        return credentials->GetClientId() + " " + credentials->GetClientSecret();
    }

    /// Answers by "METHOD path"; anything else gets 500.
    void Answer(std::map<std::string, FakeCommunications::Answer> answers) {
        communications->respond = [answers](const std::string& call) {
            const auto found = answers.find(call);
            return found == answers.end() ? FakeCommunications::Answer{500, "unexpected"} : found->second;
        };
    }

    /// What `action` throws; "" if it does not.
    template <class Action>
    static std::string Failure(Action action) {
        try {
            action();
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return "";
    }

    /// The four steps of one call.
    static Texts Call(const std::string& service, const std::string& contract, const std::string& method,
                      const std::string& path) {
        const std::string content = method == "POST" ? " Content-Type=application/json" : "";
        return {
            "finder name " + service, "gateway name " + service,
            "request " + method + " " + path + " " + contract,
            "call name " + service + " " + method + " " + path + content + " Contract-Version=" + contract};
    }
    static Texts Save(const std::string& path) {
        return {"CreateDirectories " + path.substr(0, path.rfind('/')) + " Synced",
                "BeginReplace " + path + " Synced", "Complete " + path + " Synced"};
    }
    static Texts ReadDatacenter() {
        return {"Read " + MemoryMachine() + "/Quennet/common.config",
                "Read " + Security + "/CS/datacenterid.config"};
    }
    static Texts Join(std::initializer_list<Texts> parts) {
        Texts whole;
        for (const Texts& part : parts)
            whole.insert(whole.end(), part.begin(), part.end());
        return whole;
    }

    /// Fails every operation of that name on that path from now on.
    void FailFile(const std::string& name, const std::string& path) { failing = {name, path}; }

    SecClientConfig::EnrollmentManager Manager() {
        return SecClientConfig::EnrollmentManager(communications);
    }

    const CapturedOutput captured;
    FakeKnownFolders folders{MemoryMachine()};
    FakeRandom random;
    MemoryFiles files;
    FakeMemoryProtection memory;
    FakeMachineProtection machine;
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Testing::Replace<Platform::IMemoryProtection> replacedMemory{memory};
    const Platform::Testing::Replace<Platform::IMachineProtection> replacedMachine{machine};
    std::shared_ptr<FakeCommunications> communications = std::make_shared<FakeCommunications>();
    Texts steps;

private:
    std::optional<int> Judge(const FileOperation& operation) const {
        if (operation.name == failing.first && operation.path == failing.second) return 28;
        return std::nullopt;
    }

    std::pair<std::string, std::string> failing;
};

}  // namespace Ombry::Tests
