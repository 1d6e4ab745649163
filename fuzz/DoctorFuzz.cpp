// Invariant: whatever the state folder holds, the doctor ends, in each of its forms, with one of its four
// exit codes, nothing on the error stream, and, where asked for, JSON in UTF-8; it changes no file, no mode
// and no time of one, and makes none; neither a secret nor a token, nor half of one, is in what it says, and
// nothing that a terminal would obey.
//
// Input: any number of damages: a byte for the file and one for the kind, a byte for a length or a position,
// and for those that put bytes there, as many bytes as it says.

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "Doctor/RunDoctor.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FixedCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <rapidjson/document.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using namespace Ombry;
using namespace Ombry::Tests;
using Ombry::Fuzz::Input;
using Ombry::Fuzz::Require;

namespace {

namespace fs = std::filesystem;

using Contents = std::map<std::string, std::string>;

const std::string Secret = "c1-Secret-Text-7f3a";
const std::string Token = "Token-Text-Of-c1-9b2e";
const std::string Security = "Quennet/OmbrySecurity/";
const std::string Caches = Security + "CS-cpp/cache/";

/// The machine of the process: where its state lies, and who it is.
struct Place {
    const TemporaryDirectory folder;
    FakeKnownFolders folders{folder.Path()};
    FakeMachineId machineId{"machine"};
    const Platform::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Replace<Platform::IMachineId> replacedMachineId{machineId};
};

Place& TheMachine() {
    static Place place;
    return place;
}

/// Everything below the folder of the machine: kind, mode, times and content.
std::map<std::string, std::string> Snapshot() {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(TheMachine().folder.Path())) {
        struct stat status {};
        lstat(entry.path().c_str(), &status);
        std::ostringstream text;
        text << std::oct << status.st_mode << ' ' << status.st_mtim.tv_sec << ' ' << status.st_mtim.tv_nsec
             << ' ' << status.st_ctim.tv_sec << ' ' << status.st_ctim.tv_nsec << ' ' << status.st_nlink << ' '
             << status.st_ino;
        all[entry.path()] = text.str();
    }
    return all;
}

void TrustSomebody() {
    const std::string der = FixedCertificates::DerOf(FixedCertificates::EcCertificate);
    OmbryZephCore::ZephIOBuffer buffer;
    Require(buffer.SetLength(static_cast<std::uint32_t>(der.size())) == 0);
    std::copy(der.begin(), der.end(), buffer.GetData());
    ClientCommunications::saveBootstrapCertificate(
        ClientCommunications::CommunicationsParameters(std::string()), buffer);
}

std::string EntryPath(const std::string& cache, const std::string& key) {
    return Caches + cache + ClientCommunications::DirectoryKeyValueStorage::EntryNameOf(key) + "-p";
}

/// What a machine holds that was used for a while, and nothing has happened to.
const Contents& Whole() {
    static const Contents contents = [] {
        const TemporaryDirectory& folder = TheMachine().folder;
        TrustSomebody();
        ClientCommunications::CreateClientCredentialsStore(folder / "Quennet/OmbrySecurity", true, nullptr)
            ->Save(std::make_shared<ClientCommunications::ClientCredentials>(
                std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), "c1", "c1-id",
                Secret));
        const std::string found = R"({"expiryTime": 1900000000, "local": [{"serviceName": "v1-x",)"
                                  R"( "endpointUrl": "https://server1:8181/x", "endpointCert": ""}]})";
        const std::string token =
            R"({"lastRefreshed": "2026-11-22T00:00:00.0000000Z", "token": {"token_type": "bearer",)"
            R"( "access_token": ")" +
            Token + R"(", "expires_in": 3600, "scope": ""}, "servicename": "v1-auth"})";
        folder.Write(Security + "ombrysecurity.config", R"({"ssdsUri": "https://server1:8181/sfs"})");
        folder.Write(Security + "CS/datacenterid.config", "dc-1");
        folder.Write(Security + "Components/c1/Services/svc.config", R"({"Version": "1.0", "Guid": "g"})");
        folder.Write("Quennet/common.config", "<x><DatacenterId></DatacenterId></x>");
        for (const std::string& owner : {std::string(), std::string("c1/")}) {
            folder.Write(Caches + owner + "v1-service.cache-p", found);
            folder.Write(EntryPath(owner + "finder_cache/", "/services/services/nonsecure/name/aa"), found);
            folder.Write(EntryPath(owner + "aa_token/", "v1-auth"), token);
        }
        Contents all;
        for (const auto& entry : fs::recursive_directory_iterator(folder.Path())) {
            if (!entry.is_regular_file()) continue;
            const std::string path = entry.path().lexically_relative(folder.Path());
            all[path] = folder.Read(path);
        }
        return all;
    }();
    return contents;
}

