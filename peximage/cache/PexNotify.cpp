#include "peximage/cache/PexNotify.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/NotificationCenter.h"

#include <any>
#include <utility>

namespace pex {
namespace {

constexpr const char* imageKey = "PexImage";

/// Null when there is none.
std::shared_ptr<PexImage> imageOf(const Notification& notification) {
    if (!notification.userInfo) return nullptr;
    const auto found = notification.userInfo->find(imageKey);
    const auto* image = found != notification.userInfo->end()
                            ? std::any_cast<std::shared_ptr<PexImage>>(&found->second)
                            : nullptr;
    return image != nullptr ? *image : nullptr;
}

} // namespace

void PexNotify::notify(const Announcement& announcement) {
    NotificationCenter::defaultCenter().post(
        {announcement.keyword, announcement.sender, Notification::UserInfo{{imageKey, announcement.image}}});
}

void PexNotify::observeImage(Observation observation) {
    if (!observation.callback) return;
    NotificationCenter::defaultCenter().addObserver(
        std::move(observation.keyword),
        [callback = std::move(observation.callback)](const Notification& notification) {
            callback(imageOf(notification));
        });
}

} // namespace pex
