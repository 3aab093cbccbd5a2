#include "TransferLoop.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <iterator>
#include <pthread.h>
#include <thread>

namespace {

using Module = pex::NetModule;

constexpr int aSecond = 1000, anHour = 3600 * 1000; // in milliseconds

TransferLoop* sharedLoop = nullptr;

} // namespace

TransferLoop& TransferLoop::shared() {
    static std::once_flag made; // which, other than a static object's, a fork does not leave half-way
    std::call_once(made, makeShared);
    return *sharedLoop;
}

void TransferLoop::makeShared() {
    sharedLoop = new TransferLoop;
    ::pthread_atfork([] { sharedLoop->mutex_.lock(); }, [] { sharedLoop->mutex_.unlock(); },
                     [] {
                         auto* const parents = sharedLoop;
                         sharedLoop = new TransferLoop;
                         sharedLoop->parents_ = parents;
                     });
}

bool TransferLoop::begin(const Module::Transfer& wanted) {
    Transfers one;
    try {
        one.emplace_back(wanted);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (one.front().handle() == nullptr) return false;
    const std::lock_guard lock(mutex_);
    if (!hasStarted()) return false;
    coming_.splice(coming_.end(), one);
    curl_multi_wakeup(multi_);
    return true;
}

void TransferLoop::lookForCancelled() {
    const std::lock_guard lock(mutex_);
    if (multi_ != nullptr) curl_multi_wakeup(multi_);
}

/// With the lock held.
bool TransferLoop::hasStarted() {
    if (multi_ != nullptr) return true;
    CURLM* const multi = curl_multi_init();
    if (multi == nullptr) return false;
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, Module::mostAtOnce);
    curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, Module::mostAtOnceOfOneServer);
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS,
                      Module::mostAtOnceOfOneServer); // kept for the next transfer
    multi_ = multi;
    try {
        std::thread([this] { run(); }).detach();
    } catch (const std::exception&) { // neither a thread nor, perhaps, memory for it
        curl_multi_cleanup(multi);
        multi_ = nullptr;
    }
    return multi_ != nullptr;
}

void TransferLoop::run() {
    sigset_t all; // the application's handlers are for its own threads
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    for (;;) {
        addComing();
        int goingOn = 0;
        const bool worked = curl_multi_perform(multi_, &goingOn) == CURLM_OK;
        endThoseThatAreDone();
        endThoseThatMayNotGoOn();
        const int sleep = underWay_.empty() ? anHour : aSecond; // within which one may become late
        if (curl_multi_poll(multi_, nullptr, 0, sleep, nullptr) != CURLM_OK || !worked)
            std::this_thread::sleep_for(std::chrono::milliseconds(10)); // there may be memory again then
    }
}

void TransferLoop::addComing() {
    Transfers coming;
    {
        const std::lock_guard lock(mutex_);
        coming.swap(coming_);
    }
    while (!coming.empty()) {
        const auto transfer = coming.begin();
        underWay_.splice(underWay_.end(), coming, transfer);
        if (curl_multi_add_handle(multi_, transfer->handle()) != CURLM_OK)
            end(transfer, outcomeOf(Module::Ending::failed, "no transfer could be started"));
    }
}

void TransferLoop::endThoseThatAreDone() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURL* const handle = message->easy_handle;
        const auto done = std::find_if(underWay_.begin(), underWay_.end(),
                                       [&](const HttpTransfer& one) { return one.handle() == handle; });
        if (done != underWay_.end()) end(done, done->outcome(message->data.result));
    }
}

/// Also those that wait for their turn, which the transfer library leaves alone.
void TransferLoop::endThoseThatMayNotGoOn() {
    const auto now = HttpTransfer::Clock::now();
    for (auto transfer = underWay_.begin(); transfer != underWay_.end();) {
        const auto next = std::next(transfer);
        if (transfer->isCancelled())
            end(transfer, outcomeOf(Module::Ending::cancelled, "cancelled"));
        else if (transfer->isLate(now))
            end(transfer, outcomeOf(Module::Ending::timedOut, "the time was over"));
        transfer = next;
    }
}

void TransferLoop::end(Transfers::iterator transfer, const Module::Outcome& outcome) {
    const Module::Transfer& wanted = transfer->wanted();
    curl_multi_remove_handle(multi_, transfer->handle());
    underWay_.erase(transfer);
    wanted.ended(wanted.context, &outcome);
}
