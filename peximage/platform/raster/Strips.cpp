#include "peximage/platform/raster/Strips.h"

#include "peximage/platform/foundation/Workers.h"

#include <algorithm>

namespace pex {

void forEachStrip(int height, const std::function<void(int begin, int end)>& work, int rows) {
    if (height <= rows) {
        if (height > 0) work(0, height);
        return;
    }
    const int strips = (height - 1) / rows + 1;
    Workers::forEach(strips,
                     [&](int strip, int) { work(strip * rows, std::min(height, (strip + 1) * rows)); });
}

} // namespace pex
