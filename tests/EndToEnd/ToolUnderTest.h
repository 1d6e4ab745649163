#pragma once

#include "tests/EndToEnd/CertificateTexts.h"
#include "tests/EndToEnd/ChildProcess.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace Ombry::Tests {

using Words = std::vector<std::string>;

/// Everything below a folder: by path, the mode and the content of a file, the mode of a folder, the target
/// of a link.
using Tree = std::map<std::string, std::string>;

inline const std::string StoreFolder = "Quennet/CertificateStores/OmbrySecurity";

/// The tool that these tests run: that of this build or, where the environment names the folder of another in
/// OMBRY_WINDOWS_TOOLS, the one for Windows, below the program that OMBRY_WINE names. What differs between
/// the two is here, so that one table of cases holds both.
class ToolUnderTest {
public:
    static bool IsForWindows() { return std::getenv("OMBRY_WINDOWS_TOOLS") != nullptr; }

    /// The words of a program that keeps its state in its working directory, and of the one that ships.
    static Words Here() {
        return IsForWindows() ? OnWindows("ombry_sec_client_config_here.exe") : Words{OMBRY_TOOL_HERE};
    }
    static Words Shipped() {
        return IsForWindows() ? OnWindows("Ombry.SecClientConfig.exe") : Words{OMBRY_TOOL};
    }

    /// The words of a program of the tests' own, by its path in this build.
    static Words Program(const std::string& path) {
        if (!IsForWindows()) return {path};
        return {Wine(), std::getenv("OMBRY_WINDOWS_BUILD") + ("/tests/" + FileNameOf(path) + ".exe")};
    }

    /// The signal by which the system asks a program for its end. Wine knows none but that of the user at the
    /// console, of which it makes the event Ctrl+C.
    static int Termination() { return IsForWindows() ? SIGINT : SIGTERM; }

    /// The mode as Linux would show it. Files and folders for SYSTEM and the Administrators alone have one of
    /// their own below Wine.
    static mode_t ShownMode(const struct stat& status) {
        const mode_t mode = status.st_mode & 07777;
        if (!IsForWindows() || mode != 0750) return mode;
        return S_ISDIR(status.st_mode) ? 0700 : 0600;
    }

    /// Begins a machine. All machines of a Windows share its store, so one test has one machine with
    /// certificates at a time.
    static void EmptyStore() {
        if (IsForWindows()) RunProcess(Registry({"delete", StoreKey, "/f"}));
    }

    /// The certificates of the machine, in the form of the folder that holds them on Linux; there they are
    /// among the files.
    static void AddStore(Tree& tree) {
        if (!IsForWindows()) return;
        const ProcessOutcome query = RunProcess(Registry({"query", StoreKey + "\\Certificates", "/s"}));
        if (query.exitCode > 1) throw std::runtime_error("no look into the registry: " + query.error);
        const std::string& text = query.out;
        static const std::regex blob("Blob +REG_BINARY +([0-9A-F]+)");
        for (std::sregex_iterator found(text.begin(), text.end(), blob), end; found != end; ++found) {
            const StoredBlob stored(FromHex((*found)[1]));
            tree["Quennet/CertificateStores"] = tree[StoreFolder] = "700/";
            tree[StoreFolder + "/" + FingerprintOf(stored.certificate)] =
                "600 " + StoredCertificate(stored.certificate, stored.name);
        }
    }

private:
    static inline const std::string StoreKey = "HKLM\\Software\\Microsoft\\SystemCertificates\\OmbrySecurity";

    /// A certificate as the registry holds it: properties, each with its number, 4 bytes, its length, its
    /// bytes.
    struct StoredBlob {
        explicit StoredBlob(const std::string& bytes) {
            for (std::size_t at = 0; at + 12 <= bytes.size();) {
                const std::string value = bytes.substr(at + 12, NumberAt(bytes, at + 8));
                const std::uint32_t property = NumberAt(bytes, at);
                if (property == FriendlyName) name = Narrow(value);
                if (property == Encoded) {
                    const auto* der = reinterpret_cast<const unsigned char*>(value.data());
                    certificate =
                        TestCertificate(d2i_X509(nullptr, &der, static_cast<long>(value.size())), X509_free);
                }
                at += 12 + value.size();
            }
            if (!certificate) throw std::runtime_error("the registry holds no certificate");
        }

        TestCertificate certificate;
        std::string name;

    private:
        static constexpr std::uint32_t FriendlyName = 11;
        static constexpr std::uint32_t Encoded = 32;

        static std::uint32_t NumberAt(const std::string& bytes, std::size_t at) {
            std::uint32_t number = 0;
            for (std::size_t i = 4; i-- > 0;)
                number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
            return number;
        }
        /// Of ASCII in 16 bits with a terminator.
        static std::string Narrow(const std::string& wide) {
            std::string text;
            for (std::size_t at = 0; at + 2 < wide.size(); at += 2)
                text += wide[at];
            return text;
        }
    };

    static Words OnWindows(const std::string& program) {
        return {Wine(), std::getenv("OMBRY_WINDOWS_TOOLS") + ("/" + program)};
    }
    static std::string FileNameOf(const std::string& path) {
        return std::filesystem::path(path).filename().string();
    }
    // By its whole path, without which Wine starts one program more to look for it, in four times the time.
    static Words Registry(Words words) {
        words.insert(words.begin(), {Wine(), "C:\\windows\\system32\\reg.exe"});
        return words;
    }
    static std::string Wine() {
        const char* const wine = std::getenv("OMBRY_WINE");
        return wine ? wine : "wine";
    }
    static std::string FromHex(const std::string& hex) {
        std::string bytes;
        for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
            bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
        return bytes;
    }
};

}  // namespace Ombry::Tests
