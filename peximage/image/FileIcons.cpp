#include "peximage/image/PexImage.h"
#include "peximage/platform/toolkit/NSWorkspace.h"

namespace pex {

std::shared_ptr<PexImage> PexImage::make(const BundleUrl& source) {
    return make(source.bundleUrl, IconSize({1024, 1024}));
}

std::shared_ptr<PexImage> PexImage::make(const ForFile& source) {
    return make({.bundleUrl = source.forFile});
}

std::shared_ptr<PexImage> PexImage::make(const URL& url, const IconSize& icon) {
    const auto sizes = NSWorkspace::shared().icon({.path = url.path()});
    const auto best = sizes->bestRepresentation({.forRect = {{0, 0}, icon.size}});
    if (!best) return nullptr;
    const auto image = NSImage::make(best->size);
    image->addRepresentation(*best);
    return make(image, {.dontCreateAuxiliaryVars = true});
}

} // namespace pex
