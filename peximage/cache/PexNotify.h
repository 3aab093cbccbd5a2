#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <memory>
#include <string>

namespace pex {

class PexImage;

/// Announces images under keywords to other parts of an application. The announcements are notifications of
/// the default notification centre, with the image in their user information under "PexImage". Any thread.
struct PEX_EXPORT PexNotify {
    /// What `notify` announces.
    struct Announcement {
        /// The keyword that observers wait for.
        std::string keyword;
        /// Who announces it; may be null.
        const void* sender = nullptr;
        /// The image; null: observers receive null.
        std::shared_ptr<PexImage> image;
    };
    /// Calls all observers of the keyword on this thread, then returns.
    static void notify(const Announcement& announcement);

    /// What `observeImage` waits for.
    struct Observation {
        /// Has no effect: images from any sender are received.
        const void* sender = nullptr;
        /// The keyword of the announcements.
        std::string keyword;
        /// Called on the thread that announces; null when the notification carries no image.
        std::function<void(std::shared_ptr<PexImage> image)> callback;
    };
    /// Lasts as long as the process.
    static void observeImage(Observation observation);
};

} // namespace pex
