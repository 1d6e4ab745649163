#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// A new folder of a test's own on the real disk, removed with all that is in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "ombry-test-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary directory");
        path = name;
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
        const std::filesystem::path file = std::filesystem::path(path) / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file.string();
    }

    /// The content of a file; throws if there is none.
    std::string Read(const std::string& name) const {
        std::ifstream file(std::filesystem::path(path) / name, std::ios::binary);
        if (!file) throw std::runtime_error("no file " + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string path;
};

}  // namespace Ombry::Tests
