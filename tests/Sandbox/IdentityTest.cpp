#include "Sandbox/Identity.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <set>
#include <stdexcept>
#include <thread>

namespace Ombry::Tests {
namespace {

using Sandbox::Identity;

const std::string File = "identity.pem";

std::string PemOf(const std::function<void(BIO*)>& write) {
    const std::shared_ptr<BIO> memory(BIO_new(BIO_s_mem()), BIO_free);
    write(memory.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}
std::string PemOf(const TestKey& key, const char* passphrase = nullptr) {
    return PemOf([&](BIO* memory) {
        PEM_write_bio_PrivateKey(memory, key.get(), passphrase ? EVP_aes_128_cbc() : nullptr, nullptr, 0,
                                 nullptr, const_cast<char*>(passphrase));
    });
}
std::string PemOf(const TestKey& key, const TestKey& certified) {
    CertificateRecipe recipe;
    recipe.key = certified;
    const TestCertificate certificate = MakeCertificate(recipe);
    return PemOf(key) + PemOf([&](BIO* memory) { PEM_write_bio_X509(memory, certificate.get()); });
}

std::string IdentityFailureIn(const std::string& folder) {
    try {
        Identity identity{folder};
        return {};
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

TEST(SandboxIdentityTest, IsMadeOnceAndKept) {
    const TemporaryDirectory folder;
    const Identity made(folder.Path());
    const std::string text = folder.Read(File);
    const Identity kept(folder.Path());
    EXPECT_EQ(kept.Fingerprint(), made.Fingerprint());
    EXPECT_EQ(EVP_PKEY_eq(kept.Key(), made.Key()), 1);
    EXPECT_EQ(folder.Read(File), text);
}

TEST(SandboxIdentityTest, FileIsPrivateAndAloneInItsFolder) {
    const TemporaryDirectory folder;
    const Identity made(folder.Path());
    struct stat status {};
    ASSERT_EQ(stat((folder / File).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        ++files;
    EXPECT_EQ(files, 1u);
}

TEST(SandboxIdentityTest, FoldersDoNotShareTheirs) {
    const TemporaryDirectory one, other;
    EXPECT_NE(Identity(one.Path()).Fingerprint(), Identity(other.Path()).Fingerprint());
}

TEST(SandboxIdentityTest, InstancesThatStartAtOnceShareOne) {
    for (int round = 0; round < 5; ++round) {
        const TemporaryDirectory folder;
        std::vector<std::string> fingerprints(6);
        std::vector<std::thread> starts;
        for (std::string& fingerprint : fingerprints)
            starts.emplace_back([&] { fingerprint = Identity(folder.Path()).Fingerprint(); });
        for (std::thread& start : starts)
            start.join();
        EXPECT_EQ(std::set<std::string>(fingerprints.begin(), fingerprints.end()).size(), 1u);
        EXPECT_EQ(Identity(folder.Path()).Fingerprint(), fingerprints[0]);
    }
}

TEST(SandboxIdentityTest, CertificateIsThatOfAServerOnThisMachine) {
    const TemporaryDirectory folder;
    FakeRandom random;
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    const Identity identity(folder.Path());
    X509* const x = identity.Certificate();
    EXPECT_EQ(X509_get_version(x), X509_VERSION_3);
    EXPECT_EQ(X509_verify(x, identity.Key()), 1);
    EXPECT_EQ(X509_check_private_key(x, identity.Key()), 1);
    EXPECT_EQ(X509_check_host(x, "localhost", 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_host(x, "elsewhere", 0, 0, nullptr), 0);
    EXPECT_EQ(X509_check_ip_asc(x, "127.0.0.1", 0), 1);
    EXPECT_EQ(X509_check_ip_asc(x, "::1", 0), 1);
    EXPECT_EQ(X509_check_ca(x), 0);
    std::uint64_t serial = 0;
    EXPECT_EQ(ASN1_INTEGER_get_uint64(&serial, X509_get0_serialNumber(x)), 1);
    EXPECT_EQ(serial, 0x0001020304050607u >> 1);
    int days = 0, seconds = 0;
    EXPECT_EQ(ASN1_TIME_diff(&days, &seconds, X509_get0_notBefore(x), X509_get0_notAfter(x)), 1);
    EXPECT_EQ(days * 86400L + seconds, 315360000L + 3600);
    EXPECT_LT(X509_cmp_current_time(X509_get0_notBefore(x)), 0);
}

TEST(SandboxIdentityTest, FingerprintAndTextAreThoseOfTheCertificate) {
    const TemporaryDirectory folder;
    const Identity identity(folder.Path());
    const TestCertificate copy(X509_dup(identity.Certificate()), X509_free);
    const std::string der = DerOf(copy);
    EXPECT_EQ(identity.CertificateBase64(), Base64Of(der));
    unsigned char digest[32];
    SHA256(reinterpret_cast<const unsigned char*>(der.data()), der.size(), digest);
    std::string expected;
    for (const unsigned char byte : digest) {
        char pair[4];
        std::snprintf(pair, sizeof pair, ":%02X", byte);
        expected += pair;
    }
    EXPECT_EQ(":" + identity.Fingerprint(), expected);
}

TEST(SandboxIdentityTest, FileThatHoldsNoneIsAFailureAndStaysAsItIs) {
    const TestKey key = KeyNamed("ec256");
    const TestKey p384(EVP_EC_gen("P-384"), EVP_PKEY_free);
    const std::vector<std::pair<std::string, std::string>> files = {
        {"", "holds no key and certificate."},
        {"garbage", "holds no key and certificate."},
        {PemOf(key), "holds no key and certificate."},
        {PemOf(key, key).substr(PemOf(key).size()), "holds no key and certificate."},
        {PemOf(key, "passphrase") + PemOf(key, key).substr(PemOf(key).size()),
         "holds no key and certificate."},
        {PemOf(key, key).substr(0, PemOf(key, key).size() - 40), "holds no key and certificate."},
        {PemOf(key, KeyNamed("ec256-other")), "holds no P-256 key with its certificate."},
        {PemOf(KeyNamed("rsa2048"), KeyNamed("rsa2048")), "holds no P-256 key with its certificate."},
        {PemOf(p384, p384), "holds no P-256 key with its certificate."},
    };
    for (const auto& [text, fault] : files) {
        const TemporaryDirectory folder;
        folder.Write(File, text);
        EXPECT_EQ(IdentityFailureIn(folder.Path()), "'" + folder / File + "' " + fault) << text;
        EXPECT_EQ(folder.Read(File), text);
    }
}

TEST(SandboxIdentityTest, KeyAndCertificateOfAnotherMakerAreTaken) {
    const TestKey key = KeyNamed("ec256");
    const TemporaryDirectory folder;
    folder.Write(File, PemOf(key, key));
    EXPECT_EQ(EVP_PKEY_eq(Identity(folder.Path()).Key(), key.get()), 1);
}

TEST(SandboxIdentityTest, FileThatCannotBeReadIsNotReplaced) {
    const TemporaryDirectory folder;
    const std::string fingerprint = Identity(folder.Path()).Fingerprint();
    {
        FaultyFiles files;
        files.FailEvery("Read", EACCES);
        const Platform::Testing::Replace<Platform::IFiles> replaced(files);
        EXPECT_EQ(IdentityFailureIn(folder.Path()), "Cannot read '" + folder / File + "'.");
        EXPECT_EQ(files.Texts(), std::vector<std::string>{"Read " + folder / File});
    }
    EXPECT_EQ(Identity(folder.Path()).Fingerprint(), fingerprint);
}

TEST(SandboxIdentityTest, FolderOrLinkInThePlaceOfTheFileIsAFailure) {
    const TemporaryDirectory folder, linked;
    std::filesystem::create_directory(folder / File);
    EXPECT_EQ(IdentityFailureIn(folder.Path()), "Cannot read '" + folder / File + "'.");
    std::filesystem::create_symlink("nowhere", linked / File);
    EXPECT_EQ(IdentityFailureIn(linked.Path()), "Cannot read '" + linked / File + "'.");
}

TEST(SandboxIdentityTest, EveryFailureOfTheDiskIsNamedAndTheNextStartMends) {
    const TemporaryDirectory folder;
    for (const char* operation : {"BeginReplace", "Complete"}) {
        FaultyFiles files;
        files.FailEvery(operation, ENOSPC);
        const Platform::Testing::Replace<Platform::IFiles> replaced(files);
        EXPECT_EQ(IdentityFailureIn(folder.Path()), "Cannot write '" + folder / File + "'.");
        EXPECT_FALSE(std::filesystem::exists(folder / File));
    }
    FaultyFiles files;
    const Platform::Testing::Replace<Platform::IFiles> replaced(files);
    EXPECT_EQ(IdentityFailureIn(folder.Path()), "");
    EXPECT_EQ(files.Texts(),
              (std::vector<std::string>{"Read " + folder / File, "BeginReplace " + folder / File + " Synced",
                                        "Complete " + folder / File + " Synced"}));
}

TEST(SandboxIdentityTest, MissingFolderAndMissingChanceAreFailures) {
    const TemporaryDirectory folder;
    EXPECT_EQ(IdentityFailureIn(folder / "missing"), "Cannot open the folder '" + folder / "missing" + "'.");
    EXPECT_EQ(IdentityFailureIn(folder.Write("file", "")),
              "Cannot open the folder '" + folder / "file" + "'.");
    FakeRandom random;
    random.FailBytes(EIO);
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    EXPECT_EQ(IdentityFailureIn(folder.Path()), "Cannot make the certificate: serial number");
}

}  // namespace
}  // namespace Ombry::Tests
