#include "ClientCommunications/CommunicationsParameters.h"
#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/MemoryFiles.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;

class CommunicationsParametersTest : public testing::Test {
protected:
    FakeKnownFolders folders{"/dev/null/base"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
};

TEST_F(CommunicationsParametersTest, DefaultsLieUnderTheProgramDataFolder) {
    const CommunicationsParameters parameters("client");

    EXPECT_EQ(parameters.clientName, "client");
    EXPECT_EQ(parameters.userName + parameters.password + parameters.fixedToken, "");
    EXPECT_EQ(parameters.securityDirectory, "/dev/null/base/Quennet/OmbrySecurity");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");
    EXPECT_FALSE(parameters.useCurrentUserStore);
    EXPECT_EQ(parameters.storeName, L"OmbrySecurity");
    EXPECT_EQ(parameters.logger, nullptr);
    EXPECT_EQ(parameters.commonConfigPath, "/dev/null/base/Quennet/common.config");
    EXPECT_FALSE(parameters.verbose);
}

TEST_F(CommunicationsParametersTest, WithoutAClientNameTheCacheDirectoryEndsInASlash) {
    EXPECT_EQ(CommunicationsParameters("").cacheDirectory,
              "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/");
}

TEST_F(CommunicationsParametersTest, PlainSettersStoreAndMoveNothing) {
    CommunicationsParameters parameters("client");
    parameters.SetUserName("user");
    parameters.SetPassword("password");
    parameters.SetFixedToken("token");

    EXPECT_EQ(parameters.userName, "user");
    EXPECT_EQ(parameters.password, "password");
    EXPECT_EQ(parameters.fixedToken, "token");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");
}

TEST_F(CommunicationsParametersTest, SetClientNameMovesTheDefaultCacheDirectory) {
    CommunicationsParameters parameters("");
    parameters.SetClientName("client");
    EXPECT_EQ(parameters.clientName, "client");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");
    parameters.SetClientName("other");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/other");
}

TEST_F(CommunicationsParametersTest, AUserNameSetFirstLeavesACacheDirectoryWithNothingBehindItOnPurpose) {
    CommunicationsParameters parameters("");
    parameters.SetUserName("user");
    parameters.SetClientName("client");
    EXPECT_EQ(parameters.clientName, "client");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/");
}

TEST_F(CommunicationsParametersTest, AUserNameSetLastLeavesTheClientsCacheDirectory) {
    CommunicationsParameters parameters("");
    parameters.SetClientName("client");
    parameters.SetUserName("user");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");
}

TEST_F(CommunicationsParametersTest, ACacheDirectorySetByHandStaysWhereItIs) {
    CommunicationsParameters parameters("client");
    for (const std::string byHand : {"/by/hand", ""}) {
        parameters.cacheDirectory = byHand;
        parameters.SetClientName("other");
        EXPECT_EQ(parameters.cacheDirectory, byHand);
        EXPECT_EQ(parameters.clientName, "other");
        parameters.SetSecurityDirectory("/secure");
        EXPECT_EQ(parameters.cacheDirectory, byHand);
        EXPECT_EQ(parameters.securityDirectory, "/secure");
    }
}

TEST_F(CommunicationsParametersTest, SetSecurityDirectoryMovesTheDefaultCacheDirectoryAlone) {
    CommunicationsParameters parameters("client");
    parameters.SetSecurityDirectory("/secure");
    EXPECT_EQ(parameters.securityDirectory, "/secure");
    EXPECT_EQ(parameters.cacheDirectory, "/secure/CS-cpp/cache/client");
    EXPECT_EQ(parameters.commonConfigPath, "/dev/null/base/Quennet/common.config");

    parameters.SetClientName("other");
    EXPECT_EQ(parameters.cacheDirectory, "/secure/CS-cpp/cache/other");
}

TEST_F(CommunicationsParametersTest, AUserNameThatIsTheDefaultsOwnMovesWithTheSecurityDirectory) {
    CommunicationsParameters parameters("user");
    parameters.SetUserName("user");
    parameters.SetSecurityDirectory("/secure");
    EXPECT_EQ(parameters.cacheDirectory, "/secure/CS-cpp/cache/user");
}

TEST_F(CommunicationsParametersTest, OfAUserAndAClientTheUserNamesTheDefaultCacheDirectory) {
    CommunicationsParameters parameters("client");
    parameters.SetUserName("user");
    parameters.SetSecurityDirectory("/secure");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");

    parameters.cacheDirectory = "/secure/CS-cpp/cache/user";
    parameters.SetSecurityDirectory("/other");
    EXPECT_EQ(parameters.cacheDirectory, "/other/CS-cpp/cache/user");
}

TEST_F(CommunicationsParametersTest, ACopyIsItsOwn) {
    CommunicationsParameters parameters("client");
    CommunicationsParameters copy = parameters;
    copy.SetClientName("other");
    EXPECT_EQ(parameters.clientName, "client");
    EXPECT_EQ(parameters.cacheDirectory, "/dev/null/base/Quennet/OmbrySecurity/CS-cpp/cache/client");
}

TEST_F(CommunicationsParametersTest, EveryCopyWipesPasswordAndToken) {
    const std::string secret = "a secret too long for a string object";
    for (const auto member : {&CommunicationsParameters::password, &CommunicationsParameters::fixedToken}) {
        const FreedMemory freed(secret);
        {
            CommunicationsParameters parameters("");
            parameters.*member = secret;
            const CommunicationsParameters copy = parameters;
            EXPECT_EQ(copy.*member, secret);
        }
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    }
}

TEST_F(CommunicationsParametersTest, ASecondPasswordOrTokenWipesTheFirst) {
    const std::string secret = "a secret too long for a string object";
    const std::string longer = secret.substr(0, 10) + std::string(1000, 'l');
    for (const auto& [member, set] :
         {std::pair(&CommunicationsParameters::password, &CommunicationsParameters::SetPassword),
          std::pair(&CommunicationsParameters::fixedToken, &CommunicationsParameters::SetFixedToken)}) {
        CommunicationsParameters parameters("");
        (parameters.*set)(secret);
        EXPECT_EQ(parameters.*member, secret);
        const FreedMemory freed(secret);
        (parameters.*set)(longer);
        EXPECT_EQ(parameters.*member, longer);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
        (parameters.*set)(parameters.*member);
        EXPECT_EQ(parameters.*member, longer) << "set to itself";
    }
}

TEST_F(CommunicationsParametersTest, WithoutAProgramDataFolderConstructionFailsWithTheNumber) {
    // The system's result has a sign, and so has its text.
    for (const auto& [error, text] :
         {std::pair(42, "42"), std::pair(static_cast<int>(0x80070003), "-2147024893")}) {
        folders.programDataError = error;
        try {
            CommunicationsParameters("client");
            FAIL() << "nothing thrown";
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(failure.what(),
                      std::string("Ombry::ClientCommunications: SHGetFolderPath failed with error ") + text);
        }
    }
}

/// Converts nothing: gives a count of the test's choice from the n-th call on.
class FailingConversion : public Platform::ITextConversion {
public:
    Count WideToUtf8(std::wstring_view wide, char* text, std::size_t room) override {
        ++calls;
        if (calls < failingFrom) {
            return Platform::Production<Platform::ITextConversion>().WideToUtf8(wide, text, room);
        }
        return {count, error};
    }
    Count Utf8ToWide(std::string_view, wchar_t*, std::size_t) override { return {0, 0}; }

