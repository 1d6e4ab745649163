// The pump of ZephSSLIO: everything that moves bytes between the engine, the two buffers, the user's
// transfers and the layer below. All of it runs with m_Mutex held.

#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSSLIO.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace OmbryZephCore {

namespace {

constexpr const char* PumpName = "OmbryZephCore::ZephSSLIO::ContinueSSL";
constexpr const char* PendingName = "OmbryZephCore::ZephSSLIO::StartPendingIO";
constexpr std::uint32_t GrowthForUnprocessed = 1024;

// The engine counts in signed 32-bit numbers.
std::int32_t Capped(std::uint32_t nBytes) {
    return static_cast<std::int32_t>(
        std::min<std::uint32_t>(nBytes, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

// 0, or the code of a fatal error. An engine may keep output that read_plaintext or shutdown made without a
// count, and only the next round fetches it; so it takes two rounds in a row in which nothing moved to show
// that the engine has nothing more to give. Output that a read made of what lay in the engine, without a new
// byte, must be called blocked to be fetched.
std::uint32_t ZephSSLIO::ContinueSSL() {
    if (!TakeBuffers()) return eRC_OutOfMemory;
    bool bIdle = false;
    while (m_Connection) {
        Round round;
        const Next next = RunRound(round);
        if (next == Next::Failed) return eRC_Fail;
        if (next == Next::Off) {
            if (const std::uint32_t nResult = HandOverOpenTransfers(); nResult != 0) return nResult;
            break;
        }
        if (next == Next::Decide && !round.bInjected && !MoreOutputFits()) break;
        if (!round.bMoved && bIdle) break;
        bIdle = !round.bMoved;
    }
    if (IsSilenceBroken()) {
        RefuseUnasked();
        return eRC_Fail;
    }
    return m_Handler ? StartPendingIO() : eRC_Success;
}

// Those that an idle connection gave back.
bool ZephSSLIO::TakeBuffers() {
    const auto take = [](ZephIOBuffer& buffer) {
        return buffer.GetLength() != 0 || buffer.SetLength(BufferLength) == eRC_Success;
    };
    return take(m_ReadBuffer) && take(m_WriteBuffer);
}

ZephSSLIO::Next ZephSSLIO::RunRound(Round& round) {
    if (!InjectCiphertext(round) || !ExtractCiphertext(round)) return Next::Failed;
    return m_State == eState_On ? MovePlaintext(round) : ContinueStop(round);
}

bool ZephSSLIO::InjectCiphertext(Round& round) {
    if (m_ReadInProgress || m_ReadFill == 0) return true;
    const std::int32_t nTaken = m_Connection->inject_ciphertext(m_ReadBuffer.GetData(), Capped(m_ReadFill));
    if (nTaken < 0) {
        Trace(PumpName, "inject_ciphertext failed.  sessionid = ");
        return false;
    }
    DropFront(m_ReadBuffer, m_ReadFill, static_cast<std::uint32_t>(nTaken));
    round.bInjected = nTaken != 0;
    round.bMoved |= nTaken != 0;
    return true;
}

bool ZephSSLIO::ExtractCiphertext(Round& round) {
    return m_WriteInProgress || FillWriteBuffer(round);
}

bool ZephSSLIO::FillWriteBuffer(Round& round) {
    if (m_WriteFill >= m_WriteBuffer.GetLength()) return true;
    const std::int32_t nGiven = m_Connection->extract_ciphertext(
        m_WriteBuffer.GetData() + m_WriteFill, Capped(m_WriteBuffer.GetLength() - m_WriteFill));
    if (nGiven < 0) {
        Trace(PumpName, "extract_ciphertext failed.  sessionid = ");
        return false;
    }
    m_WriteFill += static_cast<std::uint32_t>(nGiven);
    round.bMoved |= nGiven != 0;
    return true;
}

ZephSSLIO::Next ZephSSLIO::MovePlaintext(Round& round) {
    const Next next = m_UserRead.IsOpen() ? ReadPlaintext(round) : Next::Decide;
    if (next == Next::Failed || m_State != eState_On) return next;
    if (!m_UserWrite.Exists() || m_UserWrite.nDone >= m_UserWrite.nBytes) return next;
    const Next afterWrite = WritePlaintext(round);
    return afterWrite == Next::Decide ? next : afterWrite;
}

// Once per user read: it completes as soon as any bytes were decrypted.
ZephSSLIO::Next ZephSSLIO::ReadPlaintext(Round& round) {
    const std::int32_t nRead = m_Connection->read_plaintext(m_UserRead.pBuffer, Capped(m_UserRead.nBytes));
    if (nRead < 0) {
        Trace(PumpName, "read_plaintext failed.  sessionid = ");
        return Next::Failed;
    }
    if (nRead == 0) return m_Connection->IsShuttingDown() ? BeginStop(round) : Next::Decide;
    if (m_Silence != Silence::Over) {
        RefuseUnasked();
        return Next::Failed;
    }
    m_UserRead.nDone = static_cast<std::uint32_t>(nRead);
    round.bMoved = true;
    return Next::Again;
}

ZephSSLIO::Next ZephSSLIO::WritePlaintext(Round& round) {
    const std::int32_t nWritten = m_Connection->write_plaintext(
        m_UserWrite.pBuffer + m_UserWrite.nDone, Capped(m_UserWrite.nBytes - m_UserWrite.nDone));
    if (nWritten < 0) {
        Trace(PumpName, "write_plaintext failed.  sessionid = ");
        return Next::Failed;
    }
    if (nWritten == 0) return m_Connection->IsShuttingDown() ? BeginStop(round) : Next::Decide;
    NoteWritten();
    m_UserWrite.nDone += static_cast<std::uint32_t>(nWritten);
    round.bMoved = true;
    return Next::Again;
}

// The beginning of a record cannot be told from the beginning of data, so it counts as such. On a connection
// that has carried no request yet it is left alone: there is no answer that it could be the surplus of, and
// servers send tickets right behind their handshake, which a read may cut.
bool ZephSSLIO::IsSilenceBroken() {
    return m_Silence != Silence::Over && m_CarriedRequest && m_State == eState_On && m_Connection &&
           m_Connection->HasUnread();
}

// The layer below is left for good: whoever began the request repeats it elsewhere, so it must not leave.
void ZephSSLIO::RefuseUnasked() {
    Trace(PumpName, "bytes came ahead of the request -- reporting a fatal error.  sessionid = ");
    m_NextLayer->UnRegisterIOCompletionHandler();
}

// The engine saw a close.
ZephSSLIO::Next ZephSSLIO::BeginStop(Round& round) {
    m_State = eState_Stopping;
    round.bMoved = true;
    return ShutDownEngine(round);
}

ZephSSLIO::Next ZephSSLIO::ShutDownEngine(Round& round) {
    const std::int32_t nResult = m_Connection->shutdown(m_WaitForPeerClose);
    if (nResult < 0) {
        Trace(PumpName, "shutdown failed.  sessionid = ");
        return Next::Failed;
    }
    if (nResult != 1) return Next::Decide;
    round.bMoved |= m_Connection->IsShutdownComplete();
    return Next::Again;
}

// The engine stays until its shutdown is complete and all that it gave was sent: releasing it earlier would
// lose its close alert, or put clear text in front of it.
ZephSSLIO::Next ZephSSLIO::ContinueStop(Round& round) {
    if (!m_Connection->IsShutdownComplete()) return ShutDownEngine(round);
    if (m_WriteFill != 0) return Next::Decide;
    if (!TakeBackUnprocessed()) return Next::Failed;
    m_ConnectionManager->ReleaseConnection(m_Connection);
    m_Connection = nullptr;
    m_Notifier->OnSSLStopped();
    round.bMoved = true;
    if (m_State == eState_Restarting) {
        m_State = eState_On;
        return TakeEngine() ? Next::Again : Next::Failed;
    }
    m_State = eState_Off;
    return Next::Off;
}

// Bytes that the engine was given and did not need follow its close alert and belong to the channel. The
// buffer grows only as far as the engine holds such bytes, which is at most what was injected into it.
// With a read of the layer below still running no close was seen, and what the engine holds is the beginning
// of a record whose rest nobody will decrypt: it goes with the engine.
bool ZephSSLIO::TakeBackUnprocessed() {
    if (m_ReadInProgress) return true;
    for (;;) {
        if (m_ReadFill == m_ReadBuffer.GetLength() &&
            m_ReadBuffer.SetLength(m_ReadFill + GrowthForUnprocessed) != eRC_Success)
            return false;
        const std::int32_t nRoom = Capped(m_ReadBuffer.GetLength() - m_ReadFill);
        const std::int32_t nGiven =
            m_Connection->extract_unprocessed_ciphertext(m_ReadBuffer.GetData() + m_ReadFill, nRoom);
        if (nGiven > 0) m_ReadFill += static_cast<std::uint32_t>(nGiven);
        if (nGiven < nRoom) return true;
    }
}

bool ZephSSLIO::MoreOutputFits() {
    return !m_WriteInProgress && m_WriteFill < m_WriteBuffer.GetLength() && m_Connection->IsOutputBlocked();
}

// TLS has just gone off: open transfers go on in clear text. Behind the guard they are complete instead, and
// Notify says so.
std::uint32_t ZephSSLIO::HandOverOpenTransfers() {
    if (IsClosed()) {
        m_ReadFill = 0;
        return eRC_Success;
    }
    if (m_UserRead.IsOpen() && !m_ReadInProgress) {
        if (m_ReadFill != 0) {
            ServeReadFromBuffer();
        } else {
            const auto read = std::exchange(m_UserRead, {});
            const std::uint32_t nResult = m_NextLayer->StartRead(read.nBytes, read.pBuffer);
            if (nResult != eRC_Success) return nResult;
        }
    }
    if (!m_UserWrite.IsOpen()) return eRC_Success;
    NoteWritten();
    const auto write = std::exchange(m_UserWrite, {});
    return m_NextLayer->StartWrite(write.nBytes, write.pBuffer);
}

// A read only when the engine says so: an idle TLS stream has none pending, and the loop that runs it can
// end.
std::uint32_t ZephSSLIO::StartPendingIO() {
    if (!m_WriteInProgress && m_WriteFill != 0) {
        if (const std::uint32_t nResult = StartPendingWrite(); nResult != eRC_Success) return nResult;
    }
    const bool bRead = !m_ReadInProgress && m_Connection && m_Connection->WantsCiphertext();
    return bRead ? StartPendingRead() : std::uint32_t{eRC_Success};
}

std::uint32_t ZephSSLIO::StartPendingWrite() {
    m_WriteInProgress = true;
    Trace(PendingName, "starting write with ", m_WriteFill, " bytes.  sessionid = ");
    const std::uint32_t nResult = m_NextLayer->StartWrite(m_WriteFill, m_WriteBuffer.GetData());
    if (nResult == eRC_Success) return eRC_Success;
    m_WriteInProgress = false;
    Trace(PendingName, "StartWrite failed with error ", nResult, ".  sessionid = ");
    return nResult;
}

std::uint32_t ZephSSLIO::StartPendingRead() {
    const std::uint32_t nRoom = m_ReadBuffer.GetLength() - m_ReadFill;
    if (nRoom == 0) return eRC_Success;  // a read of 0 bytes would look like the peer's close
    m_ReadInProgress = true;
    Trace(PendingName, "starting read with ", nRoom, " bytes.  sessionid = ");
    const std::uint32_t nResult = m_NextLayer->StartRead(nRoom, m_ReadBuffer.GetData() + m_ReadFill);
    if (nResult == eRC_Success) return eRC_Success;
    m_ReadInProgress = false;
    Trace(PendingName, "StartRead failed with error ", nResult, ".  sessionid = ");
    return nResult;
}

void ZephSSLIO::DropFront(ZephIOBuffer& buffer, std::uint32_t& nFill, std::uint32_t nBytes) {
    const std::uint32_t nDropped = std::min(nBytes, nFill);
    nFill -= nDropped;
    if (nDropped != 0 && nFill != 0) std::memmove(buffer.GetData(), buffer.GetData() + nDropped, nFill);
}

}  // namespace OmbryZephCore
