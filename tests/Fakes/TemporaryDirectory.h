#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// A new folder of a test's own on the real disk, for its owner alone, removed with all that is in it. Paths
/// are in UTF-8 with solidi, whatever the system prefers.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::random_device chance;
        const std::filesystem::path name =
            std::filesystem::temp_directory_path() /
            ("ombry-test-" + std::to_string(chance()) + std::to_string(chance()));
        if (!std::filesystem::create_directory(name))
            throw std::runtime_error("a folder is there: " + name.string());
        std::filesystem::permissions(name, std::filesystem::perms::owner_all);
        path = name.generic_string();
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string operator/(const std::string& name) const { return path + "/" + name; }

    /// Writes a file, below folders that are made as needed, and returns its path.
    std::string Write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = Native(path + "/" + name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return path + "/" + name;
    }

    /// The content of a file; throws if there is none.
    std::string Read(const std::string& name) const {
        std::ifstream file(Native(path + "/" + name), std::ios::binary);
        if (!file) throw std::runtime_error("no file " + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    static std::filesystem::path Native(const std::string& utf8) {
        return std::u8string(utf8.begin(), utf8.end());
    }

    std::string path;
};

}  // namespace Ombry::Tests
