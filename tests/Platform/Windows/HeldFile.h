#pragma once

#include "Platform/Windows/Handle.h"
#include "Platform/Windows/WidePath.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {

/// A file or a folder that somebody else has open for reading.
class HeldFile {
public:
    /// `share` is what its holder lets others do meanwhile.
    HeldFile(const std::string& path, DWORD share)
        : file(CreateFileW(Platform::Windows::WidePath(path)->c_str(), GENERIC_READ, share, nullptr,
                           OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {
        EXPECT_TRUE(file) << path;
    }

    /// What it holds from where the last call ended.
    std::string Read() const {
        char bytes[64];
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(file.Get(), bytes, sizeof bytes, &count, nullptr));
        return std::string(bytes, count);
    }

    void Release() { file.Close(); }

private:
    Platform::Windows::Handle file;
};

}  // namespace Ombry::Tests
