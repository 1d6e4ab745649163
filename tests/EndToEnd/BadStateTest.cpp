// State folders and options of the worst kind.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/LoopbackServer.h"

#include <filesystem>

namespace Ombry::Tests {
namespace {

const std::string SaveCertificate = "Ombry::ClientCommunications::ClientConfig::saveBootstrapCertificate: ";
const std::string CertificateFolder = "./" + StoreFolder;
const std::string ConfigFile = SecurityFolder + "/ombrysecurity.config";

std::string NotOpened(const std::string& file) {
    return "Ombry::ClientCommunications::FileStorage::Save: Failed to open file './" + file + "' for write.";
}

/// The system's words.
std::string NoDirectory() {
    return ToolUnderTest::IsForWindows() ? "Directory name invalid" : "Not a directory";
}

/// One sandbox for all tests: it is only asked.
class BadStateTest : public testing::Test {
protected:
    static void SetUpTestSuite() { sandbox = std::make_unique<Sandbox>(); }
    static void TearDownTestSuite() { sandbox.reset(); }

    static Words Configure() {
        return {"configure-bootstrap-url", "-t", "t", "-dn", "Sandbox", "-r", sandbox->Url()};
    }
    static Tree Configured() {
        return ConfiguredTree(sandbox->Url(), Sandbox::DatacenterId, sandbox->Certificate());
    }
    static std::string CertificateFile() { return StoreFolder + "/" + FingerprintOf(sandbox->Certificate()); }

    /// What occupies a place is left as it is, and the tool says this.
    void ExpectRefused(const std::string& text) {
        const Tree before = machine.Files();
        ExpectException(machine.Run(Configure()), text);
        const Tree after = machine.Files();
        for (const auto& [path, content] : before)
            EXPECT_EQ(after.count(path) ? after.at(path) : "lost", content) << path;
        for (const auto& [path, content] : after)
            EXPECT_TRUE(before.count(path) || Configured()[path] == content) << path << " " << content;
    }
    void Link(const std::string& path, const std::string& target) {
        const std::filesystem::path link = machine.Folder() / path;
        std::filesystem::create_directories(link.parent_path());
        std::filesystem::create_symlink(target, link);
    }

    static inline std::unique_ptr<Sandbox> sandbox;
    const Machine machine{};
};

TEST_F(BadStateTest, FileInThePlaceOfTheStateFolderFailsTheStore) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Folder().Write("Quennet", "file");
    ExpectRefused(SaveCertificate + "CertOpenStore failed with last error = 20");
}

TEST_F(BadStateTest, FileInThePlaceOfTheStoreFailsTheStore) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Folder().Write(StoreFolder, "file");
    ExpectRefused(SaveCertificate + "CertOpenStore failed with last error = 20");
}

TEST_F(BadStateTest, LinkInThePlaceOfTheStoreIsNotFollowed) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Folder().Write("elsewhere/kept", "kept");
    Link(StoreFolder, "../../elsewhere");
    ExpectRefused(SaveCertificate + "CertOpenStore failed with last error = 20");
}

TEST_F(BadStateTest, FolderInThePlaceOfTheCertificateFailsItsAddition) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Folder().Write(CertificateFile() + "/kept", "kept");
    ExpectRefused(SaveCertificate + "CertDeleteCertificateFromStore failed with last error = 21");
}

TEST_F(BadStateTest, LinkInThePlaceOfTheCertificateIsNotFollowed) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Folder().Write("target", "kept");
    Link(CertificateFile(), "../../../target");
    ExpectRefused(SaveCertificate + "CertDeleteCertificateFromStore failed with last error = 40");
}

TEST_F(BadStateTest, FileInThePlaceOfTheSecurityFolderFailsItsCreation) {
    machine.Folder().Write(SecurityFolder, "file");
    ExpectRefused("create_directories: " + NoDirectory() + ": \"./" + SecurityFolder + "\"");
}

TEST_F(BadStateTest, FileInThePlaceOfTheDatacenterFolderFailsItsCreation) {
    machine.Folder().Write(SecurityFolder + "/CS", "file");
    ExpectRefused("create_directories: " + NoDirectory() + ": \"./" + SecurityFolder + "/CS\"");
}

TEST_F(BadStateTest, FolderInThePlaceOfAFileIsNotOpened) {
    machine.Folder().Write(ConfigFile + "/kept", "kept");
    ExpectRefused(NotOpened(ConfigFile));
    std::filesystem::remove_all(machine.Folder() / ConfigFile);
    machine.Folder().Write(DatacenterFile + "/kept", "kept");
    ExpectRefused(NotOpened(DatacenterFile));
}

TEST_F(BadStateTest, LinkInThePlaceOfAFileIsNotFollowed) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("Wine follows the links of the disk below it");
    machine.Folder().Write("target", "kept");
    Link(ConfigFile, "../../target");
    ExpectRefused(NotOpened(ConfigFile));
    std::filesystem::remove(machine.Folder() / ConfigFile);
    Link(DatacenterFile, "dangling");
    ExpectRefused(NotOpened(DatacenterFile));
}

TEST_F(BadStateTest, EmptyAndHalfWrittenFilesAreReplaced) {
    for (const std::string content : {"", "{\n    \"ssdsUri\": \"htt", "\xff\xfe"}) {
        for (const std::string& file : {ConfigFile, DatacenterFile}) {
            machine.Folder().Write(file, content);
            std::filesystem::permissions(machine.Folder() / file, std::filesystem::perms(0644));
        }
        ExpectSuccess(machine.Run(Configure()));
        Tree expected = Configured();
        for (const char* folder : {"Quennet", "Quennet/OmbrySecurity", "Quennet/OmbrySecurity/CS"})
            expected[folder] = machine.Files()[folder];  // made by this test
        EXPECT_EQ(machine.Files(), expected);
    }
}

