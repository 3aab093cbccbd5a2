#pragma once

#include "peximage/platform/Export.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace pex {

/// Tells observers that an object changes. Observers may subscribe and unsubscribe at any time, from any
/// thread and from within a call; they are called on the thread that sends, in the order of subscribing.
class PEX_EXPORT ChangePublisher {
    struct State;

  public:
    /// Called without arguments: what has changed is asked of the object.
    using Observer = std::function<void()>;

    /// Keeps an observer subscribed as long as it lives. May outlive the publisher. Moved, not copied.
    class PEX_EXPORT Subscription {
      public:
        Subscription() = default;
        /// Takes the subscription over; the one taken from is empty, and one that was held ends.
        /// @{
        Subscription(Subscription&& other) noexcept;
        Subscription& operator=(Subscription&& other) noexcept;
        /// @}
        ~Subscription() { unsubscribe(); }

        /// The observer is not called any more, not even by a `send` under way. Again: no effect.
        void unsubscribe();

      private:
        friend class ChangePublisher;
        std::weak_ptr<State> state_;
        std::uint64_t ticket_ = 0;
    };

    ChangePublisher();
    ~ChangePublisher();
    ChangePublisher(const ChangePublisher&) = delete;
    ChangePublisher& operator=(const ChangePublisher&) = delete;

    /// Calls the observer at every `send` until the returned subscription ends.
    [[nodiscard]] Subscription subscribe(Observer observer);
    /// Calls the observer at every `send` while `owner` lives; the owner is kept alive during the call, not
    /// between calls. For observers that call into their owner.
    void subscribe(std::weak_ptr<void> owner, Observer observer);

    /// Calls the observers that are subscribed now.
    void send();

  private:
    std::shared_ptr<State> state_;
};

} // namespace pex
