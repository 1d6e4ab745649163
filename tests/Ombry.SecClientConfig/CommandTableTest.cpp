#include "Ombry.SecClientConfig/CommandTable.h"
#include "Ombry.SecClientConfig/ConfigureBootstrapUrl.h"
#include "Ombry.SecClientConfig/EnrollClient.h"
#include "Ombry.SecClientConfig/EnrollService.h"
#include "Ombry.SecClientConfig/GetDatacenters.h"
#include "Ombry.SecClientConfig/Help.h"
#include "Ombry.SecClientConfig/RunTool.h"
#include "Ombry.SecClientConfig/UnenrollClient.h"
#include "Ombry.SecClientConfig/UnenrollClientSelf.h"
#include "Ombry.SecClientConfig/UnenrollService.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace Ombry::Tests {
namespace {

using namespace SecClientConfig;

class NamedCommand : public Command {
public:
    explicit NamedCommand(std::string word) : word(std::move(word)) {}
    std::string& Name(std::string& out) override { return out = word; }
    int Usage(bool) override { return 0; }
    int Execute(int, char**) override { return 0; }

private:
    const std::string word;
};

class CommandTableTest : public testing::Test {
protected:
    CommandTableTest() { Commands().clear(); }
    ~CommandTableTest() override { Commands().clear(); }

    static std::vector<std::string> Words() {
        std::vector<std::string> words;
        for (const auto& [word, command] : Commands())
            words.push_back(word);
        return words;
    }
};

TEST_F(CommandTableTest, StoresACommandUnderTheWordThatItNames) {
    const auto command = std::make_shared<NamedCommand>("word");

    RegisterCommand(command);

    EXPECT_EQ(Words(), (std::vector<std::string>{"word"}));
    EXPECT_EQ(Commands().at("word"), command);
}

TEST_F(CommandTableTest, SecondRegistrationOfAWordReplacesTheFirst) {
    const auto second = std::make_shared<NamedCommand>("word");
    RegisterCommand(std::make_shared<NamedCommand>("word"));

    RegisterCommand(second);

    EXPECT_EQ(Commands().size(), 1u);
    EXPECT_EQ(Commands().at("word"), second);
}

TEST_F(CommandTableTest, IsOrderedByBytesOfTheWord) {
    for (const std::string word : {"b", "a-b", "\xc3\xa4", "B", "ab", "a"})
        RegisterCommand(std::make_shared<NamedCommand>(word));

    EXPECT_EQ(Words(), (std::vector<std::string>{"B", "a", "a-b", "ab", "b", "\xc3\xa4"}));
}

TEST_F(CommandTableTest, IsOneForTheWholeProcess) {
    EXPECT_EQ(&Commands(), &Commands());
}

TEST_F(CommandTableTest, HoldsTheEightCommandsOfTheTool) {
    RegisterCommands();

    EXPECT_EQ(Words(), (std::vector<std::string>{"configure-bootstrap-url", "enroll-client", "enroll-service",
                                                 "get-datacenters", "help", "unenroll-client",
                                                 "unenroll-client-self", "unenroll-service"}));
    EXPECT_TRUE(std::dynamic_pointer_cast<ConfigureBootstrapUrl>(Commands().at("configure-bootstrap-url")));
    EXPECT_TRUE(std::dynamic_pointer_cast<EnrollClient>(Commands().at("enroll-client")));
    EXPECT_TRUE(std::dynamic_pointer_cast<EnrollService>(Commands().at("enroll-service")));
    EXPECT_TRUE(std::dynamic_pointer_cast<GetDatacenters>(Commands().at("get-datacenters")));
    EXPECT_TRUE(std::dynamic_pointer_cast<Help>(Commands().at("help")));
    EXPECT_TRUE(std::dynamic_pointer_cast<UnenrollClient>(Commands().at("unenroll-client")));
    EXPECT_TRUE(std::dynamic_pointer_cast<UnenrollClientSelf>(Commands().at("unenroll-client-self")));
    EXPECT_TRUE(std::dynamic_pointer_cast<UnenrollService>(Commands().at("unenroll-service")));
}

TEST_F(CommandTableTest, NameStoresTheWordAndReturnsTheSameString) {
    RegisterCommands();
    for (const auto& [word, command] : Commands()) {
        std::string out = "before";
        EXPECT_EQ(&command->Name(out), &out);
        EXPECT_EQ(out, word);
    }
}

TEST(CommandTest, IsDestroyedThroughItsBase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Command>);
}

}  // namespace
}  // namespace Ombry::Tests
