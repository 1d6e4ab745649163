// Whole exchanges over TLS: the HTTP connection on the TLS stage on the real engine, with a real server
// behind whose records say what the input wants, cut as it wants, while someone on the way changes, inserts,
// drops or cuts off bytes.
//
// Invariant: every exchange ends. Untouched, each has the status, the bytes and the end that the same answer
// has without TLS; but a body that lasts until the close only ends well if the peer closed under TLS.
// Touched, an exchange that ends well is that very one: nothing is cut, changed or added; and one that fails
// got no byte that was not said. Nothing of a request is ever sent in clear.
//
// Input: byte 0 = protocol, "Connection: close", flow control, close without an alert, handshake spared; byte
// 1 = seed of the cuts; byte 2 = what is done on the way, bytes 3 and 4 = where, byte 5 = with what; then the
// answers, with 0x1E 0x1E between them. Behind the last one, or one that does not end, the peer closes.

#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "fuzz/TlsPeer.h"
#include "tests/Fakes/FakeIOObject.h"

#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace Ombry::Fuzz;

constexpr const char* Secret = "Basic c2VjcmV0";

/// The sizes that only a hostile peer names must not exhaust the machine that fuzzes.
std::uint8_t* AllocateModestly(std::uint64_t nBytes) {
    return nBytes > 16 * 1024 * 1024 ? nullptr : new (std::nothrow) std::uint8_t[nBytes];
}

enum class Meddling { None, Flip, Insert, Drop, CutOff };

struct Script {
    bool oldProtocol = false;
    bool asksToClose = false;
    bool holds = false;
    bool closesWithoutAlert = false;
    bool sparesHandshake = false;
    std::uint32_t seed = 0;
    Meddling meddling = Meddling::None;
    std::size_t at = 0;  ///< in what the server sends, from its first byte or from that of its first answer
    std::uint8_t with = 0;
    std::vector<std::string> answers;
};

Script Parse(const std::uint8_t* pData, std::size_t nBytes) {
    Script script;
    script.oldProtocol = (pData[0] & 1) != 0;
    script.asksToClose = (pData[0] & 2) != 0;
    script.holds = (pData[0] & 4) != 0;
    script.closesWithoutAlert = (pData[0] & 8) != 0;
    script.sparesHandshake = (pData[0] & 16) != 0;
    script.seed = pData[1];
    script.meddling = static_cast<Meddling>(pData[2] % 5);
    script.at = pData[3] + std::size_t{pData[4]} * 256;
    script.with = pData[5];
    std::string_view rest(reinterpret_cast<const char*>(pData) + 6, nBytes - 6);
    for (std::size_t nEnd = 0; nEnd != std::string_view::npos && script.answers.size() < 4;) {
        nEnd = rest.find("\x1e\x1e");
        script.answers.emplace_back(rest.substr(0, nEnd));
        rest.remove_prefix(nEnd == std::string_view::npos ? rest.size() : nEnd + 2);
    }
    return script;
}

class Exchange : public ZephHttpResponseHandlerIf {
public:
    Exchange(ZephHttpClientConnection& connection, bool bHolds) : m_Connection(connection), m_Holds(bHolds) {}

    std::uint32_t OnResponseStart(std::uint32_t nStatus, std::uint32_t) override {
        Require(cEnd == 0, "nothing starts behind the end");
        status = nStatus;
        return Streamed();
    }
    std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) override {
        Require(cEnd == 0, "no data behind the end");
        body.append(reinterpret_cast<const char*>(pData), nBytes);
        return Streamed();
    }
    std::uint32_t OnResponseEnd() override { return Ended('E'); }
    std::uint32_t OnCompleteResponse(std::uint32_t nStatus, const std::uint8_t* pData,
                                     std::uint32_t nBytes) override {
        status = nStatus;
        body.assign(reinterpret_cast<const char*>(pData), nBytes);
        return Ended('E');
    }
    void OnResponseFailed() override { Ended('F'); }

    bool operator==(const Exchange& other) const {
        return cEnd == other.cEnd && status == other.status && body == other.body;
    }

    char cEnd = 0;  ///< 'E' ended well, 'F' failed
    std::uint32_t status = 0;
    std::string body;
    bool endedByClose = false;

private:
    std::uint32_t Streamed() {
        if (!m_Holds) m_Connection.ContinueReceive();
        return 0;
    }
    std::uint32_t Ended(char cHow) {
        Require(cEnd == 0, "an exchange ends once");
        cEnd = cHow;
        return 0;
    }

    ZephHttpClientConnection& m_Connection;
    const bool m_Holds;
};

using Exchanges = std::deque<Exchange>;

