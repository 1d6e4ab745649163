// Bytes that reached this machine before the first byte of a request was handed to the socket are never its
// answer: the whole client against servers that say more than they were asked.

#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/Linux/TlsStream.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using Connection = LoopbackServer::Connection;
using Script = LoopbackServer::Script;

enum class Stream { Plain, Tls12, Tls13 };

/// Keeps the body; `atEnd` runs while the connection is still the caller's.
class KeptBody : public ZephSyncDataWriterIf {
public:
    void Begin() override { text.clear(); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        text.append(reinterpret_cast<const char*>(pData), nBytes);
    }
    void End() override {
        if (atEnd) atEnd();
    }

    std::string text;
    std::function<void()> atEnd;
};

class Question : public ZephSyncDataReaderIf {
public:
    bool HasData() override { return true; }
    std::uint32_t GetLength() override {
        given = false;
        return 8;
    }
    bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) override {
        if (std::exchange(given, true)) return false;
        std::copy_n("question", 8, pBuffer);
        *pnBytes = 8;
        return true;
    }

private:
    bool given = false;
};

/// Each test runs over plain TCP, TLS 1.2 and TLS 1.3.
class BytesBeforeARequestTest : public ::testing::TestWithParam<Stream> {
protected:
    static bool Tls() { return GetParam() != Stream::Plain; }
    static TestKey Key() { return KeyNamed("ec256"); }  // quick: there are many handshakes
    static const TestCertificate& Certificate() {
        static const TestCertificate certificate = [] {
            CertificateRecipe recipe;
            recipe.key = Key();
            return MakeCertificate(recipe);
        }();
        return certificate;
    }

    void Serve(std::vector<Script> scripts) {
        TlsServerRecipe recipe;
        recipe.certificate = Certificate();
        recipe.key = Key();
        recipe.version = GetParam() == Stream::Tls12 ? TLS1_2_VERSION : TLS1_3_VERSION;
        server.emplace(std::move(scripts), Tls() ? std::optional(recipe) : std::nullopt);
    }
    void Serve(Script script) { Serve(std::vector<Script>{std::move(script)}); }

    /// The first connection answers once, lets the caller go on until `Late`, and then does what `late` says;
    /// every later connection answers "right" for ever.
    void ServeLate(const std::string& answer, std::function<void(Connection&)> late) {
        Serve({[this, answer, late](Connection& connection) {
                   connection.ReadRequest();
                   connection.Send(answer);
                   answered.get_future().wait();
                   late(connection);
                   written.set_value();
                   while (!connection.ReadRequest().empty())
                       connection.Send(LoopbackServer::Response("same connection"));
               },
               LoopbackServer::Answering(LoopbackServer::Response("right"))});
    }
    /// The answer was taken; what the server says now lies in the socket of the kept connection.
    void Late() {
        answered.set_value();
        written.get_future().wait();
        ASSERT_TRUE(sockets.AwaitReadable());
    }

    ZephSorrelConnectionParameters Params() const {
        ZephSorrelConnectionParameters params("127.0.0.1", server->Port());
        params.SetUseSSL(Tls());
        params.SetCertificateValidation({ValidateByPublicKey, Base64Of(DerOf(Certificate()))});
        return params;
    }

    struct Outcome {
        std::uint32_t nResult;
        std::uint32_t nStatus;
        std::string body;
    };

    Outcome Request(const std::string& method, const std::string& path, ZephSyncDataReaderIf* pReader,
                    std::function<void()> atEnd = nullptr) {
        ZephSorrelSyncHttpClient client(nullptr, false, Params(), &pool);
        KeptBody text;
        text.atEnd = std::move(atEnd);
        client.SetDataReader(pReader);
        client.SetDataWriter(&text);
        const std::uint32_t nResult = client.DoRequest(method, path);
        return {nResult, client.GetHttpStatus(), text.text};
    }
    Outcome Get(const std::string& path = "/") { return Request("GET", path, nullptr); }

    /// The next request is answered on a new connection, and the old one saw nothing of it.
    void ExpectAnUnnoticedRepeat() {
        const Outcome outcome = Get();
        EXPECT_EQ(outcome.nResult, 0u);
        EXPECT_EQ(outcome.nStatus, 200u);
        EXPECT_EQ(outcome.body, "right");
        EXPECT_EQ(server->Connections(), 2u);
        EXPECT_EQ(server->Requests().size(), 2u);
    }

    ForwardingSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    ZephSorrelSyncConnectionPool pool{nullptr};
    std::promise<void> answered;
    std::promise<void> written;
    std::optional<LoopbackServer> server;
};

std::string NameOfStream(const ::testing::TestParamInfo<Stream>& info) {
    switch (info.param) {
        case Stream::Plain:
            return "Plain";
        case Stream::Tls12:
            return "Tls12";
        default:
            return "Tls13";
    }
}

