// Invariant: whatever the words are, reading them ends, and
//   - a target holds the first non-empty value that stands behind exactly its name, all other faults
//   regardless;
//   - the words are accepted if and only if they come in pairs, every name is known, none is repeated that
//   has a
//     value already, and exactly one identity results;
//   - the error stream stays empty if they are accepted or odd in number; otherwise it holds one message a
//   fault,
//     in their order, and a blank line.
//
// The input is the words, with a NUL behind each.

#include "Ombry.SecClientConfig/CommandOptions.h"
#include "fuzz/Require.h"
#include "tests/Fakes/CapturedOutput.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

using namespace Ombry::SecClientConfig;
using Ombry::Fuzz::Require;

namespace {

std::vector<std::string> Words(const std::string& input) {
    std::vector<std::string> words = {"tool", "command"};
    for (std::size_t begin = 0; begin < input.size();) {
        const std::size_t end = std::min(input.find('\0', begin), input.size());
        words.push_back(input.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

/// What the words mean, told a second time without the code under test.
struct Expected {
    std::map<std::string, std::string> values = {{"-u", ""}, {"-p", ""}, {"-n", ""}, {"-t", ""}, {"-nn", ""}};
    std::string messages;

    explicit Expected(const std::vector<std::string>& words) {
        for (std::size_t i = 2; i < words.size(); i += 2) {
            const auto known = values.find(words[i]);
            if (known == values.end()) {
                messages += "ERROR: Unrecognized option " + words[i] + "\n";
            } else if (known->second.empty()) {
                known->second = words[i + 1];
            } else {
                messages += "ERROR: Option " + words[i] + " was specified more than once.\n";
            }
        }
        JudgeIdentity(!values["-u"].empty(), !values["-p"].empty(), !values["-n"].empty(),
                      !values["-t"].empty());
    }

    void JudgeIdentity(bool user, bool password, bool client, bool token) {
        if (!user && !password && !client && !token) {
            messages += "ERROR: No userName and password, client name or token was provided.\n";
        } else if (user != password) {
            messages +=
                "ERROR: When a userName or password is provided then the other must be provided as well.\n";
        } else if ((user && client) || (user && token) || (client && token)) {
            messages += "ERROR: Only one of username/password, client name or token is allowed.\n";
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> words = Words(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    std::string user, password, client, token, newName;
    const Ombry::Tests::CapturedOutput captured;
    const bool accepted =
        ReadOptions(static_cast<int>(words.size()), argv.data(),
                    {{"-u", user}, {"-p", password}, {"-n", client}, {"-t", token}, {"-nn", newName}},
                    [&](bool& error) { CheckIdentity(user, password, client, token, error); });

    Require(captured.Out().empty());
    if (words.size() % 2 != 0) {
        Require(!accepted && captured.Error().empty());
        Require((user + password + client + token + newName).empty());
        return 0;
    }
    Expected expected(words);
    Require(user == expected.values["-u"] && password == expected.values["-p"]);
    Require(client == expected.values["-n"] && token == expected.values["-t"]);
    Require(newName == expected.values["-nn"]);
    Require(accepted == expected.messages.empty());
    Require(captured.Error() == (accepted ? "" : expected.messages + "\n"));
    return 0;
}
