#pragma once

#include "Platform/IFiles.h"
#include "Platform/IMachineProtection.h"

#include <cerrno>

namespace Ombry::Doctor {

/// Files that can be read and not changed. Whoever reads with the repair of a broken save, as the caches do,
/// gets what the repair would give, and the files stay as they are.
class ReadOnlyFiles : public Platform::IFiles {
public:
    Platform::ValueOr<std::string> Read(const std::string& path) override { return files.Read(path); }
    Platform::ValueOr<Platform::FileState> State(const std::string& path) override {
        return files.State(path);
    }
    Platform::ValueOr<std::unique_ptr<Platform::IFileReplacement>> BeginReplace(
        const std::string&, std::uint64_t, Platform::Durability) override {
        return Refused();
    }
    Platform::Result Remove(const std::string&, Platform::Durability) override { return Refused(); }
    Platform::Result Rename(const std::string&, const std::string&) override { return Refused(); }
    Platform::ValueOr<std::vector<std::string>> List(const std::string& directory) override {
        return files.List(directory);
    }
    Platform::Result CreateDirectories(const std::string&, Platform::Durability) override {
        return Refused();
    }

private:
    static Platform::Result Refused() { return Platform::Result::Failure(EROFS); }

    Platform::IFiles& files = Platform::Files();
};

/// Deciphers, and enciphers to nothing: those who read a secret scrub it by enciphering it, and keep nothing
/// of the outcome. The real thing would sweep the folder of the key, and make one.
class DecipheringOnly : public Platform::IMachineProtection {
public:
    Platform::ValueOr<std::optional<std::string>> Protect(std::string_view, std::string_view,
                                                          std::uint32_t) override {
        return std::optional<std::string>(std::string());
    }
    Platform::ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                            std::uint32_t flags) override {
        return protection.Unprotect(blob, entropy, flags);
    }
    std::string_view Remedy(int error) const override { return protection.Remedy(error); }

private:
    Platform::IMachineProtection& protection = Platform::MachineProtection();
};

/// While it lives, the libraries' readers cannot change anything on the machine, whatever they try.
class ReadOnlyPlatform {
private:
    ReadOnlyFiles files;
    DecipheringOnly protection;
    const Platform::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Replace<Platform::IMachineProtection> replacedProtection{protection};
};

}  // namespace Ombry::Doctor
