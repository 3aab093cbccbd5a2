#include "peximage/platform/raster/Strips.h"

#include <oneapi/tbb/parallel_for.h>

#include <algorithm>

namespace pex {
namespace {

constexpr int stripRows = 32;

} // namespace

void forEachStrip(int height, const std::function<void(int begin, int end)>& work) {
    if (height <= stripRows) {
        if (height > 0) work(0, height);
        return;
    }
    const int strips = (height + stripRows - 1) / stripRows;
    oneapi::tbb::parallel_for(
        0, strips, [&](int strip) { work(strip * stripRows, std::min(height, (strip + 1) * stripRows)); });
}

} // namespace pex
