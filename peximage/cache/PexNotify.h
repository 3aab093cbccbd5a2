#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <memory>
#include <string>

namespace pex {

class PexImage;

/// One part of an application announces an image under a keyword, others receive it: notifications of the
/// default notification centre that carry the image in their user information under "PexImage". Any thread.
struct PEX_EXPORT PexNotify {
    struct Announcement {
        std::string keyword;
        /// Null when none is named.
        const void* sender = nullptr;
        /// Null: observers receive none.
        std::shared_ptr<PexImage> image;
    };
    /// Returns when all who wait for the keyword have been called, on this thread.
    static void notify(const Announcement& announcement);

    struct Observation {
        /// Makes no difference: images from any sender are received.
        const void* sender = nullptr;
        std::string keyword;
        /// Called on the thread that announces; null when the notification carries no image.
        std::function<void(std::shared_ptr<PexImage> image)> callback;
    };
    /// Lasts as long as the process.
    static void observeImage(Observation observation);
};

} // namespace pex
