#pragma once

#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephTaskIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"
#include "fuzz/Require.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <deque>
#include <string>

/// What the targets above TLS share: a real server between two memory buffers, and the layer below the stage.
namespace Ombry::Fuzz {

using namespace OmbryZephCore;

/// Makes the server's key and self-signed certificate once.
inline SSL_CTX* ServerContext() {
    static SSL_CTX* const pContext = [] {
        EVP_PKEY* const pKey = EVP_EC_gen("P-256");
        X509* const pCertificate = X509_new();
        X509_set_version(pCertificate, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(pCertificate), 1);
        X509_gmtime_adj(X509_getm_notBefore(pCertificate), 0);
        X509_gmtime_adj(X509_getm_notAfter(pCertificate), 86400);
        X509_set_pubkey(pCertificate, pKey);
        X509_sign(pCertificate, pKey, EVP_sha256());
        SSL_CTX* const pMade = SSL_CTX_new(TLS_server_method());
        SSL_CTX_use_certificate(pMade, pCertificate);
        SSL_CTX_use_PrivateKey(pMade, pKey);
        X509_free(pCertificate);
        EVP_PKEY_free(pKey);
        return pMade;
    }();
    return pContext;
}

/// The honest part of the peer.
class Server {
public:
    explicit Server(bool bOldProtocol) : m_Session(SSL_new(ServerContext())) {
        m_Input = BIO_new(BIO_s_mem());
        m_Output = BIO_new(BIO_s_mem());
        SSL_set_bio(m_Session, m_Input, m_Output);
        SSL_set_accept_state(m_Session);
        if (bOldProtocol) SSL_set_max_proto_version(m_Session, TLS1_2_VERSION);
    }
    ~Server() { SSL_free(m_Session); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    void Hear(const std::uint8_t* pData, std::size_t nBytes) {
        BIO_write(m_Input, pData, static_cast<int>(nBytes));
        char buffer[4096];
        for (int nRead; (nRead = SSL_read(m_Session, buffer, sizeof buffer)) > 0;)
            heard.append(buffer, static_cast<std::size_t>(nRead));
    }

    void Say(std::size_t nBytes) {
        std::string text;
        for (std::size_t n = 0; n < nBytes; ++n)
            text.push_back(static_cast<char>('a' + (said.size() + n) % 26));
        Say(text);
    }

    /// One record for each 16 KiB, once the handshake is over; nothing before.
    void Say(const std::string& text) {
        std::size_t nWritten = 0;
        if (SSL_is_init_finished(m_Session) && !text.empty() &&
            SSL_write_ex(m_Session, text.data(), text.size(), &nWritten) == 1)
            said.append(text, 0, nWritten);
    }

    void Close() { SSL_shutdown(m_Session); }

    std::string TakeOutput(std::size_t nAtMost) {
        std::string bytes(std::min(nAtMost, BIO_ctrl_pending(m_Output)), '\0');
        if (!bytes.empty()) BIO_read(m_Output, bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }

    std::string said;
    std::string heard;

private:
    SSL* m_Session;
    BIO* m_Input = nullptr;
    BIO* m_Output = nullptr;
};

class Layer : public ZephIOObjectIf, public ZephUserTaskScheduleIf, public ZephUserTaskCancelIf {
public:
    std::uint8_t* pRead = nullptr;
    std::uint32_t nRead = 0;
    const std::uint8_t* pWrite = nullptr;
    std::uint32_t nWrite = 0;
    std::string sent;
    std::deque<ZephTaskIf*> tasks;

    std::uint32_t RegisterIOCompletionHandler(ZephIOCompletionHandlerIf*) override { return 0; }
    void UnRegisterIOCompletionHandler() override {}
    std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) override {
        Require(nBytes != 0 && pBuffer && !pRead, "one read below, of some bytes");
        pRead = pBuffer;
        nRead = nBytes;
        return 0;
    }
    std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) override {
        Require(nBytes != 0 && pBuffer && !pWrite, "one write below, of some bytes");
        pWrite = pBuffer;
        nWrite = nBytes;
        sent.append(reinterpret_cast<const char*>(pBuffer), nBytes);
        return 0;
    }
    std::uint32_t RequestDrainNotification() override { return 0; }
    std::uint32_t ScheduleTask(ZephTaskIf* pTask) override {
        tasks.push_back(pTask);
        return 0;
    }
    void CancelTask(ZephTaskIf* pTask) override { std::erase(tasks, pTask); }
};

}  // namespace Ombry::Fuzz
