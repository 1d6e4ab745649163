#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "tests/Fakes/AllocationCount.h"
#include "tests/Fakes/GroupingLocale.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <set>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSocketConnector;
using Platform::FamilyIPv4;
using Platform::FamilyIPv6;
using Platform::InvalidSocket;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

std::string Number(int n) {
    return std::to_string(n);
}
const std::string V4 = Number(FamilyIPv4);
const std::string V6 = Number(FamilyIPv6);
const std::string StreamTcp = Number(Platform::SocketTypeStream) + ", " + Number(Platform::ProtocolTcp);
const std::string Any = Number(Platform::FamilyUnspecified);

class ZephSocketConnectorTest : public ::testing::Test {
protected:
    ZephSocketConnectorTest() {
        sockets.Resolve("one", {ScriptedSockets::Address(FamilyIPv4, "10.0.0.1", "443")});
        sockets.Resolve("two", {ScriptedSockets::Address(FamilyIPv4, "10.0.0.1", "443"),
                                ScriptedSockets::Address(FamilyIPv6, "2001:db8::1", "443")});
        sockets.Resolve("nothing", {});
    }
    std::uint32_t Connect(const char* pHost, const char* pBindAddress = nullptr,
                          std::uint16_t nBindPort = 0) {
        return connector.Connect(pHost, 443, 3, pBindAddress, nBindPort);
    }
    void Script(int error, bool bWritable = true, bool bExceptional = false, int socketError = 0) {
        sockets.OnConnect("10.0.0.1:443", {error, bWritable, bExceptional, socketError});
    }
    // The one attempt failed: its log line, nothing left open, the library released.
    void ExpectFailed(int nLevel, const std::string& message) {
        EXPECT_FALSE(connector.IsConnected());
        EXPECT_EQ(connector.GetSocket(), InvalidSocket);
        EXPECT_EQ(connector.GetPeerAddress(), "");
        EXPECT_EQ(sockets.OpenSockets(), 0u);
        EXPECT_EQ(sockets.CallsOf("Close"), sockets.CallsOf("Create") - createFailures);
        EXPECT_EQ(sockets.CallsOf("Startup"), 1u);
        EXPECT_EQ(sockets.CallsOf("Cleanup"), 1u);
        ASSERT_EQ(logger->Entries().size(), 2u);
        EXPECT_EQ(logger->Entries()[0].message, message);
        EXPECT_EQ(logger->Entries()[0].level, nLevel);
        EXPECT_EQ(logger->Entries()[1].message, "Failed to connect to server 'one:443'");
        EXPECT_EQ(logger->Entries()[1].level, 3);
        EXPECT_EQ(logger->Entries()[1].function, "OmbryZephCore::ZephSocketConnector::Connect");
    }

    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replaced{sockets};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
    ZephSocketConnector connector{logger};
    std::size_t createFailures = 0;
};

// --- The good road ---

TEST_F(ZephSocketConnectorTest, ANewConnectorHasNoSocketAndClosesNothing) {
    EXPECT_FALSE(connector.IsConnected());
    EXPECT_EQ(connector.GetSocket(), -1);
    EXPECT_EQ(connector.GetPeerAddress(), "");
    connector.Close();
    EXPECT_THAT(sockets.Calls(), IsEmpty());
}

TEST_F(ZephSocketConnectorTest, ConnectTakesTheseStepsInThisOrder) {
    EXPECT_EQ(Connect("one"), 0u);
    EXPECT_THAT(
        sockets.Calls(),
        ElementsAre("Startup(2)", "GetAddressInfo(one, 443, 0, " + Any + ", " + StreamTcp + ")",
                    "Create(" + V4 + ", " + StreamTcp + ")", "SetNonBlocking(100, 1)",
                    "Connect(100, 10.0.0.1:443)", "Select(-, {100}, {100}, 3000)", "GetSocketError(100)",
                    "SetNonBlocking(100, 0)", "NumericNameOf(10.0.0.1:443, 46, 6)"));
    EXPECT_TRUE(connector.IsConnected());
    EXPECT_EQ(connector.GetSocket(), 100);
    EXPECT_EQ(connector.GetPeerAddress(), "10.0.0.1:443");
    EXPECT_FALSE(sockets.IsNonBlocking(100));
    EXPECT_EQ(sockets.LibraryReferences(), 1);
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephSocketConnectorTest, AConnectThatSucceedsAtOnceNeedsNoWait) {
    Script(0);
    EXPECT_EQ(Connect("one"), 0u);
    EXPECT_EQ(sockets.CallsOf("Select"), 0u);
    EXPECT_EQ(sockets.CallsOf("GetSocketError"), 0u);
    EXPECT_FALSE(sockets.IsNonBlocking(100));
}