/// Bytes that can be the name of a file.
std::string NameOf(std::string bytes) {
    for (char& byte : bytes) {
        if (byte == '\0' || byte == '/') byte = 'x';
    }
    return bytes.empty() || bytes == "." || bytes == ".." ? "x" : bytes;
}

void Damage(Input& input) {
    auto file = Whole().begin();
    std::advance(file, static_cast<std::ptrdiff_t>(input.Byte() % Whole().size()));
    const TemporaryDirectory& folder = TheMachine().folder;
    const fs::path path = folder / file->first;
    std::string content = file->second;
    const std::size_t kind = input.Byte() % 11;
    const std::size_t amount = input.Byte();
    if (!fs::exists(path.parent_path())) return;  // a link went there before
    switch (kind) {
        case 0:
            content = input.Bytes(amount);
            break;
        case 1:
            content.resize(std::min(content.size(), amount));
            break;
        case 2:
            content.assign(content.size(), '\0');
            break;
        case 3:
            fs::remove_all(path);
            return;
        case 4:
            fs::remove_all(path);
            fs::create_directory(path);
            return;
        case 5:
            fs::remove_all(path);
            fs::create_symlink(NameOf(input.Bytes(amount % 32)), path);
            return;
        case 6:
            if (!content.empty())
                content[amount % content.size()] ^= static_cast<char>(1 + input.Byte() % 255);
            break;
        case 7:
            content.insert(std::min(amount, content.size()), input.Bytes(32));
            break;
        case 8:
            if (fs::exists(fs::symlink_status(path)) && !fs::is_symlink(path))
                chmod(path.c_str(), static_cast<mode_t>(amount << 1 & 0777));
            return;
        case 9:
            // Something with a name of the input's choice beside it, or a whole client or record.
            folder.Write(fs::path(file->first).parent_path() / NameOf(input.Bytes(amount % 64)), "x");
            return;
        default:
            if (!fs::exists(path)) return;
            fs::remove_all(path.string() + "-s");
            fs::copy(path, path.string() + "-s", fs::copy_options::recursive);
            return;
    }
    if (fs::exists(fs::symlink_status(path)) && !fs::is_regular_file(fs::symlink_status(path)))
        fs::remove_all(path);
    folder.Write(file->first, content);
}

void Restore() {
    const TemporaryDirectory& folder = TheMachine().folder;
    fs::remove_all(folder / "Quennet");
    umask(077);
    for (const auto& [path, content] : Whole())
        folder.Write(path, content);
}

std::string RunAndRequire(std::vector<std::string> words) {
    words.insert(words.begin(), "ombry-doctor");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    std::ostringstream out, error;
    const int exitCode = Doctor::RunDoctor(static_cast<int>(words.size()), argv.data(), out, error);
    const std::string said = out.str();
    Require(exitCode >= 0 && exitCode <= 3, "one of the four exit codes");
    Require(error.str().empty(), error.str().c_str());
    Require(said.ends_with('\n'), "whole lines");
    for (const std::string& hidden : {Secret, Token}) {
        Require(said.find(hidden.substr(0, hidden.size() / 2)) == std::string::npos, "no secret");
        Require(said.find(hidden.substr(hidden.size() / 2)) == std::string::npos, "no end of a secret");
    }
    for (const char c : said)
        Require(c == '\n' || static_cast<unsigned char>(c) >= ' ', "nothing that a terminal obeys");
    return said;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Whole();
    Restore();
    Input input(data, size);
    try {
        while (!input.Empty())
            Damage(input);
    } catch (const std::exception&) {
        return 0;  // a name that the disk does not take
    }
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const std::string& hidden : {Secret, Token}) {
        if (text.find(hidden.substr(0, 6)) != std::string_view::npos) return 0;  // no secret any more
    }
    const auto before = Snapshot();
    RunAndRequire({});
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(RunAndRequire({"--json"}).c_str());
    Require(!document.HasParseError(), "JSON, in UTF-8");
    RunAndRequire({"--check"});
    Require(Snapshot() == before, "nothing is changed");
    return 0;
}
