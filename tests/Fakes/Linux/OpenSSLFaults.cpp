#include "tests/Fakes/Linux/OpenSSLFaults.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <dlfcn.h>

#include <cstdlib>

// The functions below stand before those of the shared library, since the executable's own definitions win.

namespace Ombry::Tests {
namespace {

struct Fault {
    std::string function;
    int passing = 0;
    int errors = 0;
    bool failed = false;
};
thread_local Fault fault;

struct Authorities {
    bool replaced = false;
    std::string file;
    std::string directory;
};
Authorities authorities;

bool Fails(const char* function) {
    if (fault.function != function || fault.passing-- != 0) return false;
    fault.failed = true;
    for (int reason = 1; reason <= fault.errors; ++reason)
        ERR_raise(ERR_LIB_USER, reason);
    return true;
}

template <typename Function>
Function* TheLibrarys(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) std::abort();
    return reinterpret_cast<Function*>(found);
}

}  // namespace

OpenSSLFault::OpenSSLFault(const std::string& function, int passing, int errors) {
    fault = {function, passing, errors, false};
}

OpenSSLFault::~OpenSSLFault() {
    fault = {};
}

bool OpenSSLFault::Happened() const {
    return fault.failed;
}

DefaultAuthorities::DefaultAuthorities(const std::string& file, const std::string& directory) {
    authorities = {true, file, directory};
}

DefaultAuthorities::~DefaultAuthorities() {
    authorities = {};
}

}  // namespace Ombry::Tests

using Ombry::Tests::authorities;
using Ombry::Tests::Fails;
using Ombry::Tests::fault;
using Ombry::Tests::TheLibrarys;

extern "C" {

const char* X509_get_default_cert_file() {
    static const auto real = TheLibrarys<decltype(X509_get_default_cert_file)>("X509_get_default_cert_file");
    return authorities.replaced ? authorities.file.c_str() : real();
}

const char* X509_get_default_cert_dir() {
    static const auto real = TheLibrarys<decltype(X509_get_default_cert_dir)>("X509_get_default_cert_dir");
    return authorities.replaced ? authorities.directory.c_str() : real();
}

SSL_CTX* SSL_CTX_new(const SSL_METHOD* method) {
    static const auto real = TheLibrarys<decltype(SSL_CTX_new)>("SSL_CTX_new");
    return Fails("SSL_CTX_new") ? nullptr : real(method);
}

long SSL_CTX_ctrl(SSL_CTX* context, int command, long number, void* pointer) {
    static const auto real = TheLibrarys<decltype(SSL_CTX_ctrl)>("SSL_CTX_ctrl");
    if (command == SSL_CTRL_SET_MIN_PROTO_VERSION && Fails("SSL_CTX_set_min_proto_version")) return 0;
    if (command == SSL_CTRL_SET_MAX_PROTO_VERSION && Fails("SSL_CTX_set_max_proto_version")) return 0;
    if (command == SSL_CTRL_SET_SIGALGS_LIST && Fails("SSL_CTX_set1_sigalgs_list")) return 0;
    return real(context, command, number, pointer);
}

int SSL_CTX_set_cipher_list(SSL_CTX* context, const char* list) {
    static const auto real = TheLibrarys<decltype(SSL_CTX_set_cipher_list)>("SSL_CTX_set_cipher_list");
    return Fails("SSL_CTX_set_cipher_list") ? 0 : real(context, list);
}

int SSL_CTX_set_ciphersuites(SSL_CTX* context, const char* list) {
    static const auto real = TheLibrarys<decltype(SSL_CTX_set_ciphersuites)>("SSL_CTX_set_ciphersuites");
    return Fails("SSL_CTX_set_ciphersuites") ? 0 : real(context, list);
}

SSL* SSL_new(SSL_CTX* context) {
    static const auto real = TheLibrarys<decltype(SSL_new)>("SSL_new");
    return Fails("SSL_new") ? nullptr : real(context);
}

BIO_METHOD* BIO_meth_new(int type, const char* name) {
    static const auto real = TheLibrarys<decltype(BIO_meth_new)>("BIO_meth_new");
    return Fails("BIO_meth_new") ? nullptr : real(type, name);
}

BIO* BIO_new(const BIO_METHOD* method) {
    static const auto real = TheLibrarys<decltype(BIO_new)>("BIO_new");
    return Fails("BIO_new") ? nullptr : real(method);
}

long SSL_ctrl(SSL* session, int command, long number, void* pointer) {
    static const auto real = TheLibrarys<decltype(SSL_ctrl)>("SSL_ctrl");
    if (command == SSL_CTRL_SET_TLSEXT_HOSTNAME && Fails("SSL_set_tlsext_host_name")) return 0;
    return real(session, command, number, pointer);
}

int SSL_set_ex_data(SSL* session, int index, void* data) {
    static const auto real = TheLibrarys<decltype(SSL_set_ex_data)>("SSL_set_ex_data");
    return Fails("SSL_set_ex_data") ? 0 : real(session, index, data);
}

int SSL_set1_host(SSL* session, const char* name) {
    static const auto real = TheLibrarys<decltype(SSL_set1_host)>("SSL_set1_host");
    return Fails("SSL_set1_host") ? 0 : real(session, name);
}

int SSL_do_handshake(SSL* session) {
    static const auto real = TheLibrarys<decltype(SSL_do_handshake)>("SSL_do_handshake");
    return Fails("SSL_do_handshake") ? -1 : real(session);
}

int SSL_read_ex(SSL* session, void* data, std::size_t room, std::size_t* count) {
    static const auto real = TheLibrarys<decltype(SSL_read_ex)>("SSL_read_ex");
    return Fails("SSL_read_ex") ? 0 : real(session, data, room, count);
}

int SSL_peek_ex(SSL* session, void* data, std::size_t room, std::size_t* count) {
    static const auto real = TheLibrarys<decltype(SSL_peek_ex)>("SSL_peek_ex");
    return Fails("SSL_peek_ex") ? 0 : real(session, data, room, count);
}

int SSL_write_ex(SSL* session, const void* data, std::size_t length, std::size_t* written) {
    static const auto real = TheLibrarys<decltype(SSL_write_ex)>("SSL_write_ex");
    if (!Fails("SSL_write_ex")) return real(session, data, length, written);
    // A write that fails without an error waits for the peer: the library has asked for input in vain.
    char byte = 0;
    if (fault.errors == 0) BIO_read(SSL_get_rbio(session), &byte, 1);
    return 0;
}

int SSL_renegotiate(SSL* session) {
    static const auto real = TheLibrarys<decltype(SSL_renegotiate)>("SSL_renegotiate");
    return Fails("SSL_renegotiate") ? 0 : real(session);
}

int SSL_shutdown(SSL* session) {
    static const auto real = TheLibrarys<decltype(SSL_shutdown)>("SSL_shutdown");
    return Fails("SSL_shutdown") ? -1 : real(session);
}

X509* SSL_get0_peer_certificate(const SSL* session) {
    static const auto real = TheLibrarys<decltype(SSL_get0_peer_certificate)>("SSL_get0_peer_certificate");
    return Fails("SSL_get0_peer_certificate") ? nullptr : real(session);
}

int i2d_X509(const X509* certificate, unsigned char** encoded) {
    static const auto real = TheLibrarys<decltype(i2d_X509)>("i2d_X509");
    return Fails("i2d_X509") ? -1 : real(certificate, encoded);
}

}  // extern "C"