TEST_F(ZephSocketConnectorTest, BothNumbersOfAConnectThatGoesOnLeadToTheWait) {
    for (int error : {10035, 10036}) {
        sockets.ClearCalls();
        Script(error);
        EXPECT_EQ(Connect("one"), 0u) << error;
        EXPECT_EQ(sockets.CallsOf("Select"), 1u);
    }
}

TEST_F(ZephSocketConnectorTest, AnIPv6PeerIsPrintedInBrackets) {
    sockets.Resolve("six", {ScriptedSockets::Address(FamilyIPv6, "::1", "443")});
    EXPECT_EQ(Connect("six"), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "[::1]:443");
}

TEST_F(ZephSocketConnectorTest, APeerOfAnotherFamilyHasNoText) {
    sockets.Resolve("other", {ScriptedSockets::Address(1, "somewhere", "443")});
    EXPECT_EQ(Connect("other"), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "");
    EXPECT_TRUE(connector.IsConnected());
}

TEST_F(ZephSocketConnectorTest, APeerWhoseTextFailsOrDoesNotFitHasNoText) {
    sockets.FailNthCall("NumericNameOf", 1, -4);
    EXPECT_EQ(Connect("one"), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "");

    sockets.Resolve("zone", {ScriptedSockets::Address(FamilyIPv6, std::string(45, 'f'), "65535"),
                             ScriptedSockets::Address(FamilyIPv6, std::string(46, 'f'), "65535")});
    EXPECT_EQ(Connect("zone"), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "[" + std::string(45, 'f') + "]:65535");
    sockets.Resolve("zone", {ScriptedSockets::Address(FamilyIPv6, std::string(46, 'f'), "65535")});
    EXPECT_EQ(Connect("zone"), 0u);
    EXPECT_EQ(connector.GetPeerAddress(), "");
}

TEST_F(ZephSocketConnectorTest, ThePortIsResolvedAsDecimalText) {
    for (const auto& [nPort, text] :
         std::map<std::uint16_t, std::string>{{0, "0"}, {80, "80"}, {65535, "65535"}}) {
        sockets.ClearCalls();
        EXPECT_EQ(connector.Connect("host", nPort, 3, nullptr, 0), 0u);
        EXPECT_THAT(sockets.Calls(), ::testing::Contains("GetAddressInfo(host, " + text + ", 0, " + Any +
                                                         ", " + StreamTcp + ")"));
    }
}

// --- Several addresses ---

TEST_F(ZephSocketConnectorTest, TheNextAddressIsTriedAfterAFailureInTheResolversOrder) {
    Script(111);
    EXPECT_EQ(Connect("two"), 0u);
    EXPECT_THAT(
        sockets.Calls(),
        ElementsAre("Startup(2)", "GetAddressInfo(two, 443, 0, " + Any + ", " + StreamTcp + ")",
                    "Create(" + V4 + ", " + StreamTcp + ")", "SetNonBlocking(100, 1)",
                    "Connect(100, 10.0.0.1:443)", "NumericNameOf(10.0.0.1:443, 46, 6)", "Close(100)",
                    "Create(" + V6 + ", " + StreamTcp + ")", "SetNonBlocking(101, 1)",
                    "Connect(101, 2001:db8::1:443)", "Select(-, {101}, {101}, 3000)", "GetSocketError(101)",
                    "SetNonBlocking(101, 0)", "NumericNameOf(2001:db8::1:443, 46, 6)"));
    EXPECT_EQ(connector.GetSocket(), 101);
    EXPECT_EQ(connector.GetPeerAddress(), "[2001:db8::1]:443");
    EXPECT_EQ(sockets.LibraryReferences(), 1);
}

TEST_F(ZephSocketConnectorTest, TheFirstAddressThatConnectsEndsTheSearch) {
    EXPECT_EQ(Connect("two"), 0u);
    EXPECT_EQ(sockets.CallsOf("Create"), 1u);
    EXPECT_EQ(connector.GetPeerAddress(), "10.0.0.1:443");
}

