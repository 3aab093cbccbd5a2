#include "tests/support/LoopbackListener.h"

#include <arpa/inet.h>
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
