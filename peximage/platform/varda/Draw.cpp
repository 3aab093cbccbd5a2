#include "peximage/platform/varda/Draw.h"

#include <utility>

namespace pex {
namespace {

thread_local std::shared_ptr<NSImage> target;

} // namespace

bool Draw::start(const std::shared_ptr<NSImage>& image) {
    end();
    if (!image || !image->lockFocus()) return false;
    target = image;
    NSGraphicsContext::current()->setImageInterpolation(CGInterpolationQuality::high);
    return true;
}

void Draw::copybits(const Copybits& copy) {
    if (!target || !copy.srcImage) return;
    const CGRect source = copy.srcRect.value_or(CGRect{{0, 0}, copy.srcImage->size()});
    const CGRect place = copy.dstRect.value_or(CGRect{copy.dstPoint.value_or(CGPoint{}), source.size});
    copy.srcImage->draw(place, source, NSCompositingOperation::sourceOver, copy.opacity);
}

void Draw::end() {
    if (target) std::exchange(target, nullptr)->unlockFocus();
}

} // namespace pex