TEST_F(ZephSocketConnectorTest, EachAddressHasTheWholeTimeOut) {
    std::vector<std::int64_t> waits;
    sockets.OnIdle([&](std::int64_t ms) { waits.push_back(ms); });
    Script(Platform::ErrorInProgress, false);
    EXPECT_EQ(Connect("two"), 0u);
    EXPECT_THAT(waits, ElementsAre(3000)) << "the unreachable address costs all of it";
    EXPECT_EQ(sockets.CallsOf("Select"), 2u);
    EXPECT_EQ(sockets.Calls()[11], "Select(-, {101}, {101}, 3000)");
    EXPECT_EQ(connector.GetPeerAddress(), "[2001:db8::1]:443");
    EXPECT_THAT(logger->Messages(), ElementsAre("Timed out attempting to connect to 10.0.0.1:443."));
}

TEST_F(ZephSocketConnectorTest, WhenEveryAddressFailsTheResultIsOneGeneralFailure) {
    Script(111);
    sockets.OnConnect("2001:db8::1:443", {101, true, false, 0});
    EXPECT_EQ(Connect("two"), 1u);
    EXPECT_THAT(logger->Messages(3), ElementsAre("Failed to connect to 10.0.0.1:443.  Last error = 111",
                                                 "Failed to connect to [2001:db8::1]:443.  Last error = 101",
                                                 "Failed to connect to server 'two:443'"));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(sockets.CallsOf("Close"), 2u);
    EXPECT_EQ(sockets.LibraryReferences(), 0);
    EXPECT_EQ(sockets.Calls().back(), "Cleanup()");
}

// --- Library and resolver ---

TEST_F(ZephSocketConnectorTest, ALibraryThatDoesNotStartIsReportedByItsNumber) {
    sockets.FailNthCall("Startup", 1, 10091);
    EXPECT_EQ(Connect("one"), 10091u);
    EXPECT_THAT(logger->Messages(3), ElementsAre("WSAStartup failed with error 10091"));
    EXPECT_EQ(logger->Entries().front().function, "OmbryZephCore::InitializeWinsock");
    EXPECT_THAT(sockets.Calls(), ElementsAre("Startup(2)"));
    EXPECT_FALSE(connector.IsConnected());
}

TEST_F(ZephSocketConnectorTest, AWrongLibraryVersionIsReportedByTheLastError) {
    sockets.OfferVersion(0x0101, 10092);
    EXPECT_EQ(Connect("one"), 10092u);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Incorrect winsock version 257 was returned.  Last error = 10092"));
    EXPECT_EQ(logger->Entries().front().function, "OmbryZephCore::InitializeWinsock");
    EXPECT_THAT(sockets.Calls(), ElementsAre("Startup(2)", "Cleanup()"));
}

TEST_F(ZephSocketConnectorTest, AWrongLibraryVersionWithLastErrorZeroGoesOnAsIfItHadStarted) {
    sockets.OfferVersion(0x0202, 0);
    EXPECT_EQ(Connect("one"), 0u);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("Incorrect winsock version 514 was returned.  Last error = 0"));
    EXPECT_TRUE(connector.IsConnected());
    EXPECT_EQ(sockets.Calls()[1], "Cleanup()");
    EXPECT_EQ(sockets.CallsOf("Cleanup"), 1u);
}

TEST_F(ZephSocketConnectorTest, AHostThatDoesNotResolveIsReported) {
    sockets.FailNthCall("GetAddressInfo", 1, -2);
    EXPECT_EQ(Connect("unknown"), 14u);
    EXPECT_THAT(logger->Messages(3), ElementsAre("getaddrinfo for (unknown, 443) failed with error -2"));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries().front().function, "OmbryZephCore::ResolveAddresses");
    EXPECT_EQ(sockets.Calls().back(), "Cleanup()");
    EXPECT_EQ(sockets.LibraryReferences(), 0);
    EXPECT_EQ(sockets.CallsOf("Create"), 0u);
}

TEST_F(ZephSocketConnectorTest, AHostWithoutAddressesIsReported) {
    EXPECT_EQ(Connect("nothing"), 14u);
    EXPECT_THAT(logger->Messages(3),
                ElementsAre("getaddrinfo for (nothing, 443) succeeded but pAddrInfo is NULL."));
    EXPECT_EQ(sockets.LibraryReferences(), 0);
    EXPECT_EQ(sockets.CallsOf("Create"), 0u);
}

