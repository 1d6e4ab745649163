// The tool with its state here, held back ahead of its last change of a file until each of its background
// threads has done a whole round of its work. The n-th operation of such a thread on a file whose path holds
// a given text kills the process before it has any effect:
//
//     tool KILL-AT-PATH KILL-AT-NUMBER NUMBER-OF-THREADS ARGUMENTS...

#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "Platform/IClock.h"
#include "tests/Fakes/FaultyFiles.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <thread>

namespace Ombry::Tests {
namespace {

bool IsMainThread() {
    return gettid() == getpid();
}

/// Brings the background threads to work, and knows when they have done it. They are known by their seeds,
/// and at rest while they wait for a minute or longer.
class BackgroundRound : public Platform::IClock, public SecClientConfig::SeedsHere {
public:
    explicit BackgroundRound(std::size_t threads) : threads(threads) {}

    /// Returns when every thread has come to rest, was woken half a day later, and has come to rest again.
    void Run() {
        std::unique_lock guard(mutex);
        AwaitRest(guard, 1);
        later = std::chrono::hours(13);
        const auto woken = resting;
        guard.unlock();
        for (const auto& [thread, rest] : woken) {
            std::lock_guard waiting(*rest.mutex);
            rest.condition->notify_all();
        }
        guard.lock();
        AwaitRest(guard, 2);
    }

    std::uint32_t SeedWord() override {
        std::lock_guard guard(mutex);
        if (!IsMainThread()) resting.try_emplace(std::this_thread::get_id());
        return SeedsHere::SeedWord();
    }

    TimePoint Now() override { return real.Now(); }
    Duration SteadyNow() override {
        std::lock_guard guard(mutex);
        return real.SteadyNow() + later;
    }
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        if (atMost >= std::chrono::minutes(1)) NoteRest(condition, *lock.mutex());
        real.Wait(condition, lock, atMost);
    }
    void Sleep(Duration slice) override { real.Sleep(slice); }

private:
    struct Rest {
        int times = 0;
        std::condition_variable* condition = nullptr;
        std::mutex* mutex = nullptr;
    };

    void NoteRest(std::condition_variable& condition, std::mutex& itsMutex) {
        std::lock_guard guard(mutex);
        const auto found = resting.find(std::this_thread::get_id());
        if (found == resting.end()) return;
        found->second = {found->second.times + 1, &condition, &itsMutex};
        changed.notify_all();
    }

    void AwaitRest(std::unique_lock<std::mutex>& guard, int times) {
        changed.wait(guard, [&] {
            return resting.size() == threads &&
                   std::all_of(resting.begin(), resting.end(),
                               [&](const auto& one) { return one.second.times >= times; });
        });
    }

    const std::size_t threads;
    Platform::IClock& real = Platform::Production<Platform::IClock>();
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex:
    std::map<std::thread::id, Rest> resting;
    Duration later{};
};

int Run(const std::string& path, int number, std::size_t threads, int argc, char** argv) {
    BackgroundRound round(threads);
    FaultyFiles files;
    std::atomic<int> count = 0;
    bool isHeldBack = false;
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (!IsMainThread()) {
            if (operation.path.find(path) != std::string::npos && ++count == number) kill(getpid(), SIGKILL);
        } else if (!isHeldBack && operation.path.find("/Components/") != std::string::npos &&
                   (operation.name == "BeginReplace" || operation.name == "Remove")) {
            isHeldBack = true;
            round.Run();
        }
        return std::nullopt;
    });
    SecClientConfig::FoldersHere folders;
    const Platform::Testing::Replace<Platform::IKnownFolders> foldersReplaced(folders);
    const Platform::Testing::Replace<Platform::IRandom> randomReplaced(round);
    const Platform::Testing::Replace<Platform::IClock> clockReplaced(round);
    const Platform::Testing::Replace<Platform::IFiles> filesReplaced(files);
    return SecClientConfig::RunTool(argc, argv);
}

}  // namespace
}  // namespace Ombry::Tests

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const std::string path = argv[1];
    const int number = std::stoi(argv[2]);
    const std::size_t threads = std::stoul(argv[3]);
    argv[3] = argv[0];
    return Ombry::Tests::Run(path, number, threads, argc - 3, argv + 3);
}
