#include "peximage/platform/foundation/NotificationCenter.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <mutex>
#include <utility>

namespace pex {

NotificationCenter& NotificationCenter::defaultCenter() {
    const ForkPass pass; // a fork now would leave it half made
    // Never freed: background work may still post while the process ends.
    static NotificationCenter& instance = *new NotificationCenter;
    return instance;
}

void NotificationCenter::addObserver(std::string name, Observer observer) {
    if (!observer) return;
    const std::lock_guard lock(mutex_);
    observers_[std::move(name)].push_back(std::make_shared<const Observer>(std::move(observer)));
}

void NotificationCenter::post(const Notification& notification) const {
    Observers called;
    {
        const std::lock_guard lock(mutex_);
        const auto found = observers_.find(notification.name);
        if (found != observers_.end()) called = found->second;
    }
    for (const auto& observer : called)
        (*observer)(notification);
}

} // namespace pex
