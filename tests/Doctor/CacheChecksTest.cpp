#include "ClientCommunications/Impl/EndpointPaths.h"
#include "Doctor/CacheChecks.h"
#include "Doctor/StateChecks.h"
#include "Doctor/Texts.h"
#include "tests/Doctor/DoctorFixture.h"
#include "tests/Fakes/FailingThreads.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;
using testing::Not;

class CacheChecksTest : public DoctorFixture {
protected:
    std::string Found(long long freshSeconds, const std::string& more = "") {
        const long long now = Platform::WallSeconds();
        return "{\"expiryTime\": " + std::to_string(now + freshSeconds) + more +
               ", \"local\": [{\"serviceName\": \"v1-x\", \"endpointUrl\": \"https://a\"}], \"remote\": "
               "[{\"endpointUrl\": \"https://b\", \"endpointCert\": \"cert\"}, {\"endpointUrl\": "
               "\"https://a\"}]}";
    }
};

const std::string Aa = ClientCommunications::EndpointPaths::OpenDiscoveryOfAuthorization;

TEST_F(CacheChecksTest, NoCachesAreFine) {
    for (auto* check : {CheckDiscoveryCaches, CheckSearchCaches, CheckTokens})
        EXPECT_EQ(RunForOne(check).severity, Severity::Success);
}

TEST_F(CacheChecksTest, DiscoveryListTellsItsServersAndItsAge) {
    folder.Write(Caches + "a/b/v1-service.cache-p", Found(7200));
    clock.Advance(std::chrono::minutes(10) + std::chrono::seconds(1));
    const Finding finding = RunForOne(CheckDiscoveryCaches);
    EXPECT_EQ(finding.severity, Severity::Success);
    EXPECT_EQ(Text(finding, "owner"), "a/b");
    EXPECT_EQ(Text(finding, "local"), "1");
    EXPECT_EQ(Text(finding, "remote"), "2");
    EXPECT_THAT(finding.message, HasSubstr("10 min old, fresh for 109 min"));
}

TEST_F(CacheChecksTest, SearchTellsUntilWhenItServes) {
    PutEntry("c1/finder_cache", Aa, Found(100, ", \"maxStaleTime\": 1000"));
    Finding finding = RunForOne(CheckSearchCaches);
    EXPECT_EQ(Text(finding, "owner"), "c1");
    EXPECT_EQ(Text(finding, "service"), "the authorization service");
    EXPECT_THAT(finding.message, HasSubstr("fresh for 99 s, may serve for 18 min"));
    clock.Advance(std::chrono::seconds(500));
    EXPECT_THAT(RunForOne(CheckSearchCaches).message, HasSubstr("fresh no more, may serve for"));
    clock.Advance(std::chrono::seconds(1000));
    finding = RunForOne(CheckSearchCaches);
    EXPECT_THAT(finding.message, HasSubstr("fresh no more, may serve no more"));
    EXPECT_EQ(finding.severity, Severity::Success) << "the tool asks again";
}

TEST_F(CacheChecksTest, TokenTellsItsServiceAndNothingOfItself) {
    PutEntry("aa_token", "v1-auth", TokenFor("v1-auth", clock.Now()));
    Finding finding = RunForOne(CheckTokens);
    EXPECT_EQ(finding.severity, Severity::Success);
    EXPECT_EQ(Text(finding, "service"), "v1-auth");
    EXPECT_EQ(Text(finding, "owner"), "");
    EXPECT_THAT(finding.message, HasSubstr("good for 60 min"));
    clock.Advance(std::chrono::hours(2));
    EXPECT_THAT(RunForOne(CheckTokens).message, HasSubstr("good no more"));
    for (const auto& [key, value] : finding.pairs)
        EXPECT_THAT(Text(finding, key), Not(HasSubstr(Secret)));
    EXPECT_THAT(finding.message, Not(HasSubstr(Secret)));
}

TEST_F(CacheChecksTest, ServiceThatTheFileIsNotNamedAfterMayBeAPartOfTheTokenAndIsNotTold) {
    PutEntry("aa_token", "v1-auth", TokenFor(Secret, clock.Now()));
    const Finding finding = RunForOne(CheckTokens);
    EXPECT_EQ(Text(finding, "service"), "a service that it does not name");
    EXPECT_THAT(finding.message, Not(HasSubstr(Secret)));
}

TEST_F(CacheChecksTest, TokenFromTheFutureIsAWarning) {
    const std::string path =
        PutEntry("aa_token", "v1-auth", TokenFor("v1-auth", clock.Now() + std::chrono::hours(1)));
    const Finding finding = RunForOne(CheckTokens);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(finding.remedy, "rm -rf -- " + Quoted(folder / path));
    // Two clocks are never quite the same.
    PutEntry("aa_token", "v1-auth", TokenFor("v1-auth", clock.Now() + Doctor::ClockTolerance));
    EXPECT_EQ(RunForOne(CheckTokens).severity, Severity::Success);
}