bool SendRequest(ZephHttpClientConnection& connection, const Script& script, Exchange& exchange) {
    connection.AddHeader("Authorization", Secret);
    return connection.SendRequest("GET", "/", script.asksToClose, &exchange, nullptr, nullptr, false, 0) == 0;
}

class Nobody : public ZephTerminatorIf {
public:
    void Terminate() override {}
};

/// What the same peer gets across without TLS. A further exchange follows one that ended with its bytes.
class PlainPlay {
public:
    explicit PlainPlay(const Script& script) {
        m_Connection.Initialize(&m_IO, &m_Terminator, "host:443", nullptr, nullptr);
        for (const std::string& answer : script.answers) {
            Exchange& exchange = exchanges.emplace_back(m_Connection, false);
            Require(SendRequest(m_Connection, script, exchange), "a request can be sent");
            m_IO.CompleteWrite();
            const std::size_t nFed = m_IO.Feed(answer);
            if (exchange.cEnd == 0) {
                m_IO.CompleteReadWithEnd();
                exchange.endedByClose = true;
            }
            const bool bGoesOn = !exchange.endedByClose && exchange.cEnd == 'E' && nFed == answer.size() &&
                                 !m_Connection.IsCloseRequested();
            if (!bGoesOn) return;
        }
    }

private:
    Ombry::Tests::FakeIOObject m_IO;
    Nobody m_Terminator;
    ZephHttpClientConnection m_Connection;

public:
    Exchanges exchanges;
};

class TlsPlay : private ZephTerminatorIf, private ZephSSLNotifierIf {
public:
    TlsPlay(const Script& script, std::size_t nExchanges)
        : m_Script(script), m_Cuts(script.seed), m_Server(script.oldProtocol) {
        m_Manager.Initialize("peer", true, ZephCertificateValidator());
        m_Stage.SetClearTextGuard(true);
        m_Stage.Initialize(&m_Manager, &m_Layer, &m_Layer, 0, this, &m_Layer, nullptr);
        m_Stage.StartSSL();
        m_Connection.Initialize(&m_Stage, this, "host:443", nullptr, nullptr);
        for (std::size_t n = 0; n < nExchanges && !m_Down; ++n) {
            Exchange& exchange = exchanges.emplace_back(m_Connection, script.holds);
            if (!SendRequest(m_Connection, script, exchange)) m_Down = true;
            Run(exchange, script.answers[n]);
            Require(exchange.cEnd != 0, "every exchange ends");
        }
        TakeDown();
        Require(m_Layer.sent.find(Secret) == std::string::npos, "nothing is sent in clear");
    }

    Exchanges exchanges;

private:
    void Terminate() override { m_Down = true; }
    void OnSSLStopped() override {}
    void OnSSLFatalError() override { m_Down = true; }

    void Run(Exchange& exchange, const std::string& answer) {
        bool bSaid = false;
        for (int nIdle = 0; exchange.cEnd == 0;) {
            RunTasks();
            if (m_Down) return TakeDown();
            const bool bWrote = CompleteWrite();
            if (!bSaid && RequestsHeard() == exchanges.size()) {
                bSaid = true;
                Meddle(m_Server.TakeOutput(std::string::npos));
                m_Answering = true;
                Say(answer);
            }
            const std::size_t nHeard = exchange.body.size();
            if (m_Script.holds && exchange.cEnd == 0) m_Connection.ContinueReceive();
            // A close under TLS ends everything at once, also what a reader that holds has not asked for yet.
            if (Deliver() || bWrote || exchange.body.size() != nHeard) {
                nIdle = 0;
            } else if (++nIdle > 3) {
                nIdle = 0;
                if (!Close()) return TakeDown();  // neither side has a word left
            }
        }
        RunTasks();
    }

    void RunTasks() {
        while (!m_Layer.tasks.empty()) {
            ZephTaskIf* const pTask = m_Layer.tasks.front();
            m_Layer.tasks.pop_front();
            pTask->DoTask();
        }
    }

    bool CompleteWrite() {
        if (!m_Layer.pWrite) return false;
        const auto nSent = static_cast<std::uint32_t>(std::min<std::size_t>(m_Layer.nWrite, Piece()));
        m_Server.Hear(std::exchange(m_Layer.pWrite, nullptr), nSent);
        m_Stage.CompleteTask(TaskTypeWrite, true, nSent);
        return true;
    }

    std::size_t RequestsHeard() const {
        std::size_t nCount = 0;
        for (std::size_t nAt = 0; (nAt = m_Server.heard.find("\r\n\r\n", nAt)) != std::string::npos; ++nAt)
            ++nCount;
        return nCount;
    }

    /// In records of many sizes.
    void Say(std::string_view text) {
        while (!text.empty()) {
            const std::string record(text.substr(0, Piece()));
            m_Server.Say(record);
            text.remove_prefix(record.size());
        }
    }