    int calls = 0;
    int failingFrom = 1;
    int count = 0;
    int error = 0;
};

TEST_F(CommunicationsParametersTest, AFolderThatCannotBeConvertedFailsWithTheNumberForACountOfZeroOrLess) {
    // The system counts its last error without a sign.
    for (const auto& [from, count, error] : std::vector<std::tuple<int, int, std::uint32_t>>{
             {1, 0, 122}, {1, -1, 1113}, {2, 0, 87}, {1, 0, 2147942487}}) {
        FailingConversion conversion;
        conversion.failingFrom = from;
        conversion.count = count;
        conversion.error = static_cast<int>(error);
        const Platform::Testing::Replace<Platform::ITextConversion> replaced(conversion);
        try {
            GetProgramDataQuennetPath();
            FAIL() << "nothing thrown";
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(failure.what(), "GetProgramDataQuennetPath: conversion to UTF-8 failed with error " +
                                          std::to_string(error));
        }
        EXPECT_EQ(conversion.calls, from);
    }
}

TEST_F(CommunicationsParametersTest, APathOutsideAsciiIsUtf8) {
    FakeKnownFolders umlauts("/dev/null/b\xc3\xa4se\xe2\x82\xac\xf0\x9f\x99\x82");
    const Platform::Testing::Replace<Platform::IKnownFolders> replaced(umlauts);
    EXPECT_EQ(GetProgramDataQuennetPath(), "/dev/null/b\xc3\xa4se\xe2\x82\xac\xf0\x9f\x99\x82/Quennet");
}

// --- the datacenter id ---

class GetDatacenterIdTest : public CommunicationsParametersTest {
protected:
    std::string Id() { return GetDatacenterId(parameters); }
    void PutCommon(const std::string& text) { files.Put("/dev/null/base/Quennet/common.config", text); }
    void PutOwn(const std::string& text) {
        files.Put("/dev/null/base/Quennet/OmbrySecurity/CS/datacenterid.config", text);
    }

    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    CommunicationsParameters parameters{""};
};

TEST_F(GetDatacenterIdTest, TheElementOfTheCommonFileWinsAndTheOtherFileIsNotTouched) {
    PutCommon("<DatacenterId>x</DatacenterId>");
    PutOwn("own");
    EXPECT_EQ(Id(), "x");
    EXPECT_THAT(files.Texts(), ElementsAre("Read /dev/null/base/Quennet/common.config"));
}

TEST_F(GetDatacenterIdTest, WithoutAnIdInTheCommonFileTheOtherFileIsReadWhole) {
    PutOwn("own id\n");
    for (const std::string common :
         {"", "<DatacenterId></DatacenterId>", "<DatacenterId>x", "<DatacenterId>", "no element",
          "<datacenterid>x</", "<DatacenterId >x</", "DatacenterId>x<", "<DatacenterId><x",
          "<DatacenterId></a><DatacenterId>second</b>"}) {
        PutCommon(common);
        EXPECT_EQ(Id(), "own id\n") << common;
    }
}

TEST_F(GetDatacenterIdTest, AMissingCommonFileIsNoFailure) {
    PutOwn("own");
    EXPECT_EQ(Id(), "own");
    EXPECT_THAT(files.Texts(),
                ElementsAre("Read /dev/null/base/Quennet/common.config",
                            "Read /dev/null/base/Quennet/OmbrySecurity/CS/datacenterid.config"));
}

TEST_F(GetDatacenterIdTest, TheTextUpToTheNextBracketIsTakenAsItStands) {
    PutCommon("<a>1</a>\r\n<DatacenterId> x \n&amp; y</c><DatacenterId>second</DatacenterId>");
    EXPECT_EQ(Id(), " x \n&amp; y");
}

TEST_F(GetDatacenterIdTest, SpacesAloneAreAnId) {
    PutCommon("<DatacenterId> </DatacenterId>");
    PutOwn("own");
    EXPECT_EQ(Id(), " ");
}

TEST_F(GetDatacenterIdTest, ItIsAPlainSearchAndNoParser) {
    PutCommon("<!-- <DatacenterId>commented<!-- -->");
    EXPECT_EQ(Id(), "commented");
}

TEST_F(GetDatacenterIdTest, AnEmptyOwnFileIsAnEmptyId) {
    PutOwn("");
    EXPECT_EQ(Id(), "");
}

TEST_F(GetDatacenterIdTest, WithNeitherFileTheFailureNamesTheOwnOne) {
    try {
        Id();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(),
                     "Ombry::ClientCommunications::FileStorage::Load: Failed to open file "
                     "'/dev/null/base/Quennet/OmbrySecurity/CS/datacenterid.config' for read.");
    }
}

TEST_F(GetDatacenterIdTest, ReadsThePathsOfItsParameters) {
    parameters.commonConfigPath = "/other/common";
    parameters.securityDirectory = "/other/secure";
    files.Put("/other/secure/CS/datacenterid.config", "there");
    EXPECT_EQ(Id(), "there");
}

}  // namespace
}  // namespace Ombry::Tests
