#include "peximage/platform/toolkit/NSColor.h"

#include "peximage/platform/toolkit/NSGraphicsContext.h"

namespace pex {

void NSColor::drawSwatch(const CGRect& rect) const {
    const auto current = NSGraphicsContext::current();
    if (!current) return;
    current->cgContext()->saveGState();
    current->cgContext()->setFillColor(color_);
    current->cgContext()->fill(rect);
    current->cgContext()->restoreGState();
}

} // namespace pex
