#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/raster/Scaling.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    pex::ImageLimits limits;
    limits.maxPixels = 1'000'000;
    limits.maxMetadataBytes = 100'000;
    const pex::CGDataProvider file{pex::Data(std::vector<std::uint8_t>(bytes, bytes + count))};
    const auto opened = pex::jpegCodec.open(file, limits);
    if (!opened || !opened->source) return 0;
    const pex::CGImage image = pex::CGImage::make(opened->source);
    pex::scaledImage(image, {1 + image.width() / 3, 1 + image.height() / 3}, pex::Interpolation::smooth);
    image.isIncomplete();
    return 0;
}
