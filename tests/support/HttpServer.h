#pragma once

#include "peximage/platform/foundation/URL.h"

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// Waits for connections on the loopback interface, on a port of its own.
class LoopbackListener {
  public:
    LoopbackListener();
    ~LoopbackListener();
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    int port() const { return port_; }
    /// The next connection, the caller's to close; -1 after `stop`.
    int accept() const;
    /// Ends `accept`, also on another thread.
    void stop() const;

  private:
    int socket_ = -1, port_ = 0;
};

/// A web server on the loopback interface, on a port of its own, that does what the test says: also what no
/// good server does.
class HttpServer {
  public:
    /// One request, and the connection that it came on, which is closed when the handler returns.
    class Exchange {
      public:
        std::string method, target, headers, body;

        /// Sends bytes as they are. False when the client has gone.
        bool send(std::string_view bytes) const;
        /// A whole answer with its length.
        void answer(std::string_view status, std::string_view content,
                    std::string_view moreHeaders = "") const;
        /// Says nothing until the client gives up.
        void waitUntilClientGoes() const;
        /// Ends the connection the hard way.
        void reset() const;

      private:
        friend class HttpServer;
        int socket_ = -1;
    };
    using Handler = std::function<void(const Exchange&)>;

    /// The handler is called on a thread for each connection.
    explicit HttpServer(Handler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// "http://127.0.0.1:PORT/path"
    std::string address(std::string_view path) const;
    pex::URL url(std::string_view path) const { return *pex::URL::parse(address(path)); }
    /// How many requests have come.
    int requests() const { return requests_; }

  private:
    void acceptAll();
    void serve(int socket);

    Handler handler_;
    LoopbackListener listener_;
    std::atomic<int> requests_{0};
    std::mutex mutex_;
    std::list<std::thread> connections_;
    std::vector<int> sockets_;
    std::thread acceptor_; // last: it uses all of the above
};