INSTANTIATE_TEST_SUITE_P(Streams, BytesBeforeARequestTest,
                         ::testing::Values(Stream::Plain, Stream::Tls12, Stream::Tls13), NameOfStream);

const std::string Answer = LoopbackServer::Response("answer");
const std::string Forged = LoopbackServer::Response("forged");
const std::string RequestTimeout =
    LoopbackServer::Response("too slow", "408 Request Timeout", "Connection: close\r\n");

// --- They came with the answer before ---

TEST_P(BytesBeforeARequestTest, ASecondAnswerInTheSegmentOfTheFirstIsDropped) {
    Serve([](Connection& connection) {
        while (!connection.ReadRequest().empty())
            connection.SendRaw(connection.EncodeEach({Answer, Forged}));
    });
    for (std::size_t n = 1; n <= 3; ++n) {
        EXPECT_EQ(Get().body, "answer");
        EXPECT_EQ(server->Connections(), n) << "known at the answer's end: nothing is repeated";
        EXPECT_EQ(server->Requests().size(), n);
    }
}

TEST_P(BytesBeforeARequestTest, ASecondAnswerInASegmentOfItsOwnIsDropped) {
    for (int round = 0; round < 5; ++round) {
        std::promise<void> both;
        Serve({[&](Connection& connection) {
                   connection.ReadRequest();
                   connection.Send(Answer);
                   connection.Send(Forged);
                   both.set_value();
                   connection.AwaitClose();
               },
               LoopbackServer::Answering(LoopbackServer::Response("right"))});
        const Outcome first = Request("GET", "/", nullptr, [&] { both.get_future().wait(); });
        EXPECT_EQ(first.body, "answer");
        ExpectAnUnnoticedRepeat();
    }
}

TEST_P(BytesBeforeARequestTest, TheBeginningOfASecondAnswerBehindTheFirstIsDropped) {
    // A record begins with 5 bytes that tell its length, and ends with its seal.
    for (const std::size_t begun : {1, 4, 5, 6, 30, 43}) {
        SCOPED_TRACE(begun);
        Serve({[begun](Connection& connection) {
                   connection.ReadRequest();
                   const std::string answer = connection.Encode(Answer);
                   const std::string forged = connection.Encode(Forged);
                   connection.SendRaw(answer + forged.substr(0, begun));
                   connection.ReadRequest();
                   connection.SendRaw(forged.substr(begun));
                   connection.AwaitClose();
               },
               LoopbackServer::Answering(LoopbackServer::Response("right"))});
        EXPECT_EQ(Get().body, "answer");
        ExpectAnUnnoticedRepeat();
    }
}

TEST_P(BytesBeforeARequestTest, ABodyBehindAnAnswerWithoutLengthIsDropped) {
    Serve({[](Connection& connection) {
               connection.ReadRequest();
               connection.SendRaw(connection.EncodeEach({"HTTP/1.0 200 OK\r\n\r\n", Forged}));
               connection.AwaitClose();
           },
           LoopbackServer::Answering(LoopbackServer::Response("right"))});
    EXPECT_EQ(Get().body, "") << "of an answer without a length and without \"close\"";
    ExpectAnUnnoticedRepeat();
}

// --- They came while the connection was idle ---

TEST_P(BytesBeforeARequestTest, AnAnswerThatLiesInTheSocketOfAKeptConnectionIsDropped) {
    ServeLate(Answer, [](Connection& connection) { connection.Send(Forged); });
    EXPECT_EQ(Get().body, "answer");
    Late();
    ExpectAnUnnoticedRepeat();
}

TEST_P(BytesBeforeARequestTest, APostIsSentOnceAllTheSame) {
    ServeLate(Answer, [](Connection& connection) { connection.Send(Forged); });
    EXPECT_EQ(Get().body, "answer");
    Late();
    Question body;
    const Outcome outcome = Request("POST", "/", &body);
    EXPECT_EQ(outcome.nResult, 0u);
    EXPECT_EQ(outcome.body, "right");
    ASSERT_EQ(server->Requests().size(), 2u);
    EXPECT_TRUE(server->Requests()[1].ends_with("\r\n\r\nquestion"));
}

TEST_P(BytesBeforeARequestTest, TheBeginningOfAnAnswerThatLiesInTheSocketIsDropped) {
    for (const std::size_t begun : {1, 4, 5, 6, 30, 43}) {
        SCOPED_TRACE(begun);
        answered = {};
        written = {};
        ServeLate(Answer, [begun](Connection& connection) {
            connection.SendRaw(connection.Encode(Forged).substr(0, begun));
        });
        EXPECT_EQ(Get().body, "answer");
        Late();
        ExpectAnUnnoticedRepeat();
    }
}

