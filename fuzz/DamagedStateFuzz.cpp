// Invariant: on a machine whose state folder is damaged in any way, each of two commands ends, with 0 and
// nothing on the error stream, or with -1 and a text there; no command changes or removes the address, the
// datacenter, a key that is whole or another client's credentials, and one that fails changes nothing but
// caches; no replacement of a file is left open, and no secret is written in plain text. Once the damaged
// files are put back and the caches deleted, the next command succeeds: nothing that matters was lost.
//
// Input: byte 0 = the two commands; then any number of damages: a byte for the file and one for the kind, a
// byte for a length or a position, and for those that put bytes there, as many bytes as it says.

#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "tests/Fakes/CapturedOutput.h"
#include "tests/Fakes/DrawnSeeds.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeOneCertificateStore.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

using namespace Ombry;
using namespace Ombry::Tests;
using Ombry::Fuzz::Input;
using Ombry::Fuzz::Require;

namespace {

using Contents = std::map<std::string, std::string>;
using Words = std::vector<std::string>;

const std::string Root = MemoryMachine() + "/Quennet";
const std::string Security = Root + "/OmbrySecurity";
const std::string Url = "http://server1:8080";
const std::string Address = Security + "/ombrysecurity.config";
const std::string Datacenter = Security + "/CS/datacenterid.config";
const std::string Caches = Security + "/CS-cpp/cache/";
const std::string Credentials = Security + "/Components/c1/ombrycomponent.config";
const std::string Record = Security + "/Components/c1/Services/Svc.config";
const std::string Key = Root + "/Keys/protection.key";
const std::string Secret = "c1-secret-text";

/// A Security Framework service that answers on every host and port, and grants everything. Any thread of the
/// tool may call it.
class Service {
public:
    explicit Service(ScriptedSockets& sockets) : sockets(sockets) {
        sockets.OnSend([this](ScriptedSockets::Handle handle, const std::string& bytes) {
            const std::lock_guard guard(mutex);
            std::string& pending = connections[handle];
            pending += bytes;
            const std::size_t end = pending.find("\r\n\r\n");
            if (!pending.empty() && (pending[0] < 'A' || pending[0] > 'Z'))
                return this->sockets.CloseByPeer(handle);  // TLS, of which it knows nothing
            if (end == std::string::npos) return;
            const std::size_t length = pending.find("Content-Length: ");
            const std::size_t body = length < end ? std::strtoul(&pending[length + 16], nullptr, 10) : 0;
            if (pending.size() < end + 4 + body) return;
            this->sockets.Deliver(handle, Answer(pending));
            pending.clear();
        });
    }

private:
    static std::string Response(const std::string& status, const std::string& body) {
        return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
               body;
    }
    static std::string Answer(const std::string& request) {
        if (request.starts_with("GET /services/")) {
            return Response("200 OK",
                            R"({"expiryTime": 1600000300, "local": [{"id": "i", "serviceName": "s",)"
                            R"( "endpointUrl": ")" +
                                Url + R"("}], "remote": []})");
        }
        if (request.find("/servicetokens HTTP") != std::string::npos) {
            return Response("200 OK", R"({"token_type": "bearer", "access_token": "token",)"
                                      R"( "expires_in": 3600, "scope": ""})");
        }
        if (request.starts_with("POST ")) return Response("201 Created", "");
        if (request.starts_with("DELETE ")) return "HTTP/1.1 204 No Content\r\n\r\n";
        return Response("200 OK", R"([{"id": "dc-1", "name": "one"}])");
    }

    ScriptedSockets& sockets;
    std::mutex mutex;
    std::map<ScriptedSockets::Handle, std::string> connections;  // what was heard of a request; by mutex
};

struct Machine {
    explicit Machine(const Contents& contents) {
        for (const auto& [path, content] : contents)
            files.Put(path, content);
        sockets.OnIdle([this](std::int64_t milliseconds) {
            clock.Advance(Duration(milliseconds * TicksPerSecond / 1000));
        });
    }

    /// Of the threads beside a command, the one of the tokens waits long.
    static std::uint32_t Seed() {
        static const std::uint32_t seed = SeedThatDraws(0, 720, 500);
        return seed;
    }

    FakeClock clock;
    FakeRandom random{Seed()};
    FakeKnownFolders folders{MemoryMachine()};
    FakeMachineId machineId{"machine"};
    MemoryFiles files;
    FakeOneCertificateStore certificates{"DiscoveryServiceBootstrap", "certificate"};
    ScriptedSockets sockets;
    Service service{sockets};
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IMachineId> replacedMachineId{machineId};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Testing::Replace<Platform::ICertificates> replacedCertificates{certificates};
    const Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
};

struct Command {
    Words words;
    std::string own;  ///< what it may change beside caches begins so
};

/// What a machine holds that was used for a while, and nothing has happened to.
const Contents& Whole();

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {{"get-datacenters", "-n", "c1", "-r", Url}, "none"},
        {{"enroll-client", "-t", "t", "-nn", "New"}, Security + "/Components/New/"},
        {{"enroll-client", "-n", "c1", "-nn", "New"}, Security + "/Components/New/"},
        {{"enroll-client", "-n", "c1", "-nn", "c1"}, Security + "/Components/c1/"},
        {{"enroll-service", "-n", "c1", "-owner", "c1", "-name", "Svc", "-url", "http://x:1/", "-namespace",
          "N", "-hostname", "h"},
         Security + "/Components/c1/Services/"},
        {{"unenroll-service", "-u", "u", "-p", "p", "-on", "c1", "-s", "Svc"},
         Security + "/Components/c1/Services/"},
        {{"unenroll-client", "-n", "c1", "-un", "New"}, Security + "/Components/New/"},
        {{"unenroll-client-self", "-n", "c1"}, Security + "/Components/c1/"},
    };
    return commands;
}

