#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsFactory.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "Platform/SecureWipe.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/SystemProtection.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::ClientCredentials;
using ClientCommunications::ClientCredentialsFactory;
using ClientCommunications::IDataProtection;
using ClientCommunications::WindowsInMemoryDataProtection;
using testing::ElementsAre;

/// Reverses a text and records every call with the text it was given.
class Reversing : public IDataProtection {
public:
    void Protect(std::string& data) override {
        calls.push_back("Protect " + data);
        if (calls.size() == failAt) throw std::runtime_error("cannot protect");
        data = "~" + std::string(data.rbegin(), data.rend());
    }
    void Unprotect(std::string& data) override {
        calls.push_back("Unprotect " + data);
        if (calls.size() == failAt) throw std::runtime_error("cannot unprotect");
        data = std::string(data.rbegin(), data.rend() - 1);
    }
    std::vector<std::string> calls;
    std::size_t failAt = 0;
};

TEST(ClientCredentialsTest, ConstructorProtectsItsCopyOfTheIdAndThenOfTheSecret) {
    const auto protection = std::make_shared<Reversing>();
    const std::string name = "name", id = "abc", secret = "xyz";
    ClientCredentials credentials(protection, name, id, secret);

    EXPECT_THAT(protection->calls, ElementsAre("Protect abc", "Protect xyz"));
    EXPECT_EQ(id, "abc");
    EXPECT_EQ(secret, "xyz");
}

TEST(ClientCredentialsTest, GettersLayACopyBareAndTheMembersStayProtected) {
    const auto protection = std::make_shared<Reversing>();
    ClientCredentials credentials(protection, "name", "abc", "xyz");
    protection->calls.clear();

    EXPECT_EQ(credentials.GetName(), "name");
    EXPECT_THAT(protection->calls, ElementsAre());
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(credentials.GetClientId(), "abc");
        EXPECT_EQ(credentials.GetClientSecret(), "xyz");
    }
    EXPECT_THAT(protection->calls,
                ElementsAre("Unprotect ~cba", "Unprotect ~zyx", "Unprotect ~cba", "Unprotect ~zyx"));
}

TEST(ClientCredentialsTest, FailuresOfTheProtectionComeThrough) {
    for (std::size_t n = 1; n <= 2; ++n) {
        const auto protection = std::make_shared<Reversing>();
        protection->failAt = n;
        EXPECT_THROW(ClientCredentials(protection, "name", "abc", "xyz"), std::runtime_error);
        EXPECT_EQ(protection->calls.size(), n);
    }
    const auto protection = std::make_shared<Reversing>();
    ClientCredentials credentials(protection, "name", "abc", "xyz");
    protection->failAt = 3;
    EXPECT_THROW(credentials.GetClientSecret(), std::runtime_error);
    EXPECT_EQ(credentials.GetClientSecret(), "xyz");
}

TEST(ClientCredentialsTest, AnEmptySecretIsEmptyInMemoryToo) {
    FakeMemoryProtection memory;
    const Platform::Testing::Replace<Platform::IMemoryProtection> replaced(memory);
    ClientCredentials credentials(std::make_shared<WindowsInMemoryDataProtection>(), "n", "id", "");

    EXPECT_EQ(memory.calls.size(), 1u);
    EXPECT_EQ(credentials.GetClientSecret(), "");
    EXPECT_EQ(memory.calls.size(), 1u);
}

TEST(ClientCredentialsTest, AnObjectHoldsNoPlainIdAndNoPlainSecret) {
    // Short texts lie in the object itself, so that its own bytes show them.
    const ClientCredentials credentials(std::make_shared<WindowsInMemoryDataProtection>(), "n", "client-id",
                                        "plain-secret");
    const std::string bytes(reinterpret_cast<const char*>(&credentials), sizeof credentials);
    EXPECT_EQ(bytes.find("secret"), std::string::npos);
    EXPECT_EQ(bytes.find("client"), std::string::npos);
}

TEST(ClientCredentialsTest, MakingCredentialsLeavesNoPlainValueInFreedMemory) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    const std::string id = "an id too long for a string object";
    const std::string secret = "a secret too long for a string object";
    ClientCredentialsFactory factory(std::make_shared<WindowsInMemoryDataProtection>());
    for (const std::string& plain : {id, secret}) {
        const FreedMemory freed(plain);
        const auto credentials = factory.Create("n", id, secret);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << plain;
    }
}

/// Fails at the n-th call, and leaves every text as it is.
class BrokenProtection : public IDataProtection {
public:
    explicit BrokenProtection(int failAt) : callsLeft(failAt) {}
    void Protect(std::string&) override {
        if (--callsLeft == 0) throw std::runtime_error("cannot protect");
    }
    void Unprotect(std::string&) override {}

private:
    int callsLeft;
};

TEST(ClientCredentialsTest, CredentialsThatCannotBeProtectedLeaveNoPlainValueInFreedMemory) {
    const std::string id = "an id too long for a string object";
    const std::string secret = "a secret too long for a string object";
    const auto failAt = [&](int n, const std::string& plain) {
        const FreedMemory freed(plain);
        EXPECT_THROW(ClientCredentials(std::make_shared<BrokenProtection>(n), "n", id, secret),
                     std::runtime_error);
        return freed.BlocksWithTheSecret();
    };

    EXPECT_EQ(failAt(1, id), 0u);
    EXPECT_EQ(failAt(1, secret), 0u);
    EXPECT_EQ(failAt(2, secret), 0u);
}

TEST(ClientCredentialsTest, TheCallersCopyIsTheOnlyOneThatAGetterLeaves) {
    const std::string id = "an id too long for a string object";
    const std::string secret = "a secret too long for a string object";
    ClientCredentials credentials(std::make_shared<WindowsInMemoryDataProtection>(), "n", id, secret);
    for (const std::string& plain : {id, secret}) {
        const FreedMemory freed(plain);
        std::string copy = plain == id ? credentials.GetClientId() : credentials.GetClientSecret();
        EXPECT_EQ(copy, plain);
        Platform::SecureWipe(copy);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << plain;
    }
}

TEST(ClientCredentialsFactoryTest, MakesCredentialsUnderItsOneProtection) {
    const auto protection = std::make_shared<Reversing>();
    ClientCredentialsFactory factory(protection);

    const auto first = factory.Create("one", "a", "b");
    const auto second = factory.Create("two", "c", "d");

    EXPECT_THAT(protection->calls, ElementsAre("Protect a", "Protect b", "Protect c", "Protect d"));
    EXPECT_EQ(first->GetName() + first->GetClientId() + first->GetClientSecret(), "oneab");
    EXPECT_EQ(second->GetName() + second->GetClientId() + second->GetClientSecret(), "twocd");
}

}  // namespace
}  // namespace Ombry::Tests
