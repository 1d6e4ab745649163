#pragma once

#include "ClientCommunications/IKeyValueStorage.h"

#include <exception>
#include <map>
#include <mutex>
#include <vector>

namespace Ombry::Tests {

/// A key-value storage in memory, with keys as entry names. It keeps what was asked of it as texts: "get
/// KEY", "set KEY", "remove KEY".
class MemoryKeyValueStorage : public ClientCommunications::IKeyValueStorage {
public:
    std::string GetByKey(const std::string& key) override {
        std::lock_guard guard(mutex);
        operations.push_back("get " + key);
        const auto found = values.find(key);
        return found == values.end() ? std::string() : found->second;
    }

    std::string GetEntry(const std::string& entryName) override { return GetByKey(entryName); }

    void SetByKey(const std::string& key, const std::string& value) override {
        std::lock_guard guard(mutex);
        operations.push_back("set " + key);
        if (setFailure) std::rethrow_exception(setFailure);
        values[key] = value;
    }

    void RemoveByKey(const std::string& key) override {
        std::lock_guard guard(mutex);
        operations.push_back("remove " + key);
        values.erase(key);
    }

    void RemoveEntry(const std::string& entryName) override { RemoveByKey(entryName); }

    std::set<std::string> getEntriesNames() override {
        std::lock_guard guard(mutex);
        std::set<std::string> names;
        for (const auto& [name, value] : values)
            names.insert(name);
        return names;
    }

    /// Makes every later write throw.
    void FailSetting(std::exception_ptr failure) {
        std::lock_guard guard(mutex);
        setFailure = std::move(failure);
    }

    std::map<std::string, std::string> Values() const {
        std::lock_guard guard(mutex);
        return values;
    }

    std::vector<std::string> Operations() const {
        std::lock_guard guard(mutex);
        return operations;
    }

    /// Puts a value there without a trace among the operations.
    void Put(const std::string& key, const std::string& value) {
        std::lock_guard guard(mutex);
        values[key] = value;
    }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::map<std::string, std::string> values;
    std::vector<std::string> operations;
    std::exception_ptr setFailure;
};

}  // namespace Ombry::Tests
