#include "bench/HttpClients.h"

#include <curl/curl.h>

#include <stdexcept>

namespace Ombry::Bench {
namespace {

size_t Count(char*, size_t size, size_t items, void* counter) {
    *static_cast<std::uint64_t*>(counter) += size * items;
    return size * items;
}

class CurlClient : public HttpClient {
public:
    explicit CurlClient(const Target& target)
        : handle(curl_easy_init(), curl_easy_cleanup),
          headers(curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all),
          base("https://127.0.0.1:" + std::to_string(target.port)) {
        if (!handle) throw std::runtime_error("No handle of libcurl");
        Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        Set(CURLOPT_TCP_NODELAY, 1L);
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_TIMEOUT, 0L);
        Set(CURLOPT_CONNECTTIMEOUT, 3L);
        Set(CURLOPT_NOPROXY, "*");
        // The public key is all that is checked, as on the other side.
        Set(CURLOPT_SSL_VERIFYPEER, 0L);
        Set(CURLOPT_SSL_VERIFYHOST, 0L);
        Set(CURLOPT_PINNEDPUBLICKEY, target.pin.c_str());
        Set(CURLOPT_WRITEFUNCTION, Count);
        Set(CURLOPT_WRITEDATA, &received);
    }

    std::uint64_t Get(const std::string& path) override {
        Set(CURLOPT_HTTPGET, 1L);
        Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
        Perform(path);
        return received;
    }

    void Post(const std::string& path, const std::string& body) override {
        Set(CURLOPT_POST, 1L);
        Set(CURLOPT_POSTFIELDS, body.c_str());
        Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        Set(CURLOPT_HTTPHEADER, headers.get());
        Perform(path);
    }

    void GetAnew(const std::string& path, Handshake handshake) override {
        Set(CURLOPT_SSL_SESSIONID_CACHE, handshake == Handshake::Resumed ? 1L : 0L);
        Set(CURLOPT_FRESH_CONNECT, 1L);
        Set(CURLOPT_FORBID_REUSE, 1L);
        Get(path);
        Set(CURLOPT_FRESH_CONNECT, 0L);
        Set(CURLOPT_FORBID_REUSE, 0L);
    }

private:
    template <class Value>
    void Set(CURLoption option, Value value) {
        if (curl_easy_setopt(handle.get(), option, value) != CURLE_OK) {
            throw std::runtime_error("libcurl refused option " + std::to_string(option));
        }
    }

    void Perform(const std::string& path) {
        received = 0;
        Set(CURLOPT_URL, (base + path).c_str());
        const CURLcode result = curl_easy_perform(handle.get());
        long status = 0;
        curl_easy_getinfo(handle.get(), CURLINFO_RESPONSE_CODE, &status);
        if (result != CURLE_OK || status < 200 || status > 299) {
            throw std::runtime_error(std::string("libcurl's exchange failed: ") + curl_easy_strerror(result) +
                                     ", status " + std::to_string(status));
        }
    }

    std::unique_ptr<CURL, void (*)(CURL*)> handle;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers;
    const std::string base;
    std::uint64_t received = 0;
};

}  // namespace

std::unique_ptr<HttpClient> MakeCurlClient(const Target& target) {
    return std::make_unique<CurlClient>(target);
}

}  // namespace Ombry::Bench
