// The key-value storage of tokens and discovery answers: whole operations on the file system of the temporary
// folder, and what more threads on other keys gain.

#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "bench/Measurement.h"

#include <benchmark/benchmark.h>

#include <string>

namespace Ombry::Bench {
namespace {

using ClientCommunications::DirectoryKeyValueStorage;

/// As long as a token with what is kept beside it.
const std::string Value(700, 'v');

struct Storage {
    TemporaryFolder folder;
    DirectoryKeyValueStorage storage{folder.Path("entries")};
};

DirectoryKeyValueStorage& Shared() {
    static Storage shared;
    return shared.storage;
}

std::string KeyOf(const benchmark::State& state) {
    return "service-" + std::to_string(state.thread_index());
}

void StorageGet(benchmark::State& state) {
    const std::string key = KeyOf(state);
    Shared().SetByKey(key, Value);
    for (auto _ : state) {
        if (Shared().GetByKey(key) != Value) state.SkipWithError("The value was lost.");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StorageGet)->Threads(1)->Threads(4)->UseRealTime();

void StorageSet(benchmark::State& state) {
    const std::string key = KeyOf(state);
    for (auto _ : state)
        Shared().SetByKey(key, Value);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StorageSet)->Threads(1)->Threads(4)->UseRealTime();

/// A key that is not there costs the recovery of a crash, which finds nothing.
void StorageMiss(benchmark::State& state) {
    for (auto _ : state) {
        if (!Shared().GetByKey("never written").empty()) state.SkipWithError("There is a value.");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(StorageMiss)->UseRealTime();

}  // namespace
}  // namespace Ombry::Bench
