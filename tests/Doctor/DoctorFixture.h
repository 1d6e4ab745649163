#pragma once

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "Doctor/Finding.h"
#include "Doctor/Machine.h"
#include "Doctor/ReadOnlyPlatform.h"
#include "Doctor/Reports.h"
#include "ObjectMapping/DateTime.h"
#include "tests/Doctor/DocumentSchema.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeInspection.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

namespace Ombry::Tests {

/// A machine on the real disk that is tied to a service and has the client "c1" with the service "svc". What
/// a finding says of it is looked at through the checks, on a platform that cannot write.
class DoctorFixture : public testing::Test {
protected:
    DoctorFixture() {
        umask(077);
        Trust(RecipeOf(1));
        folder.Write(Address, "{\"ssdsUri\": \"https://server1:8181/sfs\"}");
        folder.Write(Datacenter, "dc-1");
        EnrollClient("c1");
        folder.Write(Record, R"({"Version": "1.0", "Guid": "svc-guid"})");
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path())) {
            std::filesystem::permissions(entry.path(),
                                         std::filesystem::perms(entry.is_directory() ? 0700 : 0600));
        }
    }

    static CertificateRecipe RecipeOf(long serial) {
        CertificateRecipe recipe;
        recipe.commonName = "server1";
        recipe.key = KeyNamed("ec256");
        recipe.serial = serial;
        recipe.validToSeconds = 100 * 86400 + 100;
        return recipe;
    }

    /// Stores a certificate as the one that trust begins with.
    void Trust(const CertificateRecipe& recipe) {
        const std::string der = DerOf(MakeCertificate(recipe));
        OmbryZephCore::ZephIOBuffer buffer;
        ASSERT_EQ(buffer.SetLength(static_cast<std::uint32_t>(der.size())), 0u);
        std::copy(der.begin(), der.end(), buffer.GetData());
        ClientCommunications::saveBootstrapCertificate(
            ClientCommunications::CommunicationsParameters(std::string()), buffer);
    }

    void EnrollClient(const std::string& name) {
        ClientCommunications::CreateClientCredentialsStore(folder / Security, true, nullptr)
            ->Save(std::make_shared<ClientCommunications::ClientCredentials>(
                std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), name, name + "-id",
                Secret));
    }

    /// Writes the entry of a cache; gives its path below the folder.
    std::string PutEntry(const std::string& cache, const std::string& key, const std::string& content) {
        const std::string path =
            Caches + cache + "/" + ClientCommunications::DirectoryKeyValueStorage::EntryNameOf(key) + "-p";
        folder.Write(path, content);
        return path;
    }
    std::string TokenFor(const std::string& service, TimePoint askedFor, int seconds = 3600) const {
        return "{\"lastRefreshed\": \"" + ObjectMapping::FormatDateTime(askedFor) +
               "\", \"token\": {\"token_type\": \"bearer\", \"access_token\": \"" + Secret +
               "\", \"expires_in\": " + std::to_string(seconds) + ", \"scope\": \"\"}, \"servicename\": \"" +
               service + "\"}";
    }

    template <class Check, class... Arguments>
    Doctor::Findings Run(Check check, Arguments... arguments) {
        const Doctor::ReadOnlyPlatform nothingChanges;
        const Doctor::Machine machine;
        Doctor::Findings findings = check(machine, arguments...);
        for (Doctor::Finding& finding : findings)
            finding.source = finding.name = "filled in by who runs the check";
        EXPECT_EQ(SchemaViolation(Doctor::JsonReport(machine, findings)), "");
        return findings;
    }
    /// The only finding of a check.
    template <class Check, class... Arguments>
    Doctor::Finding RunForOne(Check check, Arguments... arguments) {
        const Doctor::Findings findings = Run(check, arguments...);
        EXPECT_EQ(findings.size(), 1u);
        return findings.at(0);
    }

    static std::string Text(const Doctor::Finding& finding, const std::string& key) {
        for (const auto& [name, value] : finding.pairs) {
            if (name != key) continue;
            if (const auto* text = std::get_if<std::string>(&value)) return *text;
            if (const auto* number = std::get_if<long long>(&value)) return std::to_string(*number);
        }
        return "no " + key;
    }

    void Chmod(const std::string& path, unsigned mode) const {
        std::filesystem::permissions(folder / path, std::filesystem::perms(mode));
    }

    static inline const std::string Secret = "a-secret-that-nobody-may-see";
    static inline const std::string Security = "Quennet/OmbrySecurity";
    static inline const std::string Address = Security + "/ombrysecurity.config";
    static inline const std::string Datacenter = Security + "/CS/datacenterid.config";
    static inline const std::string Credentials = Security + "/Components/c1/ombrycomponent.config";
    static inline const std::string Record = Security + "/Components/c1/Services/svc.config";
    static inline const std::string Caches = Security + "/CS-cpp/cache/";
    static inline const std::string Store = "Quennet/CertificateStores/OmbrySecurity";
    static inline const std::string Key = "Quennet/Keys/protection.key";

    const TemporaryDirectory folder;
    FakeKnownFolders folders{folder.Path()};
    FakeMachineId machineId{"machine"};
    FakeInspection inspection;
    FakeClock clock{Platform::Production<Platform::IClock>().Now()};
    const Platform::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Replace<Platform::IMachineId> replacedMachineId{machineId};
    const Platform::Replace<Platform::IInspection> replacedInspection{inspection};
    const Platform::Replace<Platform::IClock> replacedClock{clock};
};

}  // namespace Ombry::Tests