TEST_F(ZephSocketConnectorTest, TheTraceListsEveryAddress) {
    auto traced = std::make_shared<RecordingLogger>(0);
    ZephSocketConnector tracing(traced);
    auto named = ScriptedSockets::Address(FamilyIPv4, "10.0.0.1", "443");
    named.flags = 2;
    named.canonicalName = "one.example";
    sockets.Resolve("traced", {named, ScriptedSockets::Address(FamilyIPv6, "::1", "443"),
                               ScriptedSockets::Address(FamilyIPv6, std::string(46, 'f'), "443")});
    EXPECT_EQ(tracing.Connect("traced", 443, 3, nullptr, 0), 0u);
    const std::string socket = ", ai_socktype=" + Number(Platform::SocketTypeStream) +
                               ", ai_protocol=" + Number(Platform::ProtocolTcp);
    EXPECT_THAT(
        traced->Messages(0),
        ElementsAre("getaddrinfo for (traced, 443) succeeded.  Got:\n"
                    "(ai_flags=2, ai_family=" +
                    V4 + socket + ", ai_addrlen=12, ai_canonname=one.example, ai_addr=10.0.0.1 443)\n" +
                    "(ai_flags=0, ai_family=" + V6 + socket +
                    ", ai_addrlen=7, ai_canonname=(null), ai_addr=::1 443)\n" + "(ai_flags=0, ai_family=" +
                    V6 + socket + ", ai_addrlen=50, ai_canonname=(null), ai_addr= )"));
    EXPECT_EQ(traced->Entries().size(), 1u);
}

TEST_F(ZephSocketConnectorTest, TheTraceWritesNumbersTheSameWhateverTheLocaleOfTheProcess) {
    const GroupingLocale grouping;
    ZephSocketConnector tracing(logger = std::make_shared<RecordingLogger>(0));
    EXPECT_EQ(tracing.Connect("one", 8443, 3, nullptr, 0), 0u);
    EXPECT_THAT(logger->Messages(0),
                ElementsAre(::testing::StartsWith("getaddrinfo for (one, 8443) succeeded.  Got:\n")));
}

TEST_F(ZephSocketConnectorTest, AddressTextsAreNotAskedForWithoutALogThatWantsThem) {
    Script(111);
    auto off = std::make_shared<RecordingLogger>(5);
    ZephSocketConnector quiet(off);
    EXPECT_EQ(quiet.Connect("one", 443, 3, nullptr, 0), 1u);
    EXPECT_THAT(off->Messages(), IsEmpty());
    ZephSocketConnector silent(nullptr);
    EXPECT_EQ(silent.Connect("one", 443, 3, nullptr, 0), 1u);
    EXPECT_EQ(silent.Connect("nothing", 443, 3, nullptr, 0), 14u);
    EXPECT_EQ(sockets.CallsOf("NumericNameOf"), 0u);
    EXPECT_EQ(sockets.LibraryReferences(), 0);
}

// --- Each step of an attempt failing ---

TEST_F(ZephSocketConnectorTest, EachFailureBearsItsFunctionAndALineOfItsOwn) {
    struct Case {
        const char* function;
        std::function<void()> prepare;
        const char* pBindAddress = nullptr;
    };
    const std::vector<Case> cases{
        {"CreateSocket", [&] { sockets.FailNthCall("Create", 1, 24); }},
        {"BindIfNecessary", [&] { sockets.FailNthCall("GetAddressInfo", 2, -2); }, "here"},
        {"BindIfNecessary", [] {}, "nothing"},
        {"BindIfNecessary", [&] { sockets.FailNthCall("Bind", 1, 98); }, "one"},
        {"SetNonBlockedMode", [&] { sockets.FailNthCall("SetNonBlocking", 1, 22); }},
        {"ConnectSocket", [&] { Script(111); }},
        {"WaitForConnect", [&] { sockets.FailNthCall("Select", 1, 5); }},
        {"WaitForConnect", [&] { sockets.FailNthCall("GetSocketError", 1, 9); }},
        {"WaitForConnect", [&] { Script(Platform::ErrorInProgress, true, false, 111); }},
    };
    std::set<int> lines;
    for (const Case& oneCase : cases) {
        SCOPED_TRACE(oneCase.function);
        sockets.ClearCalls();
        logger->Clear();
        Script(Platform::ErrorInProgress);
        oneCase.prepare();
        EXPECT_EQ(Connect("one", oneCase.pBindAddress), 1u);
        ASSERT_FALSE(logger->Entries().empty());
        const auto entry = logger->Entries().front();
        EXPECT_EQ(entry.function, std::string("OmbryZephCore::ZephConnectSocketHelper::") + oneCase.function);
        EXPECT_EQ(entry.file, SourcePath("OmbryZephCore/ZephSocketConnector.cpp"));
        lines.insert(entry.line);
    }
    EXPECT_EQ(lines.size(), cases.size());
}

