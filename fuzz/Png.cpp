#include "peximage/platform/codecs/ImageCodec.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    pex::ImageLimits limits;
    limits.maxPixels = 1'000'000;
    limits.maxMetadataBytes = 100'000;
    const pex::CGDataProvider file{pex::Data(std::vector<std::uint8_t>(bytes, bytes + count))};
    const auto opened = pex::pngCodec.open(file, limits);
    if (opened && opened->source) pex::CGImage::make(opened->source).isIncomplete();
    return 0;
}
