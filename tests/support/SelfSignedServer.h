#pragma once

#include "tests/support/LoopbackListener.h"

#include <atomic>
#include <string>
#include <thread>

/// A secure web server on the loopback interface, for one connection, whose certificate nobody vouches for.
class SelfSignedServer {
  public:
    SelfSignedServer();
    ~SelfSignedServer();
    SelfSignedServer(const SelfSignedServer&) = delete;
    SelfSignedServer& operator=(const SelfSignedServer&) = delete;

    std::string address() const { return "https://127.0.0.1:" + std::to_string(listener_.port()) + "/"; }
    /// Whether a client went on after it had seen the certificate.
    bool wasTrusted() const { return trusted_; }

  private:
    void serve();

    LoopbackListener listener_;
    std::atomic<bool> trusted_{false};
    std::thread thread_; // last: it uses all of the above
};
