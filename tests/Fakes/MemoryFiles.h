#pragma once

#include "Platform/IClock.h"
#include "tests/Fakes/FileOperations.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <utility>

namespace Ombry::Tests {

/// A disk in memory that behaves as the real one: a file needs its folder, what is no regular file cannot be
/// opened, a replacement shows only when it is complete. Error numbers are those of the system. "//" counts
/// as
/// "/", and the root and the working directory are always there. States of files tell as little as they may:
/// each file has the number that the last one had, and changes get the time of `Platform::Clock`, which need
/// not move. Any thread may call it.
class MemoryFiles : public Platform::IFiles, public FileOperations {
public:
    Platform::ValueOr<std::string> Read(const std::string& path) override {
        if (const auto result = Record({"Read", path, {}, {}}); !result) return result;
        std::lock_guard guard(mutex);
        const Node* node = Find(path);
        if (!node) return Failure(ENOENT);
        if (node->kind != Kind::File) return Failure(ErrorOf(node->kind));
        return node->content;
    }

    Platform::ValueOr<Platform::FileState> State(const std::string& path) override {
        if (const auto result = Record({"State", path, {}, {}}); !result) return result;
        std::lock_guard guard(mutex);
        const Node* node = Find(path);
        if (!node) return Failure(ENOENT);
        if (node->kind != Kind::File) return Failure(ErrorOf(node->kind));
        return Platform::FileState{
            .device = 1, .file = 1, .size = node->content.size(), .changed = node->changed};
    }

    Platform::ValueOr<std::unique_ptr<Platform::IFileReplacement>> BeginReplace(
        const std::string& path, std::uint64_t size, Platform::Durability durability) override {
        if (const auto result = Record({"BeginReplace", path, {}, durability}); !result) return result;
        std::lock_guard guard(mutex);
        if (const int error = ErrorToPlace(path)) return Failure(error);
        ++openReplacements;
        return std::unique_ptr<Platform::IFileReplacement>(
            std::make_unique<Replacement>(*this, path, size, durability));
    }

    Platform::Result Remove(const std::string& path,
                            Platform::Durability durability = Platform::Durability::Unsynced) override {
        if (const auto result = Record({"Remove", path, {}, durability}); !result) return result;
        std::lock_guard guard(mutex);
        const Node* node = Find(path);
        if (!node) return Failure(ENOENT);
        if (node->kind == Kind::Folder) return Failure(EISDIR);
        nodes.erase(Normal(path));
        return Platform::Result::Success();
    }

    Platform::Result Rename(const std::string& from, const std::string& to) override {
        if (const auto result = Record({"Rename", from, to, {}}); !result) return result;
        std::lock_guard guard(mutex);
        const Node* node = Find(from);
        if (!node) return Failure(ENOENT);
        if (node->kind == Kind::Folder) return Failure(EISDIR);
        if (const Node* target = Find(to); target && target->kind == Kind::Folder) return Failure(EISDIR);
        if (!IsFolder(Parent(Normal(to)))) return Failure(ENOENT);
        Node moved{node->kind, node->content};
        nodes.erase(Normal(from));
        nodes[Normal(to)] = std::move(moved);
        return Platform::Result::Success();
    }

    Platform::ValueOr<std::vector<std::string>> List(const std::string& directory) override {
        if (const auto result = Record({"List", directory, {}, {}}); !result) return result;
        std::lock_guard guard(mutex);
        const std::string folder = Normal(directory);
        if (!IsFolder(folder)) return Failure(Find(directory) ? ENOTDIR : ENOENT);
        std::vector<std::string> names;
        for (const auto& [path, node] : nodes) {
            if (Parent(path) == folder) names.push_back(path.substr(path.rfind('/') + 1));
        }
        return names;
    }

    Platform::Result CreateDirectories(
        const std::string& directory,
        Platform::Durability durability = Platform::Durability::Unsynced) override {
        if (const auto result = Record({"CreateDirectories", directory, {}, durability}); !result)
            return result;
        std::lock_guard guard(mutex);
        if (directory.empty()) return Failure(ENOENT);
        return MakeFolders(Normal(directory)) ? Platform::Result::Success() : Failure(ENOTDIR);
    }

    // What a test prepares and looks at; none of it is recorded.

    /// Puts a file there, and the folders above it.
    void Put(const std::string& path, const std::string& content) { Place(path, {Kind::File, content}); }
    void PutFolder(const std::string& path) { Place(path, {Kind::Folder, {}}); }
    /// A symbolic link; where it leads plays no part.
    void PutLink(const std::string& path) { Place(path, {Kind::Link, {}}); }
    void PutDevice(const std::string& path) { Place(path, {Kind::Device, {}}); }

