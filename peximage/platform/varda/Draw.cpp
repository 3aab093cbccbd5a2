#include "peximage/platform/varda/Draw.h"

#include <vector>

namespace pex {
namespace {

thread_local std::vector<std::shared_ptr<NSImage>> targets;

} // namespace

bool Draw::start(const std::shared_ptr<NSImage>& image) {
    if (!image || !image->lockFocus()) return false;
    targets.push_back(image);
    NSGraphicsContext::current()->setImageInterpolation(CGInterpolationQuality::high);
    return true;
}

void Draw::copybits(const Copybits& copy) {
    if (targets.empty() || !copy.srcImage) return;
    const CGRect source = copy.srcRect.value_or(CGRect{{0, 0}, copy.srcImage->size()});
    const CGRect place = copy.dstRect.value_or(CGRect{copy.dstPoint.value_or(CGPoint{}), source.size});
    copy.srcImage->draw(place, source, NSCompositingOperation::sourceOver, copy.opacity);
}

void Draw::end() {
    if (targets.empty()) return;
    targets.back()->unlockFocus();
    targets.pop_back();
}

} // namespace pex