    /// The next piece of what the server has sent, as it comes through.
    bool Deliver() {
        Meddle(m_Server.TakeOutput(std::string::npos));
        if (!m_Layer.pRead || m_Down || m_OnTheWay.empty()) return false;
        const std::size_t nBytes = std::min({m_OnTheWay.size(), std::size_t{m_Layer.nRead}, Piece()});
        std::memcpy(std::exchange(m_Layer.pRead, nullptr), m_OnTheWay.data(), nBytes);
        m_OnTheWay.erase(0, nBytes);
        m_Stage.CompleteTask(TaskTypeRead, true, static_cast<std::uint32_t>(nBytes));
        return true;
    }

    void Meddle(std::string bytes) {
        static const std::string inserts[] = {
            std::string("\x15\x03\x03\x00\x02\x01\x00", 7),          // a close
            std::string("\x15\x03\x03\x00\x02\x02\x28", 7),          // a fatal alert
            std::string("\x17\x03\x03\x00\x05hello", 10),            // data in clear
            std::string("\x16\x03\x03\x00\x04\x00\x00\x00\x00", 9),  // a HelloRequest
            std::string("\x14\x03\x03\x00\x01\x01", 6),
            std::string("HTTP/1.1 200 OK\r\n")  // other things
        };
        if (m_CutOff) return;
        const bool bCounts = m_Answering || !m_Script.sparesHandshake;
        const std::size_t nAt = m_Script.at - std::min(m_Script.at, m_Sent);
        const bool bHere = bCounts && m_Script.at >= m_Sent && nAt < bytes.size();
        if (bCounts) m_Sent += bytes.size();
        if (bHere) {
            switch (m_Script.meddling) {
                case Meddling::None:
                    break;
                case Meddling::Flip:
                    bytes[nAt] = static_cast<char>(bytes[nAt] ^ (m_Script.with | 1));
                    break;
                case Meddling::Insert:
                    bytes.insert(nAt, inserts[m_Script.with % std::size(inserts)]);
                    break;
                case Meddling::Drop:
                    bytes.erase(nAt, m_Script.with + std::size_t{1});
                    break;
                case Meddling::CutOff:
                    bytes.resize(nAt);
                    m_CutOff = true;
                    break;
            }
        }
        m_OnTheWay += bytes;
    }

    /// False if the stage does not even listen any more.
    bool Close() {
        if (!m_Script.closesWithoutAlert && !std::exchange(m_AlertSent, true)) {
            m_Server.Close();
            return true;
        }
        if (!m_Layer.pRead) return false;
        m_Layer.pRead = nullptr;
        m_Stage.CompleteTask(TaskTypeRead, true, 0);
        return true;
    }

    void TakeDown() {
        m_Connection.Close();
        m_Stage.Terminate();
        m_Down = true;
    }

    std::size_t Piece() { return 1 + m_Cuts() % (m_Cuts() % 3 == 0 ? 9 : 20'000); }

    const Script& m_Script;
    std::mt19937 m_Cuts;
    Server m_Server;
    Layer m_Layer;
    ZephOpenSSLClientConnectionManager m_Manager{nullptr, false};
    ZephSSLIO m_Stage{nullptr};
    ZephHttpClientConnection m_Connection;
    bool m_Down = false;
    bool m_Answering = false;
    bool m_AlertSent = false;
    std::string m_OnTheWay;
    std::size_t m_Sent = 0;
    bool m_CutOff = false;
};

void RequireSame(const Exchange& plain, const Exchange& overTls, const Script& script) {
    if (overTls.cEnd == 'F') {
        const bool bMayFail = script.meddling != Meddling::None || plain.cEnd == 'F' ||
                              (script.closesWithoutAlert && plain.endedByClose);
        Require(bMayFail, "what ends well without TLS ends well over TLS");
        Require(plain.body.starts_with(overTls.body), "no byte is read that was not said");
    } else {
        Require(plain == overTls, "what ends well is what was said");
        Require(!plain.endedByClose || !script.closesWithoutAlert, "a cut is no end");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes < 6 || nBytes > 100'000) return 0;
    ZephIOBuffer::ReplaceAllocator(&AllocateModestly);
    const Script script = Parse(pData, nBytes);
    const PlainPlay plain(script);
    const TlsPlay overTls(script, plain.exchanges.size());
    for (std::size_t n = 0; n < overTls.exchanges.size(); ++n)
        RequireSame(plain.exchanges[n], overTls.exchanges[n], script);
    Require(overTls.exchanges.size() == plain.exchanges.size() || overTls.exchanges.back().cEnd == 'F',
            "what follows is only left out behind a failure");
    return 0;
}
