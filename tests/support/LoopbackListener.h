#pragma once

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
