#include "peximage/platform/raster/PixelSource.h"

#include <cstring>

namespace pex {

PixelSize PixelSource::reducedSize(PixelSize) const { return size(); }

bool PixelSource::decode(MutablePixelView pixels) const {
    const std::unique_ptr<RowReader> reader = rows({pixels.width, pixels.height});
    if (reader) return reader->read(pixels);
    fillMissing(pixels);
    return false;
}

void fillMissing(MutablePixelView rows) {
    const int value = hasAlpha(rows.layout) ? 0 : 128;
    const auto bytes =
        static_cast<std::size_t>(rows.width) * static_cast<std::size_t>(bytesPerPixel(rows.layout));
    for (int y = 0; y < rows.height; ++y)
        std::memset(rows.row(y), value, bytes);
}

} // namespace pex
