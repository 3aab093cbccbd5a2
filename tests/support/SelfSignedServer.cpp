#include "tests/support/SelfSignedServer.h"

#include <memory>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

/// For 127.0.0.1, signed by itself.
Certificate makeCertificate(EVP_PKEY* key) {
    Certificate certificate(X509_new(), X509_free);
    X509* const x509 = certificate.get();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
    X509_gmtime_adj(X509_getm_notBefore(x509), -3600);
    X509_gmtime_adj(X509_getm_notAfter(x509), 3600);
    X509_NAME* const name = X509_get_subject_name(x509);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(x509, name);
    X509_EXTENSION* const address =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "IP:127.0.0.1");
    X509_add_ext(x509, address, -1);
    X509_EXTENSION_free(address);
    X509_set_pubkey(x509, key);
    X509_sign(x509, key, EVP_sha256());
    return certificate;
}

} // namespace

SelfSignedServer::SelfSignedServer() : thread_([this] { serve(); }) {}

SelfSignedServer::~SelfSignedServer() {
    listener_.stop();
    thread_.join();
}

void SelfSignedServer::serve() {
    const int socket = listener_.accept();
    if (socket < 0) return;
    const Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const Certificate certificate = makeCertificate(key.get());
    const Context context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    SSL* const connection = SSL_new(context.get());
    SSL_set_fd(connection, socket);
    trusted_ = SSL_accept(connection) == 1;
    SSL_free(connection);
    ::close(socket);
}
