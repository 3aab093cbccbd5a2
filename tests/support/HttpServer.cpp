#include "tests/support/HttpServer.h"

#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
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