TEST_F(CacheChecksTest, DamagedEntriesAreErrorsAndGo) {
    const std::string list = Caches + "c1/v1-service.cache-p";
    folder.Write(list, "{\"expiryTime\": 17");
    const std::string search = PutEntry("finder_cache", Aa, std::string(10, '\0'));
    const std::string token =
        PutEntry("c1/aa_token", "v1-auth", TokenFor("v1-auth", clock.Now()).substr(0, 150));
    const std::vector<std::pair<Findings (*)(const Doctor::Machine&), std::string>> checks{
        {CheckDiscoveryCaches, list}, {CheckSearchCaches, search}, {CheckTokens, token}};
    for (const auto& [check, path] : checks) {
        const Finding finding = RunForOne(check);
        EXPECT_EQ(finding.severity, Severity::Error);
        EXPECT_EQ(finding.remedy, "rm -rf -- " + Quoted(folder / path));
        EXPECT_THAT(finding.message, Not(HasSubstr(Secret)));
    }
}

TEST_F(CacheChecksTest, CopyOfASaveThatWasCutOffCountsIfThereIsNoOther) {
    folder.Write(Caches + "v1-service.cache-s", Found(100));
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).severity, Severity::Success);
    const std::string search = PutEntry("finder_cache", Aa, "damaged");
    const std::string staged = search.substr(0, search.size() - 1) + "s";
    std::filesystem::rename(folder / search, folder / staged);
    EXPECT_EQ(RunForOne(CheckSearchCaches).remedy, "rm -rf -- " + Quoted(folder / staged));
    PutEntry("finder_cache", Aa, Found(100));
    EXPECT_EQ(RunForOne(CheckSearchCaches).severity, Severity::Success);
    EXPECT_TRUE(std::filesystem::exists(folder / staged)) << "nothing is repaired here";
}

TEST_F(CacheChecksTest, ManyEntriesAreToldByNameWhetherOrNotASecondThreadStarts) {
    constexpr int count = 100, damaged = 70;
    const auto nameOf = [](int number) { return std::string(40, 'x') + std::to_string(100 + number) + "="; };
    for (int number = 0; number < count; ++number) {
        folder.Write(Caches + "finder_cache/" + nameOf(number) + "-p",
                     number == damaged ? "damaged" : Found(number));
    }
    // One beside the look at the files, and one beside the judging.
    for (const std::size_t failing : {0u, 1u, 2u}) {
        FailingThreads threads(failing);
        const Findings findings = Run(CheckSearchCaches);
        EXPECT_EQ(threads.Count(), 2u);
        ASSERT_EQ(findings.size(), static_cast<std::size_t>(count));
        for (int number = 0; number < count; ++number) {
            const Finding& finding = findings[static_cast<std::size_t>(number)];
            EXPECT_THAT(Text(finding, "path"), testing::EndsWith("/" + nameOf(number)));
            EXPECT_EQ(finding.severity, number == damaged ? Severity::Error : Severity::Success) << number;
        }
    }
}

TEST_F(CacheChecksTest, FewEntriesStartNoThread) {
    PutEntry("finder_cache", Aa, Found(100));
    const FailingThreads threads(0);
    RunForOne(CheckSearchCaches);
    EXPECT_EQ(threads.Count(), 0u);
}

TEST_F(CacheChecksTest, EmptyEntryCountsAsNone) {
    PutEntry("finder_cache", Aa, "");
    folder.Write(Caches + "v1-service.cache-p", "");
    EXPECT_EQ(RunForOne(CheckSearchCaches).severity, Severity::Success);
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).severity, Severity::Success);
}

TEST_F(CacheChecksTest, FolderInThePlaceOfAnEntryIsAskedAroundUnlessASaveBeginsThere) {
    const std::string list = folder / (Caches + "v1-service.cache");
    std::filesystem::create_directories(list + "-p");
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).severity, Severity::Warning);
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).remedy, "rm -rf -- " + list + "-p");
    std::filesystem::create_directories(list + "-s");
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).severity, Severity::Error);
    EXPECT_EQ(RunForOne(CheckDiscoveryCaches).remedy, "rm -rf -- " + list + "-p " + list + "-s");
}

TEST_F(CacheChecksTest, FileThatHasNotTheNameOfASearchIsNoneAndOneAmongTokensIsReadByWhoeverClearsThem) {
    folder.Write(Caches + "finder_cache/notes-p", "damaged");
    folder.Write(Caches + "aa_token/notes-p", "damaged");
    EXPECT_EQ(RunForOne(CheckSearchCaches).severity, Severity::Success);
    EXPECT_EQ(RunForOne(CheckTokens).severity, Severity::Error);
}

