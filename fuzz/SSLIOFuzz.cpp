// ZephSSLIO over the real engine, with a hostile peer below: the input is a script that delivers what a real
// server says whole, in fragments, changed or mixed with bytes of the script, and starts, stops and fails
// transfers at any point.
//
// Invariant: no call crashes or runs for ever; the layer below has at most one read and one write at a time,
// never of 0 bytes; each transfer of the user completes at most once and within its length; and since the
// clear-text guard is on, the user reads nothing but a prefix of what the server said under TLS, and nothing
// that the user wrote ever reaches the layer below in clear. Once a transfer has failed nothing is promised
// of what is read: a read that was served, and not yet told so, fails with the rest and takes its bytes
// along.

#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "fuzz/TlsPeer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Ombry::Fuzz;

constexpr const char* Secret = "Authorization: Basic c2VjcmV0";

class User : public ZephIOCompletionHandlerIf, public ZephSSLNotifierIf {
public:
    std::vector<std::uint8_t> buffer;  // exactly as long as the read: an overrun is a memory error
    bool bReading = false;
    bool bWriting = false;
    bool bFailed = false;
    std::string heard;
    std::string writing;

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        bool& bOpen = nTaskType == TaskTypeRead ? bReading : bWriting;
        Require(bOpen, "a transfer completes once");
        bOpen = false;
        bFailed |= !bSuccess;
        if (nTaskType != TaskTypeRead || bFailed) return;
        Require(nBytes <= buffer.size(), "a read stays within its length");
        heard.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(nBytes));
    }
    void AbortTask(std::uint32_t) override {}
    void OnDrained() override {}
    void OnSSLStopped() override {}
    void OnSSLFatalError() override {}
};

class Play {
public:
    Play(const std::uint8_t* pScript, std::size_t nBytes)
        : m_Script(pScript), m_Left(nBytes), m_Server((NextByte() & 1) != 0) {
        m_Manager.Initialize("peer", true, ZephCertificateValidator());
        m_Stage.SetClearTextGuard(true);
        m_Stage.Initialize(&m_Manager, &m_Layer, &m_Layer, 0, &m_User, &m_Layer, nullptr);
        m_Stage.StartSSL();
        m_Stage.RegisterIOCompletionHandler(&m_User);
    }

    void Run() {
        while (m_Left > 0) {
            const std::uint8_t nOperation = NextByte();
            Step(nOperation & 0x0F, std::size_t{NextByte()} << (nOperation >> 6) * 2);
            Require(m_Server.said.compare(0, m_User.heard.size(), m_User.heard) == 0,
                    "what is read was said under TLS");
        }
        m_Stage.UnRegisterIOCompletionHandler();
        m_Stage.Terminate();
        Require(m_Layer.sent.find(Secret) == std::string::npos, "nothing is sent in clear");
    }

private:
    void Step(int nOperation, std::size_t nCount) {
        switch (nOperation) {
            case 0:
                return Deliver(m_Server.TakeOutput(std::min(nCount + 1, ReadRoom())));
            case 1:
                return Deliver(ScriptBytes(std::min(nCount + 1, ReadRoom())));
            case 2:
                return Deliver(Changed(m_Server.TakeOutput(std::min(nCount + 1, ReadRoom()))));
            case 3:
                return CompleteWrite(nCount + 1);
            case 4:
                return StartRead(nCount + 1);
            case 5:
                return StartWrite(nCount);
            case 6:
                m_Stage.StopSSL((nCount & 1) != 0);
                return;
            case 7:
                m_Stage.StartSSL();
                return;
            case 8:
                return Fail((nCount & 1) != 0);
            case 9:
                return m_Server.Say(nCount);
            case 10:
                return m_Server.Close();
            case 11:
                return Exchange();
            default:
                return RunTasks();
        }
    }

    /// Everything that waits goes both ways, until nothing does.
    void Exchange() {
        for (int nRound = 0; nRound < 64; ++nRound) {
            RunTasks();
            const bool bWrite = m_Layer.pWrite != nullptr;
            CompleteWrite(m_Layer.nWrite);
            const std::string bytes = m_Server.TakeOutput(ReadRoom());
            if (!bWrite && bytes.empty()) return;
            Deliver(bytes);
        }
    }

    std::size_t ReadRoom() const { return m_Layer.pRead ? m_Layer.nRead : 0; }

    void Deliver(const std::string& bytes) {
        if (!m_Layer.pRead || bytes.empty()) return;
        std::memcpy(std::exchange(m_Layer.pRead, nullptr), bytes.data(), bytes.size());
        m_Stage.CompleteTask(TaskTypeRead, true, static_cast<std::uint32_t>(bytes.size()));
    }

    void CompleteWrite(std::size_t nAtMost) {
        if (!m_Layer.pWrite) return;
        const auto nSent = static_cast<std::uint32_t>(std::min<std::size_t>(m_Layer.nWrite, nAtMost));
        m_Server.Hear(std::exchange(m_Layer.pWrite, nullptr), nSent);
        m_Stage.CompleteTask(TaskTypeWrite, true, nSent);
    }

    /// With a failure, or with a close of the socket.
    void Fail(bool bRead) {
        const bool bSuccess = (NextByte() & 1) != 0;
        if (bRead && std::exchange(m_Layer.pRead, nullptr))
            m_Stage.CompleteTask(TaskTypeRead, bSuccess, 0);
        else if (!bRead && std::exchange(m_Layer.pWrite, nullptr))
            m_Stage.CompleteTask(TaskTypeWrite, bSuccess, 0);
    }

    void StartRead(std::size_t nBytes) {
        if (m_User.bReading) return;
        m_User.buffer = std::vector<std::uint8_t>(nBytes);
        m_User.bReading = true;
        m_Stage.StartRead(static_cast<std::uint32_t>(nBytes), m_User.buffer.data());
    }

    void StartWrite(std::size_t nBytes) {
        if (m_User.bWriting) return;
        m_User.writing = Secret + std::string(nBytes, '.');
        m_User.bWriting =
            m_Stage.StartWrite(static_cast<std::uint32_t>(m_User.writing.size()),
                               reinterpret_cast<const std::uint8_t*>(m_User.writing.data())) != 11;
    }

    void RunTasks() {
        while (!m_Layer.tasks.empty()) {
            ZephTaskIf* const pTask = m_Layer.tasks.front();
            m_Layer.tasks.pop_front();
            pTask->DoTask();
        }
    }

    std::uint8_t NextByte() {
        if (m_Left == 0) return 0;
        --m_Left;
        return *m_Script++;
    }

    std::string ScriptBytes(std::size_t nAtMost) {
        const std::size_t n = std::min(nAtMost, m_Left);
        std::string bytes(reinterpret_cast<const char*>(m_Script), n);
        m_Script += n;
        m_Left -= n;
        return bytes;
    }

    std::string Changed(std::string bytes) {
        const std::size_t nAt = NextByte();
        if (nAt < bytes.size()) bytes[nAt] = static_cast<char>(bytes[nAt] ^ (NextByte() | 1));
        return bytes;
    }

    const std::uint8_t* m_Script;
    std::size_t m_Left;
    Server m_Server;
    Layer m_Layer;
    User m_User;
    ZephOpenSSLClientConnectionManager m_Manager{nullptr, false};
    ZephSSLIO m_Stage{nullptr};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes <= 4096) Play(pData, nBytes).Run();
    return 0;
}
