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

/// Keeps images that are expensive to make in memory, each under a text identifier. A request gives the image
/// that is kept, or makes it, reduces it if asked to, and keeps it. The number of images can be bounded; then
/// those that were not requested for the longest time are dropped.
///
/// Shared by reference; safe from any thread.
class PEX_EXPORT PexImageCache {
  public:
    /// One entry of the cache.
    struct CachedImage {
        /// The identifier that the image was asked for by.
        std::string id;
        /// When it was made or last asked for. A later request has a later date, even if the clock was set
        /// back meanwhile.
        std::chrono::system_clock::time_point lastRequested;
        /// Null when there was nothing to keep; that is remembered, too.
        std::shared_ptr<PexImage> image;
    };

    /// The most entries; absent: any number. With 0 nothing is kept.
    std::optional<std::int64_t> maxImagesInCache;
    /// All entries. A new one is appended. When the cache outgrows its bound, the list is sorted by the last
    /// request, latest first, and cut. To be read and changed on `workQueue()` alone.
    std::vector<std::shared_ptr<CachedImage>> cachedImageList;

    /// Options of `make`.
    struct MaxImagesInCache {
        /// The most entries; absent: any number.
        std::optional<std::int64_t> maxImagesInCache = {};
    };
    /// An empty cache. Never null.
    static std::shared_ptr<PexImageCache> make(const MaxImagesInCache& bound);

    /// Options of `getImageOrCalc`.
    struct ImageOrCalc {
        /// The identifier of the image.
        std::string_view withId;
        /// The longer side, in pixels, that a newly made image is reduced to; absent: its own. It is redrawn
        /// even if it is small enough. An image that is kept already stays as it is.
        std::optional<double> maxSize = {};
        /// Called at most once, on this thread, before the operation returns; may give null.
        std::function<std::shared_ptr<PexImage>()> calcClosure;
    };
    /// The image of an identifier. Null when none could be made, or it could not be reduced. Two threads that
    /// ask for the same new image may both make it; the first one is kept. Not to be called on `workQueue()`.
    /// Finding an image looks through the list and allocates nothing.
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