TEST_F(CacheChecksTest, WhatIsNoFileInThePlaceOfAnEntryIsNotOpened) {
    const auto make = [](const std::string& path, bool isDevice) {
        const dev_t zeros = makedev(1, 5);
        return isDevice ? mknod(path.c_str(), S_IFCHR | 0600, zeros) : mkfifo(path.c_str(), 0600);
    };
    std::filesystem::create_directories(folder / (Caches + "aa_token"));
    std::filesystem::create_directories(folder / (Caches + "finder_cache"));
    const std::string name = ClientCommunications::DirectoryKeyValueStorage::EntryNameOf("v1-x");
    const std::vector<std::pair<Findings (*)(const Doctor::Machine&), std::string>> checks{
        {CheckDiscoveryCaches, Caches + "v1-service.cache"},
        {CheckSearchCaches, Caches + "finder_cache/" + name},
        {CheckTokens, Caches + "aa_token/" + name}};
    for (const bool isDevice : {false, true}) {
        for (const auto& [check, path] : checks) {
            for (const std::string end : {"-p", "-s"}) {
                inspection.watched = folder / (path + end);
                const bool isMade = make(inspection.watched, isDevice) == 0;
                ASSERT_TRUE(isMade || isDevice);
                if (!isMade) continue;  // a device is made by root alone, and not everywhere
                const Finding finding = RunForOne(check);
                EXPECT_EQ(finding.severity, end == "-s" ? Severity::Error : Severity::Warning);
                EXPECT_EQ(finding.remedy, "rm -rf -- " + Quoted(inspection.watched));
                EXPECT_EQ(inspection.reads, 0) << inspection.watched;
                std::filesystem::remove(inspection.watched);
            }
        }
    }
}

TEST_F(CacheChecksTest, FileThatIsTooLongForAnEntryIsNotRead) {
    const std::string list = Caches + "v1-service.cache-p";
    const std::string search = PutEntry("finder_cache", Aa, "");
    const std::string token = PutEntry("c1/aa_token", "v1-auth", "");
    const std::vector<std::pair<Findings (*)(const Doctor::Machine&), std::string>> checks{
        {CheckDiscoveryCaches, list}, {CheckSearchCaches, search}, {CheckTokens, token}};
    for (const auto& [check, path] : checks) {
        inspection.watched = folder.Write(path, "");
        std::filesystem::resize_file(folder / path, LongestFile + 1);
        const Finding finding = RunForOne(check);
        EXPECT_EQ(finding.severity, Severity::Warning);
        EXPECT_THAT(finding.message, HasSubstr("longer than 64 MiB"));
        EXPECT_EQ(finding.remedy, "rm -rf -- " + Quoted(folder / path));
        EXPECT_EQ(inspection.reads, 0);
    }
    std::filesystem::resize_file(folder / Credentials, LongestFile + 1);
    const Doctor::ReadOnlyPlatform nothingChanges;
    EXPECT_FALSE(Platform::Files().Read(folder / Credentials));
    EXPECT_THAT(Doctor::Machine().WhyUnreadable(folder / Credentials).failure,
                HasSubstr("longer than 64 MiB"));
}

TEST_F(CacheChecksTest, OfACacheNoMoreIsReadThanALimit) {
    for (const std::string key : {"1", "2", "3", "4", "5", "6"}) {
        const std::string path = PutEntry(key < "6" ? "finder_cache" : "c1/finder_cache", key, "");
        std::filesystem::resize_file(folder / path, LongestFile);
    }
    const Findings findings = Run(CheckSearchCaches);
    ASSERT_EQ(findings.size(), 5u) << "four that are read, and one that says of the others";
    const Finding& rest = findings.back();
    EXPECT_EQ(rest.severity, Severity::Warning);
    EXPECT_EQ(Text(rest, "left_out"), "2");
    EXPECT_EQ(rest.remedy, "rm -rf -- " + (folder / (Caches + "c1/finder_cache")) + " " +
                               (folder / (Caches + "finder_cache")));
}

TEST_F(CacheChecksTest, DiscoveryServersAreGatheredFromAllListsThatCanBeRead) {
    folder.Write(Caches + "v1-service.cache-p", Found(1));
    folder.Write(Caches + "c1/v1-service.cache-p", Found(2));
    folder.Write(Caches + "c2/v1-service.cache-p", "damaged");
    const Doctor::ReadOnlyPlatform nothingChanges;
    const auto servers = DiscoveryServersOf(Doctor::Machine());
    ASSERT_EQ(servers.size(), 2u);
    EXPECT_EQ(servers[0].url, "https://a");
    EXPECT_EQ(servers[1].url, "https://b");
    EXPECT_EQ(servers[1].certificate, "cert");
}

}  // namespace
}  // namespace Ombry::Tests
