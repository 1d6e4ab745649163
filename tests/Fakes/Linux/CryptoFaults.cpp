#include "tests/Fakes/Linux/CryptoFaults.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/modes.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <dlfcn.h>

#include <cstdlib>
#include <utility>

// The functions below stand before those of the shared library, since the executable's own definitions win.

namespace Ombry::Tests {
namespace {

thread_local int calls = 0;  // to come until the one that fails, that one included; 0: none
thread_local bool happened = false;
thread_local std::function<void()> before;

bool Fails() {
    if (const auto hook = std::exchange(before, nullptr)) hook();
    if (calls == 0 || --calls != 0) return false;
    happened = true;
    ERR_raise(ERR_LIB_USER, ERR_R_MALLOC_FAILURE);
    return true;
}

template <typename Function>
Function* TheLibrarys(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) std::abort();
    return reinterpret_cast<Function*>(found);
}

}  // namespace

CryptoFault::CryptoFault(int n) {
    calls = n;
    happened = false;
}

CryptoFault::~CryptoFault() {
    calls = 0;
}

bool CryptoFault::Happened() const {
    return happened;
}

BeforeCryptoCall::BeforeCryptoCall(std::function<void()> hook) {
    before = std::move(hook);
}

BeforeCryptoCall::~BeforeCryptoCall() {
    before = nullptr;
}

}  // namespace Ombry::Tests

// A function of the library that gives `failure` when its turn has come.
#define OMBRY_MAY_FAIL(result, name, parameters, arguments, failure)                  \
    result name parameters {                                                          \
        static const auto real = Ombry::Tests::TheLibrarys<result parameters>(#name); \
        return Ombry::Tests::Fails() ? failure : real arguments;                      \
    }

extern "C" {

OMBRY_MAY_FAIL(EVP_MD*, EVP_MD_fetch, (OSSL_LIB_CTX * library, const char* name, const char* properties),
               (library, name, properties), nullptr)
OMBRY_MAY_FAIL(EVP_MD_CTX*, EVP_MD_CTX_new, (), (), nullptr)
OMBRY_MAY_FAIL(int, EVP_DigestInit_ex, (EVP_MD_CTX * context, const EVP_MD* type, ENGINE* engine),
               (context, type, engine), 0)
OMBRY_MAY_FAIL(int, EVP_DigestUpdate, (EVP_MD_CTX * context, const void* data, std::size_t size),
               (context, data, size), 0)
OMBRY_MAY_FAIL(int, EVP_DigestFinal_ex, (EVP_MD_CTX * context, unsigned char* value, unsigned int* size),
               (context, value, size), 0)
OMBRY_MAY_FAIL(int, EVP_Digest,
               (const void* data, std::size_t count, unsigned char* value, unsigned int* size,
                const EVP_MD* type, ENGINE* engine),
               (data, count, value, size, type, engine), 0)
OMBRY_MAY_FAIL(EVP_KDF*, EVP_KDF_fetch, (OSSL_LIB_CTX * library, const char* name, const char* properties),
               (library, name, properties), nullptr)
OMBRY_MAY_FAIL(EVP_KDF_CTX*, EVP_KDF_CTX_new, (EVP_KDF * kdf), (kdf), nullptr)
OMBRY_MAY_FAIL(int, EVP_KDF_derive,
               (EVP_KDF_CTX * context, unsigned char* key, std::size_t size, const OSSL_PARAM* parameters),
               (context, key, size, parameters), 0)
OMBRY_MAY_FAIL(EVP_CIPHER*, EVP_CIPHER_fetch,
               (OSSL_LIB_CTX * library, const char* name, const char* properties),
               (library, name, properties), nullptr)
OMBRY_MAY_FAIL(EVP_CIPHER_CTX*, EVP_CIPHER_CTX_new, (), (), nullptr)
OMBRY_MAY_FAIL(int, EVP_CIPHER_CTX_ctrl, (EVP_CIPHER_CTX * context, int command, int number, void* data),
               (context, command, number, data), 0)
OMBRY_MAY_FAIL(int, EVP_EncryptInit_ex,
               (EVP_CIPHER_CTX * context, const EVP_CIPHER* cipher, ENGINE* engine, const unsigned char* key,
                const unsigned char* nonce),
               (context, cipher, engine, key, nonce), 0)
OMBRY_MAY_FAIL(int, EVP_EncryptUpdate,
               (EVP_CIPHER_CTX * context, unsigned char* out, int* written, const unsigned char* in,
                int size),
               (context, out, written, in, size), 0)
OMBRY_MAY_FAIL(int, EVP_EncryptFinal_ex, (EVP_CIPHER_CTX * context, unsigned char* out, int* written),
               (context, out, written), 0)
OMBRY_MAY_FAIL(int, EVP_DecryptInit_ex,
               (EVP_CIPHER_CTX * context, const EVP_CIPHER* cipher, ENGINE* engine, const unsigned char* key,
                const unsigned char* nonce),
               (context, cipher, engine, key, nonce), 0)
OMBRY_MAY_FAIL(int, EVP_DecryptUpdate,
               (EVP_CIPHER_CTX * context, unsigned char* out, int* written, const unsigned char* in,
                int size),
               (context, out, written, in, size), 0)
OMBRY_MAY_FAIL(int, EVP_DecryptFinal_ex, (EVP_CIPHER_CTX * context, unsigned char* out, int* written),
               (context, out, written), 0)
OMBRY_MAY_FAIL(int, EVP_CipherInit_ex2,
               (EVP_CIPHER_CTX * context, const EVP_CIPHER* cipher, const unsigned char* key,
                const unsigned char* tweak, int encrypt, const OSSL_PARAM* parameters),
               (context, cipher, key, tweak, encrypt, parameters), 0)
OMBRY_MAY_FAIL(int, EVP_CipherUpdate,
               (EVP_CIPHER_CTX * context, unsigned char* out, int* written, const unsigned char* in,
                int size),
               (context, out, written, in, size), 0)
OMBRY_MAY_FAIL(BIO*, BIO_new, (const BIO_METHOD* method), (method), nullptr)
OMBRY_MAY_FAIL(BIO*, BIO_new_mem_buf, (const void* data, int size), (data, size), nullptr)
OMBRY_MAY_FAIL(int, PEM_write_bio_X509_AUX, (BIO * bio, const X509* certificate), (bio, certificate), 0)
OMBRY_MAY_FAIL(int, X509_alias_set1, (X509 * certificate, const unsigned char* name, int size),
               (certificate, name, size), 0)
OMBRY_MAY_FAIL(int, PEM_bytes_read_bio,
               (unsigned char** data, long* size, char** foundName, const char* name, BIO* bio,
                pem_password_cb* callback, void* argument),
               (data, size, foundName, name, bio, callback, argument), 0)
OMBRY_MAY_FAIL(int, ASN1_item_i2d, (const ASN1_VALUE* value, unsigned char** encoded, const ASN1_ITEM* item),
               (value, encoded, item), -1)
OMBRY_MAY_FAIL(GCM128_CONTEXT*, CRYPTO_gcm128_new, (void* key, block128_f block), (key, block), nullptr)
OMBRY_MAY_FAIL(X509*, d2i_X509, (X509 * *certificate, const unsigned char** encoded, long size),
               (certificate, encoded, size), nullptr)
OMBRY_MAY_FAIL(int, i2d_X509, (const X509* certificate, unsigned char** encoded), (certificate, encoded), -1)

}  // extern "C"
