#include "peximage/platform/foundation/ChangePublisher.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace pex {

struct ChangePublisher::State {
    struct Entry {
        std::uint64_t ticket = 0;
        Observer observer;
        bool owned = false;
        std::weak_ptr<void> owner;
        std::atomic<bool> subscribed{true};
    };
    using Entries = std::vector<std::shared_ptr<Entry>>;

    ForkSafeMutex mutex;
    std::uint64_t lastTicket = 0;
    Entries entries;

    std::uint64_t add(Observer observer, bool owned, std::weak_ptr<void> owner) {
        const std::lock_guard lock(mutex);
        const auto entry = std::make_shared<Entry>();
        entry->ticket = ++lastTicket;
        entry->observer = std::move(observer);
        entry->owned = owned;
        entry->owner = std::move(owner);
        entries.push_back(entry);
        return lastTicket;
    }

    void remove(std::uint64_t ticket) {
        std::shared_ptr<Entry> removed; // freed after unlocking: its destructor may subscribe or unsubscribe
        const std::lock_guard lock(mutex);
        const auto found = std::find_if(entries.begin(), entries.end(),
                                        [ticket](const auto& entry) { return entry->ticket == ticket; });
        if (found == entries.end()) return;
        removed = std::move(*found);
        removed->subscribed = false;
        entries.erase(found);
    }

    Entries current() {
        const std::lock_guard lock(mutex);
        return entries;
    }
};

ChangePublisher::Subscription::Subscription(Subscription&& other) noexcept
    : state_(std::exchange(other.state_, {})), ticket_(other.ticket_) {}

ChangePublisher::Subscription& ChangePublisher::Subscription::operator=(Subscription&& other) noexcept {
    std::swap(state_, other.state_);
    std::swap(ticket_, other.ticket_);
    other.unsubscribe();
    return *this;
}

void ChangePublisher::Subscription::unsubscribe() {
    if (const auto state = std::exchange(state_, {}).lock()) state->remove(ticket_);
}

ChangePublisher::ChangePublisher() : state_(std::make_shared<State>()) {}

ChangePublisher::~ChangePublisher() = default;

ChangePublisher::Subscription ChangePublisher::subscribe(Observer observer) {
    Subscription subscription;
    subscription.ticket_ = state_->add(std::move(observer), false, {});
    subscription.state_ = state_;
    return subscription;
}

void ChangePublisher::subscribe(std::weak_ptr<void> owner, Observer observer) {
    state_->add(std::move(observer), true, std::move(owner));
}

void ChangePublisher::send() {
    const auto state = state_; // an observer may free the publisher
    for (const auto& entry : state->current()) {
        if (!entry->subscribed) continue;
        const std::shared_ptr<void> owner = entry->owner.lock();
        if (entry->owned && !owner)
            state->remove(entry->ticket);
        else if (entry->observer)
            entry->observer();
    }
}

} // namespace pex
