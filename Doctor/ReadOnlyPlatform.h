#pragma once

#include "Platform/IFiles.h"
#include "Platform/IInspection.h"
#include "Platform/IMemoryProtection.h"
#include "Platform/SecureWipe.h"

#include <cerrno>
#include <cstdint>

namespace Ombry::Doctor {

/// A file that is longer is none of the tool's, and is not read.
inline constexpr std::uint64_t LongestFile = std::uint64_t{64} << 20;

/// Files that can be read and not changed. Whoever reads with the repair of a broken save, as the caches do,
/// gets what the repair would give, and the files stay as they are.
class ReadOnlyFiles : public Platform::IFiles {
public:
    Platform::ValueOr<std::string> Read(const std::string& path) override {
        return Platform::Inspection().Read(path, LongestFile);
    }
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

/// Leaves nothing where text was to be hidden: those who read a secret keep it so, and here it is of no use.
class WipedMemory : public Platform::IMemoryProtection {
public:
    Platform::Result Protect(std::span<std::uint8_t> memory, std::uint32_t) override {
        Platform::SecureWipe(memory.data(), memory.size());
        return Platform::Result::Success();
    }
    Platform::Result Unprotect(std::span<std::uint8_t>, std::uint32_t) override {
        return Platform::Result::Failure(ENODATA);
    }
};

/// While it lives, the libraries' readers cannot change anything on the machine, whatever they try.
class ReadOnlyPlatform {
private:
    ReadOnlyFiles files;
    WipedMemory memory;
    const Platform::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Replace<Platform::IMemoryProtection> replacedMemory{memory};
    // Who reads a secret scrubs it by enciphering it, which sweeps the folder of the key and may make one.
    const Platform::Replace<Platform::IMachineProtection> replacedProtection{
        Platform::Inspection().Deciphering()};
};

}  // namespace Ombry::Doctor