TEST_F(ZephSocketConnectorTest, AFailedAddressIsNamedForALogOfItsLevelAndNotAskedForAboveIt) {
    Script(111);
    auto warnings = std::make_shared<RecordingLogger>(3);
    EXPECT_EQ(ZephSocketConnector(warnings).Connect("one", 443, 3, nullptr, 0), 1u);
    EXPECT_TRUE(warnings->Has(3, "Failed to connect to 10.0.0.1:443.  Last error = 111"));
    EXPECT_EQ(sockets.CallsOf("NumericNameOf"), 1u);
    auto errors = std::make_shared<RecordingLogger>(4);
    EXPECT_EQ(ZephSocketConnector(errors).Connect("one", 443, 3, nullptr, 0), 1u);
    EXPECT_THAT(errors->Messages(), IsEmpty());
    EXPECT_EQ(sockets.CallsOf("NumericNameOf"), 1u);
}

TEST_F(ZephSocketConnectorTest, ASocketThatCannotBeCreatedFailsTheAttempt) {
    sockets.FailNthCall("Create", 1, 24);
    createFailures = 1;
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(4, "Failed to create socket.  Last error = 24");
}

TEST_F(ZephSocketConnectorTest, ASocketThatCannotBeMadeNonBlockingFailsTheAttempt) {
    sockets.FailNthCall("SetNonBlocking", 1, 22);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Failed to set socket non-blocked to 1.  Last error = 22");
    EXPECT_EQ(sockets.CallsOf("Connect"), 0u);
}

TEST_F(ZephSocketConnectorTest, ASocketThatCannotBeMadeBlockingAgainFailsTheAttempt) {
    sockets.FailNthCall("SetNonBlocking", 2, 22);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Failed to set socket non-blocked to 0.  Last error = 22");
}

TEST_F(ZephSocketConnectorTest, ARefusedConnectFailsTheAttempt) {
    Script(111);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Failed to connect to 10.0.0.1:443.  Last error = 111");
    EXPECT_EQ(sockets.CallsOf("Select"), 0u);
}

TEST_F(ZephSocketConnectorTest, SilenceFailsTheAttempt) {
    Script(Platform::ErrorInProgress, false);
    sockets.OnIdle([](std::int64_t) {});
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Timed out attempting to connect to 10.0.0.1:443.");
    EXPECT_EQ(sockets.CallsOf("Select"), 1u);
}

TEST_F(ZephSocketConnectorTest, AFailedWaitFailsTheAttempt) {
    sockets.FailNthCall("Select", 1, 5);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Failed to connect to 10.0.0.1:443.  select failed.  Last error = 5");
}

TEST_F(ZephSocketConnectorTest, AWaitThatFailsWithThePlainNumber4BeginsAnewWithItsFullTime) {
    sockets.FailNthCall("Select", 1, 4);
    sockets.FailNthCall("Select", 2, 4);
    EXPECT_EQ(Connect("one"), 0u);
    Lines waits;
    for (const std::string& call : sockets.Calls()) {
        if (call.starts_with("Select")) waits.push_back(call);
    }
    EXPECT_EQ(waits, Lines(3, "Select(-, {100}, {100}, 3000)"));
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephSocketConnectorTest, TheWinsockNumberOfAnInterruptionIsAFailureLikeAnyOther) {
    sockets.FailNthCall("Select", 1, 10004);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "Failed to connect to 10.0.0.1:443.  select failed.  Last error = 10004");
}

TEST_F(ZephSocketConnectorTest, APositiveCountWithTheSocketInNeitherSetFailsTheAttempt) {
    sockets.NextSelect({1, 77});
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3,
                 "select() succeeded but the socket is not writeable. This should not be possible. "
                 "Last error = 77");
    EXPECT_EQ(sockets.CallsOf("GetSocketError"), 0u);
}

