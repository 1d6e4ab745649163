// Many machines at one time. scripts/rehearse does it with a thousand.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/LeftOut.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

TEST(RehearsalTest, MachinesThatEnrollAtOnceAllSucceedAlthoughMoreCallThanAreServedAtOnce) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("all machines of one Windows are one");
    constexpr std::size_t Machines = 24;
    Sandbox sandbox({"--threads", "4"});
    std::vector<std::unique_ptr<Machine>> machines;
    for (std::size_t i = 0; i < Machines; ++i)
        machines.push_back(std::make_unique<Machine>());
    const auto runAll = [&](const auto& wordsOf) {
        std::vector<std::unique_ptr<ChildProcess>> running;
        for (std::size_t i = 0; i < Machines; ++i) {
            Words words = ToolUnderTest::Here();
            const Words command = wordsOf(i);
            words.insert(words.end(), command.begin(), command.end());
            running.push_back(std::make_unique<ChildProcess>(
                words, ProcessOptions{.folder = machines[i]->Folder().Path()}));
        }
        for (const auto& process : running)
            ExpectSuccess(process->Wait());
    };
    runAll([&](std::size_t) {
        return Words{
            "configure-bootstrap-url", "-u", "admin", "-p", "secret", "-dn", "Sandbox", "-r", sandbox.Url()};
    });
    runAll([](std::size_t i) {
        return Words{"enroll-client", "-u", "admin", "-p", "secret", "-nn", "client-" + std::to_string(i)};
    });
    const std::string requests = sandbox.Requests();
    std::size_t enrolled = 0;
    for (std::size_t at = 0; (at = requests.find("/locationawareclients 201\n", at)) != std::string::npos;
         ++at)
        ++enrolled;
    EXPECT_EQ(enrolled, Machines);
    EXPECT_FALSE(std::regex_search(requests, std::regex(" [45][0-9][0-9]\n"))) << requests;
}

}  // namespace
}  // namespace Ombry::Tests