    /// The content of a file; nothing if there is no such file.
    std::optional<std::string> Content(const std::string& path) const {
        std::lock_guard guard(mutex);
        const auto at = nodes.find(Normal(path));
        if (at == nodes.end() || at->second.kind != Kind::File) return std::nullopt;
        return at->second.content;
    }

    bool Exists(const std::string& path) const {
        std::lock_guard guard(mutex);
        return nodes.count(Normal(path)) != 0;
    }

    /// All files with their contents, by path.
    std::map<std::string, std::string> Contents() const {
        std::lock_guard guard(mutex);
        std::map<std::string, std::string> contents;
        for (const auto& [path, node] : nodes) {
            if (node.kind == Kind::File) contents[path] = node.content;
        }
        return contents;
    }

    /// Replacements that were begun and neither completed nor destroyed.
    int OpenReplacements() const {
        std::lock_guard guard(mutex);
        return openReplacements;
    }

private:
    enum class Kind { File, Folder, Link, Device };
    struct Node {
        Kind kind = Kind::File;
        std::string content;
        TimePoint changed = Platform::Clock().Now();
    };

    class Replacement : public Platform::IFileReplacement {
    public:
        Replacement(MemoryFiles& files, std::string path, std::uint64_t size, Platform::Durability durability)
            : files(files), path(std::move(path)), size(size), durability(durability) {}
        ~Replacement() override {
            std::lock_guard guard(files.mutex);
            --files.openReplacements;
        }

        Platform::Result Complete(std::string_view data) override {
            if (const auto result = files.Record({"Complete", path, {}, durability}); !result) return result;
            std::lock_guard guard(files.mutex);
            if (data.size() != size) return Failure(EINVAL);
            if (const int error = files.ErrorToPlace(path)) return Failure(error);
            files.nodes[Normal(path)] = {Kind::File, std::string(data)};
            return Platform::Result::Success();
        }

    private:
        MemoryFiles& files;
        const std::string path;
        const std::uint64_t size;
        const Platform::Durability durability;
    };

    static Platform::Result Failure(int error) { return Platform::Result::Failure(error); }

    static int ErrorOf(Kind kind) {
        if (kind == Kind::Folder) return EISDIR;
        return kind == Kind::Link ? ELOOP : EINVAL;
    }

    static std::string Normal(const std::string& path) {
        std::string normal = path;
        for (std::size_t at = 0; (at = normal.find("//", at)) != std::string::npos;)
            normal.erase(at, 1);
        while (normal.starts_with("./"))
            normal.erase(0, 2);
        if (normal.size() > 1 && normal.ends_with('/')) normal.pop_back();
        return normal;
    }

    static std::string Parent(const std::string& normal) {
        const std::size_t separator = normal.rfind('/');
        if (separator == std::string::npos) return ".";
        return separator == 0 ? "/" : normal.substr(0, separator);
    }

    static bool IsAlwaysThere(const std::string& normal) { return normal == "/" || normal == "."; }

    const Node* Find(const std::string& path) const {
        static const Node folder{Kind::Folder, {}};
        const std::string normal = Normal(path);
        if (IsAlwaysThere(normal)) return &folder;
        const auto at = nodes.find(normal);
        return at == nodes.end() ? nullptr : &at->second;
    }

    bool IsFolder(const std::string& path) const {
        const Node* node = Find(path);
        return node && node->kind == Kind::Folder;
    }

    /// 0 if a file may be put there.
    int ErrorToPlace(const std::string& path) const {
        const Node* node = Find(path);
        if (node && node->kind != Kind::File) return ErrorOf(node->kind);
        const std::string parent = Parent(Normal(path));
        if (IsFolder(parent)) return 0;
        return Find(parent) ? ENOTDIR : ENOENT;
    }

    bool MakeFolders(const std::string& normal) {
        if (const Node* node = Find(normal)) return node->kind == Kind::Folder;
        if (!MakeFolders(Parent(normal))) return false;
        nodes[normal] = {Kind::Folder, {}};
        return true;
    }

    void Place(const std::string& path, Node node) {
        std::lock_guard guard(mutex);
        MakeFolders(Parent(Normal(path)));
        nodes[Normal(path)] = std::move(node);
    }

    mutable std::mutex mutex;
    // Guarded by mutex:
    std::map<std::string, Node> nodes;
    int openReplacements = 0;
};

}  // namespace Ombry::Tests