TEST_F(BadStateTest, EntriesThatAreNoCertificateStayBesideTheNewOne) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    machine.Run(Configure());
    const std::string whole = StoredCertificate(sandbox->Certificate());
    machine.Folder().Write(StoreFolder + "/empty", "");
    machine.Folder().Write(StoreFolder + "/half", whole.substr(0, whole.size() / 2));
    machine.Folder().Write(StoreFolder + "/noise", std::string("\0\xff\x01", 3));
    machine.Folder().Write(StoreFolder + "/folder/file", "kept");
    Link(StoreFolder + "/dangling", "nowhere");
    Link(StoreFolder + "/loop", "loop");
    const Tree before = machine.Files();

    ExpectSuccess(machine.Run(Configure()));

    EXPECT_EQ(machine.Files(), before);
}

TEST_F(BadStateTest, DiskThatIsFullFailsBeforeTheEarlierTrustIsTouched) {
    if (ToolUnderTest::IsForWindows())
        return LeaveOut("Wine writes in a process of its own, which has no such limit");
    Sandbox earlier({"--datacenter", "old=Old"});
    machine.Run({"configure-bootstrap-url", "-t", "t", "-dn", "Old", "-r", earlier.Url()});
    const Tree before = machine.Files();
    for (const int limit : {500, 4096, 16383}) {
        const ProcessOutcome outcome =
            machine.RunBelow({"prlimit", "--fsize=" + std::to_string(limit)}, Configure());
        ExpectException(outcome, SaveCertificate + "CertOpenStore failed with last error = 27");
        EXPECT_EQ(machine.Files(), before);
    }
    ExpectSuccess(machine.RunBelow({"prlimit", "--fsize=16384"}, Configure()));
    EXPECT_EQ(machine.Files(), Configured());
}

TEST_F(BadStateTest, FolderThatMayNotBeWrittenIsLeftAlone) {
    if (ToolUnderTest::IsForWindows())
        return LeaveOut("Wine writes in a process of its own, which has every right");
    // Without its capabilities the owner of a read-only folder cannot write there, not even the superuser.
    Words runner;
    if (geteuid() == 0) runner = {"setpriv", "--bounding-set=-all", "--inh-caps=-all"};
    namespace fs = std::filesystem;
    const fs::path folder = machine.Folder().Path();
    const auto expectRefused = [&](const std::string& readOnly, const std::string& text) {
        const fs::path path = folder / readOnly;
        fs::permissions(path, fs::perms(0500));
        Tree before = machine.Files();
        if (runner.empty()) {
            ExpectException(machine.Run(Configure()), text);
        } else {
            ExpectException(machine.RunBelow(runner, Configure()), text);
        }
        EXPECT_EQ(machine.Files(), before) << readOnly;
        fs::permissions(path, fs::perms(0700));
    };
    expectRefused("", SaveCertificate + "CertOpenStore failed with last error = 13");
    machine.Run(Configure());
    expectRefused(StoreFolder, SaveCertificate + "CertOpenStore failed with last error = 13");
    expectRefused(SecurityFolder, NotOpened(ConfigFile));
    expectRefused(SecurityFolder + "/CS", NotOpened(DatacenterFile));
}

TEST_F(BadStateTest, HomeOfAnotherCurrentDirectoryIsNotTouched) {
    const Machine other;
    ExpectSuccess(machine.Run(Configure()));
    EXPECT_EQ(TreeOf(other.Folder().Path()), Tree());
}

// Options of the worst kind.

TEST_F(BadStateTest, NameOfADatacenterIsRepeatedAsItWasGiven) {
    Words names{"\x1b[2J\a\r\n'\"\\", "M\xC3\xBCnchen \xE2\x82\xAC \xF0\x9F\x98\x80"};
    // Elsewhere a command line is text and has at most 32,767 letters.
    if (!ToolUnderTest::IsForWindows())
        names.insert(names.end(), {"\xff\xfe\xc0\x80", std::string(128 * 1024 - 1, 'n')});
    for (const std::string& name : names) {
        ExpectException(machine.Run({"configure-bootstrap-url", "-t", "t", "-d", name, "-dn", name, "-r",
                                     sandbox->Url()}),
                        "Unknown datacenter id '" + name + "' or name '" + name + "'");
    }
    EXPECT_EQ(machine.Files(), Tree());
}

TEST(BadOptionsTest, CredentialsReachTheWireWhateverTheyHold) {
    LoopbackServer server(LoopbackServer::AnsweringWith([](const std::string& request) {
        return LoopbackServer::Response(request.starts_with("POST") ? R"({"access_token":"t"})" : "[]");
    }));
    const bool anyBytes = !ToolUnderTest::IsForWindows();  // there a command line is text of no such length
    const std::string user = anyBytes ? "u\xff\x01" : "\xC3\xBC\x01";
    const std::string longest(anyBytes ? 100000 : 30000, 'p');
    for (const std::string& password : {std::string(anyBytes ? "\xc3(\n\x7f" : "\"(\n\x7f\\"), longest}) {
        ExpectSuccess(Machine().Run({"get-datacenters", "-u", user, "-p", password, "-r", server.Url()}));
        const std::string request = server.Requests().at(server.Requests().size() - 2);
        EXPECT_TRUE(request.find("\r\nAuthorization: Basic " + Base64Of(user + ":" + password) + "\r\n") !=
                    std::string::npos);
    }
}

}  // namespace
}  // namespace Ombry::Tests
