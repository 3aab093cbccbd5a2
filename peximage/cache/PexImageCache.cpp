#include "peximage/cache/PexImageCache.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <algorithm>
#include <new>
#include <utility>

namespace pex {
namespace {

/// Null when it cannot be drawn at that size.
std::shared_ptr<PexImage> reduced(const PexImage& image, double maxSize) {
    const double longest = std::max(image.size.width, image.size.height);
    const double factor = longest <= maxSize ? 1 : maxSize / longest;
    return image.resize({.to = image.size * factor});
}

} // namespace

std::shared_ptr<PexImageCache> PexImageCache::make(const MaxImagesInCache& bound) {
    return std::shared_ptr<PexImageCache>(new PexImageCache(bound.maxImagesInCache));
}

DispatchQueue& PexImageCache::workQueue() {
    const ForkPass pass; // a fork now would leave it half made
    // Never freed: caches may be used while the process ends.
    static DispatchQueue& queue = *new DispatchQueue("org.peximage.PexImageCache");
    return queue;
}

std::shared_ptr<PexImage> PexImageCache::getImageOrCalc(const ImageOrCalc& request) {
    std::shared_ptr<PexImage> image;
    bool found = false;
    const auto lookUp = [&] {
        const ForkPass pass;
        CachedImage* const entry = find(request.withId);
        if (!entry) return;
        found = true;
        entry->lastRequested = dates_.next();
        image = entry->image;
    };
    workQueue().sync(std::ref(lookUp)); // by reference, so that nothing is allocated
    if (found) return image;

    if (request.calcClosure) image = request.calcClosure();
    if (image && request.maxSize) image = reduced(*image, *request.maxSize);
    std::vector<std::shared_ptr<CachedImage>>
        dropped; // freed after the queue is left, so that others need not wait
    try {
        workQueue().sync([&] {
            const ForkPass pass;
            append(request.withId, image, dropped);
        });
    } catch (const std::bad_alloc&) { // the image is not kept then
    }
    return image;
}

PexImageCache::CachedImage* PexImageCache::find(std::string_view id) const {
    const auto found = std::find_if(cachedImageList.begin(), cachedImageList.end(),
                                    [&](const auto& entry) { return entry->id == id; });
    return found == cachedImageList.end() ? nullptr : found->get();
}

void PexImageCache::append(std::string_view id, std::shared_ptr<PexImage> image,
                           std::vector<std::shared_ptr<CachedImage>>& dropped) {
    cachedImageList.push_back(std::make_shared<CachedImage>(
        CachedImage{.id = std::string(id), .lastRequested = dates_.next(), .image = std::move(image)}));
    trim(dropped);
}

void PexImageCache::trim(std::vector<std::shared_ptr<CachedImage>>& dropped) {
    auto& list = cachedImageList;
    if (!maxImagesInCache || static_cast<std::int64_t>(list.size()) <= *maxImagesInCache) return;
    std::stable_sort(list.begin(), list.end(),
                     [](const auto& a, const auto& b) { return a->lastRequested > b->lastRequested; });
    const auto end = list.begin() + static_cast<std::ptrdiff_t>(std::max<std::int64_t>(*maxImagesInCache, 0));
    dropped.assign(std::make_move_iterator(end), std::make_move_iterator(list.end()));
    list.erase(end, list.end());
}

} // namespace pex