TEST_P(BytesBeforeARequestTest, ABodyThatComesLaterThanItsAnswerWithoutLengthIsDropped) {
    ServeLate("HTTP/1.0 200 OK\r\n\r\n", [](Connection& connection) { connection.Send(Forged); });
    EXPECT_EQ(Get().body, "");
    Late();
    ExpectAnUnnoticedRepeat();
}

TEST_P(BytesBeforeARequestTest, ARequestTimeoutOnAnIdleConnectionIsNobodysAnswer) {
    ServeLate(Answer, [](Connection& connection) { connection.Send(RequestTimeout); });
    EXPECT_EQ(Get().body, "answer");
    Late();
    ExpectAnUnnoticedRepeat();
}

TEST_P(BytesBeforeARequestTest, ARequestTimeoutFollowedByACloseIsNobodysAnswer) {
    ServeLate(Answer, [](Connection& connection) {
        connection.Send(RequestTimeout);
        connection.Close();
    });
    EXPECT_EQ(Get().body, "answer");
    Late();
    ExpectAnUnnoticedRepeat();
}

// --- What a TLS peer may say at any time ---

class TlsBytesBeforeARequestTest : public BytesBeforeARequestTest {};

INSTANTIATE_TEST_SUITE_P(Streams, TlsBytesBeforeARequestTest, ::testing::Values(Stream::Tls12, Stream::Tls13),
                         NameOfStream);

TEST_P(TlsBytesBeforeARequestTest, WhatIsNoPlainTextLeavesAKeptConnectionUsable) {
    const auto act = [](SSL* end) {
        if (SSL_version(end) == TLS1_3_VERSION) {
            SSL_new_session_ticket(end);
            SSL_do_handshake(end);
            SSL_key_update(end, SSL_KEY_UPDATE_REQUESTED);
        } else {
            SSL_renegotiate(end);
        }
        SSL_do_handshake(end);
    };
    for (const bool late : {false, true}) {
        SCOPED_TRACE(late ? "late" : "with the answer");
        answered = {};
        written = {};
        Serve([&](Connection& connection) {
            connection.ReadRequest();
            if (late) {
                connection.Send(Answer);
                answered.get_future().wait();
                connection.SendRaw(Capture(connection, act));
                written.set_value();
            } else {
                const std::string answer = connection.Encode(Answer);
                connection.SendRaw(answer + Capture(connection, act));
            }
            while (!connection.ReadRequest().empty())
                connection.Send(LoopbackServer::Response("same connection"));
        });
        EXPECT_EQ(Get().body, "answer");
        if (late) Late();
        EXPECT_EQ(Get().body, "same connection");
        EXPECT_EQ(Get().body, "same connection");
        EXPECT_EQ(server->Connections(), 1u);
    }
}

// --- And many at once ---

TEST_P(BytesBeforeARequestTest, EveryAnswerBelongsToItsRequestThoughEverySecondIsFollowedByAnother) {
    constexpr int Threads = 8;
    constexpr int Each = 125;
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::string> said;
    const auto awaitAll = [&](const std::string& path) {
        std::unique_lock guard(mutex);
        EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(5), [&] { return said.count(path) != 0; }))
            << path;
    };
    std::atomic<std::size_t> turn = 0;
    Serve([&](Connection& connection) {
        for (std::string request; !(request = connection.ReadRequest()).empty();) {
            const std::string path = request.substr(4, request.find(" HTTP") - 4);
            const std::string right = connection.Encode(LoopbackServer::Response(path));
            const std::size_t kind = turn++ % 6;
            if (kind < 3) {
                const std::string wrong = connection.Encode(LoopbackServer::Response("again " + path));
                const std::size_t together =
                    std::array{wrong.size(), std::size_t{20}, std::size_t{0}}.at(kind);
                connection.SendRaw(right + wrong.substr(0, together));
                if (together < wrong.size()) connection.SendRaw(wrong.substr(together));
            } else {
                connection.SendRaw(right);
            }
            std::lock_guard guard(mutex);
            said.insert(path);
            changed.notify_all();
        }
    });
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < Threads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int n = 0; n < Each; ++n) {
                const std::string path = "/" + std::to_string(thread) + "/" + std::to_string(n);
                // All was said before the connection goes back to the pool.
                const Outcome outcome = Request("GET", path, nullptr, [&] { awaitAll(path); });
                if (outcome.nResult != 0 || outcome.body != path) break;
                ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, Threads * Each);
    EXPECT_EQ(server->Requests().size(), std::size_t{Threads * Each}) << "none was sent twice";
}

}  // namespace
}  // namespace Ombry::Tests
