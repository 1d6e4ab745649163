// Two processes on one cache, which have no lock between them.

#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Windows/SecondProcess.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using ClientCommunications::SafeFileStorage;

TEST(SafeFileStorageProcessesTest, BlobThatTwoProcessesSaveIsWholeOrLost) {
    const std::string even(5000, 'e'), odd(7000, 'o');
    const auto work = [&](const std::string& path, const std::string& mine) {
        SafeFileStorage storage(path, false);
        int seen = 0;
        for (int i = 0; i < 30; ++i) {
            // Either of the two may have taken the other's staging copy.
            try {
                storage.Save(mine);
                const std::string blob = storage.Load();
                EXPECT_TRUE(blob.empty() || blob == even || blob == odd) << blob.size();
                seen += !blob.empty();
            } catch (const std::runtime_error&) {
            }
        }
        EXPECT_GT(seen, 0);
    };
    if (const std::string path = SecondProcess::Message(); !path.empty()) return work(path, odd);
    const TemporaryDirectory directory;
    SecondProcess second(directory / "blob");
    work(directory / "blob", even);
    EXPECT_EQ(second.Wait(), 0u);
    SafeFileStorage storage(directory / "blob", true);
    storage.Save(even);
    EXPECT_EQ(storage.Load(), even);
    for (const auto& entry : std::filesystem::directory_iterator(directory.Path()))
        EXPECT_EQ(entry.path().filename().string().find("blob-"), 0u) << entry.path();
}

}  // namespace
}  // namespace Ombry::Tests
