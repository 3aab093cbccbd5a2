#include "tests/support/HttpServer.h"

#include <arpa/inet.h>
#include <array>
#include <memory>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

LoopbackListener::LoopbackListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    constexpr int waiting = 16;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (socket_ < 0 || ::bind(socket_, plain, size) != 0 || ::listen(socket_, waiting) != 0 ||
        ::getsockname(socket_, plain, &size) != 0)
        throw std::runtime_error("no server on the loopback interface");
    port_ = ntohs(address.sin_port);
}

LoopbackListener::~LoopbackListener() { ::close(socket_); }

int LoopbackListener::accept() const { return ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC); }

void LoopbackListener::stop() const { ::shutdown(socket_, SHUT_RDWR); }

namespace {

/// Appends what comes next; false at the end.
bool receive(int socket, std::string& into) {
    std::array<char, 65536> buffer;
    const ssize_t got = ::recv(socket, buffer.data(), buffer.size(), 0);
    if (got > 0) into.append(buffer.data(), static_cast<std::size_t>(got));
    return got > 0;
}

std::size_t contentLength(const std::string& headers) {
    const std::string name = "Content-Length: ";
    const std::size_t at = headers.find(name);
    return at == std::string::npos ? 0 : std::stoul(headers.substr(at + name.size()));
}

} // namespace

bool HttpServer::Exchange::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void HttpServer::Exchange::answer(std::string_view status, std::string_view content,
                                  std::string_view moreHeaders) const {
    send("HTTP/1.1 " + std::string(status) + "\r\nConnection: close\r\n" + std::string(moreHeaders) +
         "Content-Length: " + std::to_string(content.size()) + "\r\n\r\n");
    send(content);
}

void HttpServer::Exchange::waitUntilClientGoes() const {
    std::string ignored;
    while (receive(socket_, ignored)) {
    }
}

void HttpServer::Exchange::reset() const {
    const linger atOnce{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

HttpServer::HttpServer(Handler handler) : handler_(std::move(handler)), acceptor_([this] { acceptAll(); }) {}

HttpServer::~HttpServer() {
    listener_.stop();
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const int socket : sockets_)
            ::shutdown(socket, SHUT_RDWR);
    }
    for (std::thread& connection : connections_)
        connection.join();
}

std::string HttpServer::address(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(listener_.port()) + std::string(path);
}

void HttpServer::acceptAll() {
    for (;;) {
        const int socket = listener_.accept();
        if (socket < 0) return;
        const std::lock_guard lock(mutex_);
        sockets_.push_back(socket);
        connections_.emplace_back([this, socket] { serve(socket); });
    }
}

void HttpServer::serve(int socket) {
    std::string text;
    std::size_t end = std::string::npos;
    while ((end = text.find("\r\n\r\n")) == std::string::npos && receive(socket, text)) {
    }
    if (end != std::string::npos) {
        Exchange exchange;
        exchange.socket_ = socket;
        exchange.headers = text.substr(0, end + 2);
        exchange.method = text.substr(0, text.find(' '));
        const std::size_t target = exchange.method.size() + 1;
        exchange.target = text.substr(target, text.find(' ', target) - target);
        exchange.body = text.substr(end + 4);
        if (exchange.headers.find("100-continue") != std::string::npos)
            exchange.send("HTTP/1.1 100 Continue\r\n\r\n");
        const std::size_t length = contentLength(exchange.headers);
        while (exchange.body.size() < length && receive(socket, exchange.body)) {
        }
        ++requests_;
        handler_(exchange);
    }
    const std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
    ::close(socket);
}

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
