#include "peximage/platform/foundation/Network.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Module.h"
#include "peximage/platform/foundation/NetModule.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/ReasonWatch.h"
#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <new>
#include <pthread.h>
#include <vector>

namespace pex {
namespace {

Guarded<NetworkLimits> limitsInForce;

/// Bytes of all transfers that have not ended. A forked child forgets those of its parent.
std::atomic<std::size_t> arrivingTogether{0};
[[maybe_unused]] const int forgetsInChild = ::pthread_atfork(nullptr, nullptr, [] { arrivingTogether = 0; });

NetworkReply failure(ReasonCode code, std::string why) { return {std::nullopt, {code, std::move(why)}}; }

NetworkReply withoutNetwork() { return failure(ReasonCode::missingModule, "built without network access"); }

NetworkReply outOfMemory() { return failure(ReasonCode::outOfMemory, "out of memory"); }

template <class Reading>
NetworkReply orOutOfMemory(const Reading& read) {
    try {
        return read();
    } catch (const std::bad_alloc&) {
        return outOfMemory();
    }
}

/// Limits a time to what the transfer's counters hold, which is longer than anyone waits.
double inBounds(double seconds) {
    constexpr double aWeek = 7 * 24 * 3600;
    return std::isfinite(seconds) ? std::clamp(seconds, 0.001, aWeek) : aWeek;
}

NetModule::Patience patience(const NetworkLimits& limits, std::optional<double> whole) {
    return {inBounds(limits.connectSeconds), std::max(limits.stallSeconds, 1),
            inBounds(whole.value_or(limits.wholeSeconds))};
}

NetworkReply readFile(const URL& url, std::size_t maxBytes) {
    const ReasonWatch watch;
    NetworkReply reply{Data::contentsOf(url, maxBytes), {}};
    if (!reply.data)
        reply.reason = watch.hasSeen() ? lastReason()
                                       : Reason{ReasonCode::cannotRead, "no such file, or it cannot be read"};
    return reply;
}

ReasonCode codeOf(NetModule::Ending ending) {
    switch (ending) {
    case NetModule::Ending::timedOut:
        return ReasonCode::timedOut;
    case NetModule::Ending::cancelled:
        return ReasonCode::cancelled;
    default:
        return ReasonCode::networkFailed;
    }
}

/// The transfer's own; else that of the thread which asks for it.
std::stop_token tokenOf(const NetworkOptions& options) {
    const auto control = currentWork();
    return control && !options.stop.stop_possible() ? control->stop : options.stop;
}

/// A transfer and what it needs as long as it goes on.
class Transfer {
  public:
    Transfer(const NetModule& net, const URL& url, const NetworkOptions& options)
        : net_(net),
          address_(url.absoluteString()),
          limits_(NetworkLimits::current()),
          stop_(tokenOf(options)),
          wanted_{address_.c_str(),
                  patience(limits_, options.timeOutSeconds),
                  nullptr,
                  this,
                  take,
                  isCancelled,
                  ended} {}
    /// Null without memory for it.
    static std::unique_ptr<Transfer> make(const NetModule& net, const URL& url,
                                          const NetworkOptions& options) {
        return absentWithoutMemory([&] { return std::make_unique<Transfer>(net, url, options); });
    }
    ~Transfer() { arrivingTogether -= counted_; }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    void post(NetworkFile file) {
        file_ = std::move(file);
        posted_ = {file_.data.data(), file_.data.size(), file_.name.c_str(), file_.mimeType.c_str()};
        wanted_.posted = &posted_;
    }

    NetworkReply perform() { return reply(net_.perform(&wanted_)); }

    /// In the background, where that is possible.
    static void begin(std::unique_ptr<Transfer> transfer, NetworkReceiver receiver) {
        transfer->receiver_ = std::move(receiver);
        transfer->whenStopped_.emplace(transfer->stop_, transfer->net_.lookForCancelled);
        if (transfer->net_.begin(&transfer->wanted_))
            (void)transfer.release(); // it is freed when it has ended
        else
            transfer->receiver_(transfer->perform());
    }

