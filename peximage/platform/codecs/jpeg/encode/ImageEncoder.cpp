#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"

#include "peximage/platform/codecs/jpeg/JpegMetadata.h"
#include "peximage/platform/raster/kernels/FlattenRow.h"

namespace pex {

std::shared_ptr<jpeg::Encoder> jpeg::encoderOf(const CGImage& image, std::vector<std::uint8_t> metadata,
                                               const JpegOptions& options) {
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return nullptr;
    jpeg::EncoderInput input;
    input.width = pixels->width;
    input.height = pixels->height;
    input.grey = pixels->layout == PixelLayout::grey;
    input.metadata = std::move(metadata);
    if (input.grey || pixels->layout == PixelLayout::skipLast) {
        input.row = [image, view = *pixels](int y, std::uint8_t*) { return view.row(y); };
    } else {
        input.row = [image, view = *pixels](int y, std::uint8_t* scratch) -> const std::uint8_t* {
            kernels::flattenRow(view.row(y), view.layout, scratch, view.width);
            return scratch;
        };
    }
    if (!image.colorSpace().isStandard()) {
        const auto icc = image.colorSpace().iccProfile().bytes();
        input.iccProfile.assign(icc.begin(), icc.end());
    }
    return jpeg::Encoder::make(std::move(input), options);
}

std::optional<Data> encodeJpeg(const CGImage& image, const CGImageDestination::Options& options) {
    const std::shared_ptr<jpeg::Encoder> encoder =
        jpeg::encoderOf(image, jpegMetadataSegments(options.metadata), options.jpeg);
    if (!encoder) return std::nullopt;
    std::vector<std::uint8_t> bytes = encoder->encode(options.quality);
    if (bytes.empty()) return std::nullopt;
    return Data(std::move(bytes));
}

} // namespace pex