TEST_F(ZephSocketConnectorTest, AnErrorThatCannotBeReadFailsTheAttempt) {
    sockets.FailNthCall("GetSocketError", 1, 9);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "getsockopt() failed to get SO_ERROR.  Last error = 9");
}

TEST_F(ZephSocketConnectorTest, AWritableSocketWithAnErrorFailsTheAttempt) {
    Script(Platform::ErrorInProgress, true, false, 111);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "getsockopt() returned SO_ERROR 111");
    EXPECT_EQ(sockets.CallsOf("GetSocketError"), 1u) << "reading it clears it";
}

TEST_F(ZephSocketConnectorTest, AnExceptionalSocketFailsTheAttemptEvenWithoutAnError) {
    Script(Platform::ErrorInProgress, false, true, 0);
    EXPECT_EQ(Connect("one"), 1u);
    ExpectFailed(3, "getsockopt() returned SO_ERROR 0");
}

TEST_F(ZephSocketConnectorTest, AWritableSocketWithoutAnErrorConnectsEvenIfItIsExceptionalToo) {
    Script(Platform::ErrorInProgress, true, true, 0);
    EXPECT_EQ(Connect("one"), 0u);
}

// --- Time-out arithmetic ---

TEST_F(ZephSocketConnectorTest, ATimeOutOfZeroAsksForNoWaitAtAll) {
    EXPECT_EQ(connector.Connect("one", 443, 0, nullptr, 0), 0u);
    EXPECT_EQ(sockets.Calls()[5], "Select(-, {100}, {100}, 0)");
}

TEST_F(ZephSocketConnectorTest, TheLargestTimeOutIsPassedOnInFull) {
    EXPECT_EQ(connector.Connect("one", 443, 0xFFFFFFFFu, nullptr, 0), 0u);
    EXPECT_EQ(sockets.Calls()[5], "Select(-, {100}, {100}, 4294967295000)");
}

// --- Local address ---

TEST_F(ZephSocketConnectorTest, ABindAddressIsResolvedForTheFamilyOfTheAttemptAndItsFirstEntryIsBound) {
    sockets.Resolve("local", {ScriptedSockets::Address(FamilyIPv4, "192.168.0.1", "99"),
                              ScriptedSockets::Address(FamilyIPv4, "192.168.0.2", "99")});
    EXPECT_EQ(Connect("one", "local", 99), 0u);
    const Lines calls = sockets.Calls();
    EXPECT_EQ(calls[3], "GetAddressInfo(local, 99, 0, " + V4 + ", " + StreamTcp + ")");
    EXPECT_EQ(calls[4], "Bind(100, 192.168.0.1:99)");
    EXPECT_EQ(calls[5], "SetNonBlocking(100, 1)");
}

TEST_F(ZephSocketConnectorTest, ABindAddressWithoutAPortIsBoundToPortZero) {
    EXPECT_EQ(Connect("one", "local", 0), 0u);
    EXPECT_EQ(sockets.Calls()[3], "GetAddressInfo(local, 0, 0, " + V4 + ", " + StreamTcp + ")");
    EXPECT_EQ(sockets.CallsOf("Bind"), 1u);
}

TEST_F(ZephSocketConnectorTest, ABindPortWithoutAnAddressIsPassedOnWithoutOne) {
    sockets.Resolve(ScriptedSockets::NullHost, {ScriptedSockets::Address(FamilyIPv4, "127.0.0.1", "99")});
    EXPECT_EQ(Connect("one", nullptr, 99), 0u);
    EXPECT_EQ(sockets.Calls()[3], "GetAddressInfo((null), 99, 0, " + V4 + ", " + StreamTcp + ")");
    EXPECT_EQ(sockets.Calls()[4], "Bind(100, 127.0.0.1:99)");
}

TEST_F(ZephSocketConnectorTest, ABindAddressThatDoesNotResolveFailsTheAttempt) {
    sockets.FailNthCall("GetAddressInfo", 2, -2);
    EXPECT_EQ(Connect("one", "local", 99), 1u);
    ExpectFailed(3, "getaddrinfo failed with error -2");
    EXPECT_EQ(sockets.CallsOf("Bind"), 0u);
}

