#include "OmbryZephCore/ZephOpenSSLBuffer.h"

#include "OmbryZephCore/ZephResultCodes.h"

#include <openssl/bio.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

namespace OmbryZephCore {
namespace {

constexpr std::size_t MostBytes = std::numeric_limits<std::int32_t>::max();

ZephOpenSSLBuffer& Of(BIO* bio) {
    return *static_cast<ZephOpenSSLBuffer*>(BIO_get_data(bio));
}

int Write(BIO* bio, const char* pBytes, std::size_t nBytes, std::size_t* pnWritten) {
    BIO_clear_retry_flags(bio);
    *pnWritten = 0;
    if (nBytes > MostBytes) return -1;
    if (!Of(bio).Append(reinterpret_cast<const std::uint8_t*>(pBytes), static_cast<std::uint32_t>(nBytes)))
        return -1;
    *pnWritten = nBytes;
    return 1;
}

// Nothing there is no end: the session shall ask again.
int Read(BIO* bio, char* pBytes, std::size_t nBytes, std::size_t* pnRead) {
    BIO_clear_retry_flags(bio);
    *pnRead = Of(bio).Take(reinterpret_cast<std::uint8_t*>(pBytes),
                           static_cast<std::uint32_t>(std::min(nBytes, MostBytes)));
    if (*pnRead != 0) return 1;
    BIO_set_retry_read(bio);
    Of(bio).NoteAskedInVain();
    return -1;
}

long Control(BIO* bio, int command, long, void*) {
    switch (command) {
        case BIO_CTRL_PENDING:
            return static_cast<long>(Of(bio).Pending());
        case BIO_CTRL_FLUSH:
            return 1;
        default:
            return 0;
    }
}

BIO_METHOD* MakeMethod() {
    BIO_METHOD* const method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "ZephOpenSSLBuffer");
    if (method == nullptr) return nullptr;
    BIO_meth_set_write_ex(method, &Write);
    BIO_meth_set_read_ex(method, &Read);
    BIO_meth_set_ctrl(method, &Control);
    return method;
}

// One for the process, which is never freed: sessions may outlive every static object. Without memory the
// next session tries again.
const BIO_METHOD* Method() {
    static std::atomic<BIO_METHOD*> made{nullptr};
    BIO_METHOD* known = made.load(std::memory_order_acquire);
    if (known != nullptr) return known;
    BIO_METHOD* const fresh = MakeMethod();
    if (fresh == nullptr || made.compare_exchange_strong(known, fresh, std::memory_order_acq_rel))
        return fresh;
    BIO_meth_free(fresh);
    return known;
}

}  // namespace

BIO* ZephOpenSSLBuffer::MakeBio() {
    const BIO_METHOD* const method = Method();
    BIO* const bio = method == nullptr ? nullptr : BIO_new(method);
    if (bio == nullptr) return nullptr;
    BIO_set_data(bio, this);
    BIO_set_init(bio, 1);
    return bio;
}

bool ZephOpenSSLBuffer::Append(const std::uint8_t* pBytes, std::uint32_t nBytes) {
    if (nBytes > m_Buffer.GetLength() - m_End) {
        if (m_Begin != 0) {
            std::memmove(m_Buffer.GetData(), m_Buffer.GetData() + m_Begin, Pending());
            m_End = Pending();
            m_Begin = 0;
        }
        const std::uint64_t nNeed = std::uint64_t{m_End} + nBytes;
        if (nNeed > m_Buffer.GetLength()) {
            if (nNeed > MostBytes) return false;
            const auto nLength = std::max(static_cast<std::uint32_t>(nNeed), ZephIOBuffer::DefaultMinSize);
            if (m_Buffer.SetLength(nLength) != eRC_Success) return false;
        }
    }
    if (nBytes != 0) std::memcpy(m_Buffer.GetData() + m_End, pBytes, nBytes);
    m_End += nBytes;
    return true;
}

std::uint32_t ZephOpenSSLBuffer::Take(std::uint8_t* pBytes, std::uint32_t nBytes) {
    const std::uint32_t nCount = std::min(nBytes, Pending());
    if (nCount == 0) return 0;
    std::memcpy(pBytes, m_Buffer.GetData() + m_Begin, nCount);
    m_Begin += nCount;
    if (m_Begin == m_End) m_Begin = m_End = 0;
    return nCount;
}

}  // namespace OmbryZephCore
