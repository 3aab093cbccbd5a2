#include "peximage/platform/raster/Strips.h"

#include "peximage/platform/foundation/Workers.h"

#include <algorithm>

namespace pex {

void forEachStripInSlots(int height, const std::function<void(int begin, int end, int slot)>& work,
                         int rows) {
    if (height <= rows) {
        if (height > 0) work(0, height, 0);
        return;
    }
    const int strips = (height - 1) / rows + 1;
    Workers::forEach(
        strips, [&](int strip, int slot) { work(strip * rows, std::min(height, (strip + 1) * rows), slot); });
}

void forEachStrip(int height, const std::function<void(int begin, int end)>& work, int rows) {
    forEachStripInSlots(
        height, [&](int begin, int end, int) { work(begin, end); }, rows);
}

} // namespace pex
