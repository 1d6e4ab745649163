// Whole commands on a configured machine one of whose files is damaged: each ends in a text that names what
// is wrong, or goes on where that is stated, and the file stays as it was.

#include "Platform/IMachineProtection.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

const Texts UnenrollSvc{"unenroll-service", "-t", "t", "-on", "c1", "-s", "Svc"};
const std::string Cache = Security + "/CS-cpp/cache/v1-service.cache-p";
const std::string Address = Security + "/ombrysecurity.config";
const std::string Datacenter = Security + "/CS/datacenterid.config";
const std::string Credentials = Security + "/Components/c1/ombrycomponent.config";
const std::string Record = Security + "/Components/c1/Services/Svc.config";

const std::string Empty =
    "ERROR: Parse failed at offset 0 due to error 'The document is empty.' (near '') serialization_=''";
const std::string NoObject = "ERROR: Expected type 'object' when processing '.' serialization_='[]'";

std::string HalfWritten(std::size_t offset, const std::string& error, const std::string& content) {
    return "ERROR: Parse failed at offset " + std::to_string(offset) + " due to error '" + error +
           "' (near '" + content + "') serialization_='" + content + "'";
}

class DamagedStateTest : public testing::Test, protected ConfiguredMachine {
protected:
    /// The command must end with this text, without a request and without a change of a file.
    void ExpectFailure(const Texts& words, const std::string& text) {
        const auto before = files.Contents();
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.error, "Caught exception: " + text + "\n");
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.exitCode, -1);
        EXPECT_EQ(files.Contents(), before);
        EXPECT_EQ(web.Summaries(), Texts());
    }
    void ExpectFailureWith(const std::string& path, const std::string& content, const Texts& words,
                           const std::string& text) {
        SCOPED_TRACE(path + ": " + content);
        files.Put(path, content);
        ExpectFailure(words, text);
    }
    /// In place of the file there is nothing, or a folder, or a link.
    void ExpectMissed(const std::string& path, const Texts& words) {
        const std::string text =
            "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + path + "' for read.";
        static_cast<void>(files.Remove(path));
        ExpectFailure(words, text);
        files.PutLink(path);
        ExpectFailure(words, text);
        static_cast<void>(files.Remove(path));
        files.PutFolder(path);
        ExpectFailure(words, text);
    }
};

TEST_F(DamagedStateTest, AddressThatIsDamaged) {
    ExpectFailureWith(Address, "", EnrollNew, Empty);
    const std::string half = "{\"ssdsUri\": \"http";
    ExpectFailureWith(Address, half, EnrollNew,
                      HalfWritten(17, "Missing a closing quotation mark in string.", half));
    ExpectFailureWith(Address, "[]", EnrollNew, NoObject);
}

TEST_F(DamagedStateTest, AddressThatIsMissing) {
    ExpectMissed(Address, EnrollNew);
}

TEST_F(DamagedStateTest, DatacenterThatIsMissing) {
    ExpectMissed(Datacenter, EnrollNew);
}

TEST_F(DamagedStateTest, CredentialsThatAreDamaged) {
    const std::string whole = *files.Content(Credentials);
    // The number is the system's own.
    const int notOurs =
        Platform::MachineProtection().Unprotect("{}", {}, Platform::IMachineProtection::LocalMachine).Error();
    const std::string foreign = "CryptUnprotectData failed with error " + std::to_string(notOurs);
    ExpectFailureWith(Credentials, "", EnrollNewAsClient, "The credentials file of 'c1' is empty.");
    ExpectFailureWith(Credentials, whole.substr(0, whole.size() / 2), EnrollNewAsClient, foreign);
    ExpectFailureWith(Credentials, "{}", EnrollNewAsClient, foreign);
}

TEST_F(DamagedStateTest, CredentialsThatAreMissing) {
    ExpectMissed(Credentials, EnrollNewAsClient);
}

TEST_F(DamagedStateTest, HalfWrittenListOfTheDiscoveryFailsEachCommandUntilItIsDeleted) {
    const std::string half = "{\"expiryTime\": 17";
    files.Put(Cache, half);
    for (int run = 0; run < 2; ++run)
        ExpectFailure(EnrollNew, HalfWritten(17, "Missing a comma or '}' after an object member.", half));
    static_cast<void>(files.Remove(Cache));
    EXPECT_EQ(Tool(EnrollNew).error, "");
}

TEST_F(DamagedStateTest, RecordOfAServiceThatIsDamaged) {
    ExpectFailureWith(Record, "", UnenrollSvc, Empty);
    const std::string half = "{\"Version\": \"1.0\", \"Gu";
    ExpectFailureWith(Record, half, UnenrollSvc,
                      HalfWritten(22, "Missing a closing quotation mark in string.", half));
    ExpectFailureWith(Record, "[]", UnenrollSvc, NoObject);
}

}  // namespace
}  // namespace Ombry::Tests
