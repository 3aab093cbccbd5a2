#pragma once

#include "peximage/cache/RequestDates.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/DispatchQueue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// Images in memory that are expensive to make, by a text identifier. An image that is asked for is taken
/// from memory, or else made once, on request reduced, and kept. The number of images can be bounded; beyond
/// it those go that nobody has asked for the longest.
///
/// Shared by reference; safe from any thread. The list is only read and changed on `workQueue()`.
class PEX_EXPORT PexImageCache {
  public:
    struct CachedImage {
        std::string id;
        /// When it was made or last asked for. Later requests have later dates, also when the clock is set
        /// back.
        std::chrono::system_clock::time_point lastRequested;
        /// Null when there was nothing to keep, which is kept, too.
        std::shared_ptr<PexImage> image;
    };

    /// The most entries; absent: any number. With 0 nothing is kept.
    std::optional<std::int64_t> maxImagesInCache;
    /// In order of arrival, and since the bound was exceeded for the last time the one requested last first.
    /// To be touched on `workQueue()` alone.
    std::vector<std::shared_ptr<CachedImage>> cachedImageList;

    struct MaxImagesInCache {
        std::optional<std::int64_t> maxImagesInCache = {};
    };
    static std::shared_ptr<PexImageCache> make(const MaxImagesInCache& bound);

    struct ImageOrCalc {
        std::string_view withId;
        /// The longer side in pixels that a newly made image is reduced to; it is redrawn also when it is
        /// small enough. Not considered for an image that is there.
        std::optional<double> maxSize = {};
        /// Called at most once, on this thread, before the operation returns; may give null.
        std::function<std::shared_ptr<PexImage>()> calcClosure;
    };
    /// The image of that identifier. Null when there was none to make, or it could not be reduced. Two
    /// threads that ask for the same new one may both make it; what came first stays. Not to be called on
    /// `workQueue()`. Finding an image looks through the list and allocates nothing.
    std::shared_ptr<PexImage> getImageOrCalc(const ImageOrCalc& request);

    /// The serial queue of all caches of the process.
    static DispatchQueue& workQueue();

  private:
    explicit PexImageCache(std::optional<std::int64_t> bound) : maxImagesInCache(bound) {}

    CachedImage* find(std::string_view id) const;
    void append(std::string_view id, std::shared_ptr<PexImage> image,
                std::vector<std::shared_ptr<CachedImage>>& dropped);
    void trim(std::vector<std::shared_ptr<CachedImage>>& dropped);

    RequestDates dates_;
};

} // namespace pex
