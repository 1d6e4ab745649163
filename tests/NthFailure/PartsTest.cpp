// Parts that the commands hardly pass, with each allocation failing: what they would say, or that memory
// lacks.

#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"
#include "ObjectMapping/Serialization.h"
#include "Platform/IMachineProtection.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/NthFailure/FailingPlatform.h"
#include "tests/NthFailure/StarvedRun.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Ombry::Tests {
namespace {

using ClientCommunications::Service;
using ClientCommunications::ServiceDto;

/// Longer than what a string holds in itself.
std::string Long(const std::string& text) {
    return text + std::string(40, '.');
}

ServiceDto LongService() {
    ServiceDto dto;
    dto.id = Long("id");
    dto.endpointUrl = Long("url");
    dto.serviceHostname = Long("host");
    dto.serviceName = Long("name");
    dto.serviceNamespace = Long("namespace");
    return dto;
}

TEST(NthFailureOfPartsTest, ServicesAreComparedOrMemoryLacks) {
    const Service one(LongService());
    const Service same(LongService());
    FailEach(NthFailure::Of::Allocation, 0, [&](const NthFailure::Plan& plan) {
        bool areEqual = false;
        bool lacksMemory = false;
        bool happened = false;
        {
            const NthFailure failure(plan);
            try {
                areEqual = one.Equals(same);
            } catch (const std::bad_alloc&) {
                lacksMemory = true;
            }
            happened = failure.HasHappened();
        }
        EXPECT_EQ(lacksMemory, happened);
        EXPECT_EQ(areEqual, !happened);
        return happened;
    });
}

TEST(NthFailureOfPartsTest, AHeaderIsSetOrAllStandAsTheyWere) {
    const std::string before = Long("before"), after = Long("after");
    for (const std::string& name : {Long("new"), std::string("held")}) {
        FailEach(NthFailure::Of::Allocation, 0, [&](const NthFailure::Plan& plan) {
            ClientCommunications::ServiceRequest request("GET", "/", "1");
            request.SetHeader("held", before);
            bool happened = false;
            {
                const NthFailure failure(plan);
                try {
                    request.SetHeader(name, after);
                } catch (const std::bad_alloc&) {
                }
                happened = failure.HasHappened();
            }
            std::string headers;
            request.ForEachHeader([&](const std::string& key, const std::string& value) {
                if (key != "Contract-Version") headers += key + ": " + value + "\n";
            });
            const std::string held = "held: " + before + "\n";
            const std::string set = name + ": " + after + "\n";
            EXPECT_EQ(headers, happened ? held : name == "held" ? set : held + set);
            return happened;
        });
    }
}

/// Whether what was planned has happened: then the part lacked memory, otherwise it threw this text.
template <class Part>
bool ThrowsItsTextOrLacksMemory(const NthFailure::Plan& plan, const std::string& text, Part part) {
    bool isItsText = false;
    bool lacksMemory = false;
    const NthFailure failure(plan);
    try {
        part();
    } catch (const std::bad_alloc&) {
        lacksMemory = true;
    } catch (const std::runtime_error& error) {
        const NthFailure::Pause pause;
        isItsText = error.what() == text;
    }
    const NthFailure::Pause pause;
    EXPECT_EQ(lacksMemory, failure.HasHappened());
    EXPECT_EQ(isItsText, !failure.HasHappened());
    return failure.HasHappened();
}

/// Refuses everything, with advice.
class RefusingProtection : public Platform::IMachineProtection {
public:
    using Outcome = Platform::ValueOr<std::optional<std::string>>;

    Outcome Protect(std::string_view, std::string_view, std::uint32_t) override {
        return Platform::Result::Failure(5);
    }
    Outcome Unprotect(std::string_view, std::string_view, std::uint32_t) override {
        return Platform::Result::Failure(5);
    }
    std::string_view Remedy(int) const override { return "Do what helps against refusals of this kind"; }
};

TEST(NthFailureOfPartsTest, RefusedProtectionIsToldWithItsRemedyOrMemoryLacks) {
    RefusingProtection refusing;
    const Platform::Testing::Replace<Platform::IMachineProtection> replaced(refusing);
    ClientCommunications::WindowsPersistableDataProtection protection("entropy", false);
    std::string secret = "secret";
    FailEach(NthFailure::Of::Allocation, 0, [&](const NthFailure::Plan& plan) {
        return ThrowsItsTextOrLacksMemory(
            plan, "CryptUnprotectData failed with error 5. Do what helps against refusals of this kind",
            [&] { protection.Unprotect(secret); });
    });
    EXPECT_EQ(secret, "secret");
}

TEST(NthFailureOfPartsTest, NetworkThatIsCutPassesTheBytesBeforeTheCutAndNoOther) {
    using Of = NthFailure::Of;
    const auto afterReceiving = [](Of what) {
        ScriptedSockets sockets;
        const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
        FailingPlatform platform{{.sockets = true}};
        const Platform::SocketHandle socket = sockets.AddConnected();
        sockets.Deliver(socket, "0123456789");
        const NthFailure failure({.what = what, .n = 4});
        char room[16];
        EXPECT_EQ(Platform::Sockets().Receive(socket, room, sizeof room).count, 4);
        EXPECT_EQ(std::string_view(room, 4), "0123");
        return Platform::Sockets().Receive(socket, room, sizeof room);
    };
    EXPECT_EQ(afterReceiving(Of::ReceivedByte).error, ECONNRESET);
    EXPECT_EQ(afterReceiving(Of::LastByte).count, 0);
    EXPECT_EQ(afterReceiving(Of::SilentByte).error, Platform::ErrorWouldBlock);

    ScriptedSockets sockets;
    const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
    FailingPlatform platform{{.sockets = true}};
    const Platform::SocketHandle socket = sockets.AddConnected();
    const NthFailure failure({.what = Of::SentByte, .n = 4});
    EXPECT_EQ(Platform::Sockets().Send(socket, "0123456789", 10, false).count, 4);
    EXPECT_EQ(Platform::Sockets().Send(socket, "456789", 6, false).error, ECONNRESET);
    EXPECT_EQ(sockets.Sent(socket), "0123");
}

/// An object with one number.
class Numbered : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override { mapper.Field("number", number, nullptr); }
    void Reset() override { number = 0; }

    std::int32_t number = 0;
};

TEST(NthFailureOfPartsTest, TextWithAnotherTypeIsRefusedWithItsPathOrMemoryLacks) {
    const std::string text = R"({"number": "none, but a text that is long enough"})";
    std::string refusal;
    Numbered object;
    try {
        ObjectMapping::DeserializeObject(object, text, nullptr, true);
    } catch (const std::runtime_error& error) {
        refusal = error.what();
    }
    ASSERT_NE(refusal, "");
    FailEach(NthFailure::Of::Allocation, 0, [&](const NthFailure::Plan& plan) {
        return ThrowsItsTextOrLacksMemory(
            plan, refusal, [&] { ObjectMapping::DeserializeObject(object, text, nullptr, true); });
    });
}

}  // namespace
}  // namespace Ombry::Tests