struct Run {
    int exitCode;
    std::string error;
};

Run Call(Words words) {
    words.insert(words.begin(), "Ombry.SecClientConfig");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const CapturedOutput captured;
    const int exitCode = SecClientConfig::RunTool(static_cast<int>(words.size()), argv.data());
    return {exitCode, captured.Error()};
}

const Contents& Whole() {
    static const Contents contents = [] {
        Machine machine({{Datacenter, "dc-1"},
                         {Address, "{\"ssdsUri\": \"" + Url + "\"}"},
                         {Record, R"({"Version": "1.0", "Guid": "svc-guid"})"}});
        ClientCommunications::CreateClientCredentialsStore(Security, true, nullptr)
            ->Save(std::make_shared<ClientCommunications::ClientCredentials>(
                std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), "c1", "c1-id",
                Secret));
        for (const char* const directory : {"", "c1/"}) {
            machine.files.Put(Caches + directory + "v1-service.cache-p",
                              R"({"expiryTime": 1700000000, "local": [{"serviceName": "v1-service",)"
                              R"( "endpointUrl": ")" +
                                  Url + R"(", "endpointCert": ""}]})");
        }
        Require(Call({"enroll-client", "-t", "t", "-nn", "New"}).exitCode == 0, "a sound machine works");
        Require(Call({"enroll-client", "-n", "c1", "-nn", "New"}).exitCode == 0, "for a client too");
        return machine.files.Contents();
    }();
    return contents;
}

void Damage(MemoryFiles& files, Input& input) {
    auto file = Whole().begin();
    std::advance(file, static_cast<std::ptrdiff_t>(input.Byte() % Whole().size()));
    const std::string& path = file->first;
    std::string content = file->second;
    std::size_t kind = input.Byte() % 8;
    const std::size_t amount = input.Byte();
    // A token entry that cannot be parsed ends the process, as `JwtAuthenticator` says: those only go.
    if (path.find("/aa_token/") != std::string::npos) kind = 3;
    switch (kind) {
        case 0:
            return files.Put(path, input.Bytes(amount));
        case 1:
            return files.Put(path, content.substr(0, amount));
        case 2:
            return files.Put(path, std::string(content.size(), '\0'));
        case 3:
            return static_cast<void>(files.Remove(path));
        case 4:
            return files.PutFolder(path);
        case 5:
            return files.PutLink(path);
        case 6:
            if (!content.empty())
                content[amount % content.size()] ^= static_cast<char>(1 + input.Byte() % 255);
            return files.Put(path, content);
        default:
            return files.Put(path, content.insert(std::min(amount, content.size()), input.Bytes(16)));
    }
}

bool IsCache(const std::string& path) {
    return path.starts_with(Caches);
}

void RequireKept(const Contents& before, const Contents& after, const std::string& own, bool succeeded) {
    const auto mayChange = [&](const std::string& path) {
        // A machine without its key makes a new one before it enciphers.
        return IsCache(path) || (path == Key && !before.contains(Key)) ||
               (succeeded && path.starts_with(own));
    };
    for (const auto& [path, content] : before) {
        const auto now = after.find(path);
        Require(mayChange(path) || (now != after.end() && now->second == content), path.c_str());
    }
    for (const auto& [path, content] : after) {
        Require(before.contains(path) || mayChange(path), path.c_str());
        Require(content.find(Secret) == std::string::npos, "no secret in plain text");
    }
}

void RunOn(Machine& machine, const Command& command) {
    const Contents before = machine.files.Contents();
    const Run run = Call(command.words);
    Require(run.exitCode == 0 ? run.error.empty() : run.exitCode == -1 && run.error.ends_with('\n'),
            "a command succeeds without a word, or says what failed");
    Require(machine.files.OpenReplacements() == 0, "no replacement is left open");
    RequireKept(before, machine.files.Contents(), command.own, run.exitCode == 0);
}

void RequireRecovers(Contents contents) {
    std::erase_if(contents, [](const auto& file) { return IsCache(file.first); });
    for (const auto& [path, content] : Whole()) {
        if (!IsCache(path)) contents[path] = content;
    }
    Machine repaired(contents);
    const Run run = Call({"enroll-client", "-n", "c1", "-nn", "Other"});
    Require(run.exitCode == 0, run.error.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (std::string_view(reinterpret_cast<const char*>(data), size).find(Secret) != std::string_view::npos)
        return 0;
    Whole();
    Input input(data, size);
    const std::size_t commands = input.Byte();
    Contents left;
    {
        Machine machine(Whole());
        while (!input.Empty())
            Damage(machine.files, input);
        RunOn(machine, Commands()[commands % Commands().size()]);
        RunOn(machine, Commands()[commands / Commands().size() % Commands().size()]);
        left = machine.files.Contents();
    }
    RequireRecovers(std::move(left));
    return 0;
}
