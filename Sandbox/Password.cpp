#include "Sandbox/Password.h"

#include "Platform/IFiles.h"
#include "Platform/IRandom.h"
#include "Sandbox/FolderLock.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>

namespace Ombry::Sandbox {
namespace {

std::string NewPassword() {
    std::array<std::uint8_t, 16> bytes;
    if (!Platform::Random().Bytes(bytes)) throw std::runtime_error("No random bytes.");
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

}  // namespace

std::string ReadOrMakePassword(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    // Of several instances that start at once one makes it, and the others find it.
    const FolderLock lock(folder.empty() ? "." : folder);
    const auto text = Platform::Files().Read(path);
    if (text) {
        std::string line = text->substr(0, text->find_first_of("\r\n"));
        if (line.empty()) throw std::runtime_error("The first line of '" + path + "' is empty.");
        return line;
    }
    if (text.Error() != ENOENT) throw std::runtime_error("Cannot read '" + path + "'.");
    std::string password = NewPassword();
    const std::string line = password + "\n";
    auto file = Platform::Files().BeginReplace(path, line.size(), Platform::Durability::Synced);
    if (!file || !(*file)->Complete(line)) throw std::runtime_error("Cannot write '" + path + "'.");
    return password;
}

}  // namespace Ombry::Sandbox
