#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/ForkSafe.h"

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace pex {

/// What is announced: a name, who announces it, and values by key.
struct Notification {
    /// Values of any type by key.
    using UserInfo = std::map<std::string, std::any>;

    /// What observers wait for.
    std::string name;
    /// The sender; null when none is named. Only told apart by its address.
    const void* object = nullptr;
    /// Values that go along; absent: none.
    std::optional<UserInfo> userInfo = {};
};

/// Announces notifications to those who wait for them by name. Safe from any thread.
class PEX_EXPORT NotificationCenter {
  public:
    /// What a notification is handed to.
    using Observer = std::function<void(const Notification&)>;

    /// The process's own.
    static NotificationCenter& defaultCenter();

    /// Calls the observer for each notification of the name, from any sender, on the thread that posts it,
    /// for as long as the center lives.
    void addObserver(std::string name, Observer observer);
    /// Calls the observers of the name, in the order in which they came, and returns when all are done. An
    /// observer may post and add observers itself.
    void post(const Notification& notification) const;

  private:
    using Observers = std::vector<std::shared_ptr<const Observer>>;

    mutable ForkSafeMutex mutex_;
    std::map<std::string, Observers> observers_;
};

} // namespace pex
