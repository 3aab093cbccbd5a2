#include "peximage/platform/codecs/PdfPageSource.h"

#include "peximage/platform/codecs/PdfDocument.h"
#include "peximage/platform/raster/Strips.h"

#include <cstring>

namespace pex {

std::optional<DecodedRows> PdfPageSource::decodeAll(MutablePixelView pixels) const {
    forEachStrip(pixels.height, [&](int begin, int end) {
        for (int y = begin; y < end; ++y)
            std::memset(pixels.row(y), 0, static_cast<std::size_t>(pixels.width) * 4);
    });
    const auto document = PdfDocument::open(document_);
    if (!document || !document->render(page_, pixels)) return std::nullopt;
    return DecodedRows{pixels.height};
}

} // namespace pex
