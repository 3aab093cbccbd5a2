#pragma once

#include "HttpTransfer.h"

#include <list>
#include <mutex>

/// A thread on which any number of transfers go on at the same time. It starts with the first of them and
/// then stays; a forked child starts its own, and has none of its parent's transfers.
class TransferLoop {
  public:
    /// The process's own, never destroyed: transfers may go on while the process ends.
    static TransferLoop& shared();

    /// False when there is no thread or no memory for it.
    bool begin(const pex::NetModule::Transfer& wanted);
    void lookForCancelled();

  private:
    using Transfers = std::list<HttpTransfer>;

    static void makeShared();
    bool hasStarted();
    [[noreturn]] void run();
    void addComing();
    void endThoseThatAreDone();
    void endThoseThatMayNotGoOn();
    void end(Transfers::iterator transfer, const pex::NetModule::Outcome& outcome);

    std::mutex mutex_; // guards what follows
    Transfers coming_;
    CURLM* multi_ = nullptr;

    Transfers underWay_;              // of the thread alone
    TransferLoop* parents_ = nullptr; // its transfers can be neither continued nor ended
};