  private:
    static bool take(void* self, const std::uint8_t* bytes, std::size_t size) {
        auto& transfer = *static_cast<Transfer*>(self);
        try {
            return transfer.take(bytes, size);
        } catch (const std::bad_alloc&) {
            transfer.refused_.code = ReasonCode::outOfMemory;
            return false;
        }
    }
    static bool isCancelled(void* self) { return static_cast<const Transfer*>(self)->stop_.stop_requested(); }
    static void ended(void* self, const NetModule::Outcome* outcome) {
        const std::unique_ptr<Transfer> transfer(static_cast<Transfer*>(self));
        try {
            transfer->receiver_(transfer->reply(*outcome));
        } catch (...) { // nobody could catch it
        }
    }

    bool take(const std::uint8_t* bytes, std::size_t size) {
        if (wanted_.posted != nullptr) return true; // the answer's content is not needed
        if (size > limits_.maxBytes - bytes_.size())
            return refuse(ReasonCode::overLimit,
                          "larger than " + std::to_string(limits_.maxBytes) + " bytes");
        arrivingTogether += size;
        counted_ += size;
        if (arrivingTogether > std::max(limits_.maxBytesTogether, limits_.maxBytes))
            return refuse(ReasonCode::overLimit, "too much is being read at the same time");
        bytes_.insert(bytes_.end(), bytes, bytes + size);
        return true;
    }
    bool refuse(ReasonCode code, std::string why) {
        refused_ = {code, std::move(why)};
        return false;
    }

    NetworkReply reply(const NetModule::Outcome& outcome) {
        if (outcome.ending == NetModule::Ending::success) return {Data(std::move(bytes_)), {}};
        if (refused_) return {std::nullopt, refused_};
        return failure(codeOf(outcome.ending), outcome.text);
    }

    const NetModule& net_;
    const std::string address_;
    const NetworkLimits limits_;
    const std::stop_token stop_;
    NetworkFile file_;
    NetModule::File posted_{};
    NetModule::Transfer wanted_;
    std::vector<std::uint8_t> bytes_;
    std::size_t counted_ = 0;
    Reason refused_;
    NetworkReceiver receiver_;
    std::optional<std::stop_callback<void (*)()>> whenStopped_;
};

} // namespace

NetworkLimits NetworkLimits::current() { return limitsInForce.get(); }

void NetworkLimits::setCurrent(const NetworkLimits& limits) { limitsInForce.set(limits); }

NetworkReply readAddress(const URL& url, const NetworkOptions& options) {
    NetworkReply reply = orOutOfMemory([&] {
        if (url.isFileURL()) return readFile(url, NetworkLimits::current().maxBytes);
        const auto* net = loadModule<NetModule>(NetModule::name);
        return net != nullptr ? Transfer(*net, url, options).perform() : withoutNetwork();
    });
    if (!reply.data) giveReason(reply.reason);
    return reply;
}

void readAddressInBackground(const URL& url, const NetworkOptions& options, NetworkReceiver receiver) {
    const auto* net = url.isFileURL() ? nullptr : loadModule<NetModule>(NetModule::name);
    auto transfer = net != nullptr ? Transfer::make(*net, url, options) : nullptr;
    if (transfer)
        Transfer::begin(std::move(transfer), std::move(receiver));
    else
        receiver(readAddress(url, options));
}

void postFileInBackground(const URL& to, NetworkFile file, NetworkReceiver receiver) {
    const auto* net = loadModule<NetModule>(NetModule::name);
    auto transfer = net != nullptr ? Transfer::make(*net, to, {}) : nullptr;
    if (!transfer) return receiver(net != nullptr ? outOfMemory() : withoutNetwork());
    transfer->post(std::move(file));
    Transfer::begin(std::move(transfer), std::move(receiver));
}

} // namespace pex