TEST_F(ZephSocketConnectorTest, ABindAddressWithoutAddressesFailsTheAttempt) {
    EXPECT_EQ(Connect("one", "nothing", 99), 1u);
    ExpectFailed(3, "getaddrinfo succeeded but pAddrInfo is NULL");
}

TEST_F(ZephSocketConnectorTest, AnAddressThatCannotBeBoundFailsTheAttempt) {
    sockets.FailNthCall("Bind", 1, 98);
    EXPECT_EQ(Connect("one", "local", 99), 1u);
    ExpectFailed(3, "Failed to bind socket.  Last error = 98");
    EXPECT_EQ(sockets.CallsOf("Connect"), 0u);
}

// --- Life of the socket ---

TEST_F(ZephSocketConnectorTest, CloseClosesOnceAndReleasesTheLibraryOnce) {
    ASSERT_EQ(Connect("one"), 0u);
    sockets.ClearCalls();
    connector.Close();
    connector.Close();
    EXPECT_THAT(sockets.Calls(), ElementsAre("Close(100)", "Cleanup()"));
    EXPECT_FALSE(connector.IsConnected());
    EXPECT_EQ(connector.GetSocket(), -1);
    EXPECT_EQ(connector.GetPeerAddress(), "");
}

TEST_F(ZephSocketConnectorTest, TheDestructorBehavesAsClose) {
    {
        ZephSocketConnector temporary(logger);
        ASSERT_EQ(temporary.Connect("one", 443, 3, nullptr, 0), 0u);
        sockets.ClearCalls();
    }
    EXPECT_THAT(sockets.Calls(), ElementsAre("Close(100)", "Cleanup()"));
}

TEST_F(ZephSocketConnectorTest, ConnectingAgainDropsTheOldSocketBeforeAnythingElse) {
    ASSERT_EQ(Connect("one"), 0u);
    sockets.ClearCalls();
    sockets.FailNthCall("GetAddressInfo", 1, -2);
    EXPECT_EQ(Connect("two"), 14u);
    EXPECT_THAT(sockets.Calls(),
                ElementsAre("Close(100)", "Cleanup()", "Startup(2)",
                            "GetAddressInfo(two, 443, 0, " + Any + ", " + StreamTcp + ")", "Cleanup()"));
    EXPECT_EQ(connector.GetPeerAddress(), "");
    EXPECT_EQ(sockets.LibraryReferences(), 0);
}

// Whatever call fails, the socket that is kept is the only one open, each was closed at most once (the fake
// complains otherwise), and the library is held exactly while there is a socket.
TEST_F(ZephSocketConnectorTest, WhicheverCallFailsNothingLeaks) {
    for (std::size_t n = 1; n <= 25; ++n) {
        SCOPED_TRACE(n);
        sockets.ClearCalls();
        sockets.FailNthCall(n, 5);
        const std::uint32_t nResult = connector.Connect("two", 443, 3, "local", 99);
        EXPECT_EQ(connector.IsConnected(), nResult == 0);
        EXPECT_EQ(sockets.OpenSockets(), nResult == 0 ? 1u : 0u);
        EXPECT_EQ(sockets.LibraryReferences(), nResult == 0 ? 1 : 0);
        sockets.ClearCalls();
        connector.Close();
        EXPECT_EQ(sockets.OpenSockets(), 0u);
        EXPECT_EQ(sockets.LibraryReferences(), 0);
    }
}

TEST_F(ZephSocketConnectorTest, WhereverMemoryEndsNothingLeaks) {
    Script(111);  // the second address, whose text takes memory, is the one that connects
    // Without a logger: of a line without memory the standard library's stream keeps the exception to itself.
    ZephSocketConnector quiet(nullptr);
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        SCOPED_TRACE(n);
        const FailingAllocation failing(n);
        try {
            EXPECT_EQ(quiet.Connect("two", 443, 3, "local", 99), 0u);
            quiet.Close();
        } catch (const std::bad_alloc&) {
        }
        failed = failing.Failed();
        EXPECT_FALSE(quiet.IsConnected());
        EXPECT_EQ(quiet.GetPeerAddress(), "");
        EXPECT_EQ(sockets.OpenSockets(), 0u);
        EXPECT_EQ(sockets.LibraryReferences(), 0);
        EXPECT_TRUE(!FailingAllocation::Fails || n > 1 || failed) << "a connect takes memory";
    }
}

}  // namespace
}  // namespace Ombry::Tests
