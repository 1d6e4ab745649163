#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "ClientCommunications/Impl/NamedProtectedStorage.h"
#include "ClientCommunications/Impl/ProtectedStorage.h"
#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/MemoryFiles.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::IDataProtection;
using ClientCommunications::IStorage;
using ClientCommunications::NamedFileStorage;
using ClientCommunications::NamedProtectedStorage;
using ClientCommunications::ProtectedStorage;
using ClientCommunications::WindowsPersistableDataProtection;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Puts brackets around a text; fails on demand.
class Brackets : public IDataProtection {
public:
    void Protect(std::string& data) override {
        if (fails) throw std::runtime_error("cannot protect");
        data = "[" + data + "]";
    }
    void Unprotect(std::string& data) override {
        if (fails) throw std::runtime_error("cannot unprotect");
        data = data.substr(1, data.size() - 2);
    }
    bool fails = false;
};

class OneBlob : public IStorage {
public:
    explicit OneBlob(std::string& blob) : blob(blob) {}
    std::string Load() override { return blob; }
    void Save(const std::string& data) override { blob = data; }

private:
    std::string& blob;
};

TEST(ProtectedStorageTest, SavesTheProtectedFormAndLeavesTheCallersTextPlain) {
    std::string blob;
    ProtectedStorage storage(std::make_unique<OneBlob>(blob), std::make_shared<Brackets>());
    const std::string plain = "text";

    storage.Save(plain);

    EXPECT_EQ(blob, "[text]");
    EXPECT_EQ(plain, "text");
    EXPECT_EQ(storage.Load(), "text");
    EXPECT_EQ(blob, "[text]");
}

TEST(ProtectedStorageTest, WhatCannotBeProtectedIsNotSavedAndWhatCannotBeReadThrows) {
    std::string blob = "[old]";
    const auto brackets = std::make_shared<Brackets>();
    ProtectedStorage storage(std::make_unique<OneBlob>(blob), brackets);
    brackets->fails = true;

    EXPECT_THROW(storage.Save("new"), std::runtime_error);
    EXPECT_THROW(storage.Load(), std::runtime_error);
    EXPECT_EQ(blob, "[old]");
}

class NamedProtectedStorageTest : public testing::Test {
protected:
    MemoryFiles files;
    Platform::Testing::Replace<Platform::IFiles> replaced{files};
    NamedProtectedStorage storage{std::make_shared<NamedFileStorage>("dir/", ".x", false),
                                  std::make_shared<Brackets>()};
};

TEST_F(NamedProtectedStorageTest, GetWrapsTheInnerStorageOfTheName) {
    storage.Get("a")->Save("text");

    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/a.x", "[text]")));
    EXPECT_EQ(storage.Get("a")->Load(), "text");
}

TEST_F(NamedProtectedStorageTest, DeleteAndRenameGoToTheInnerStorage) {
    files.Put("dir/a.x", "[1]");

    storage.Rename("a", "b");
    EXPECT_THAT(files.Contents(), ElementsAre(Pair("dir/b.x", "[1]")));
    storage.Delete("b");
    EXPECT_THAT(files.Contents(), IsEmpty());
}

TEST_F(NamedProtectedStorageTest, AMissingFileLoadsAsEmptyTextThroughTheRealProtection) {
    FakeMachineProtection machine;
    const Platform::Testing::Replace<Platform::IMachineProtection> scope(machine);
    NamedProtectedStorage real(std::make_shared<NamedFileStorage>("dir/", ".x", false),
                               std::make_shared<WindowsPersistableDataProtection>("e", false));

    EXPECT_EQ(real.Get("missing")->Load(), "");
    EXPECT_THAT(machine.calls, IsEmpty());
}

}  // namespace
}  // namespace Ombry::Tests
