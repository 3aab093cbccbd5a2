#include "peximage/platform/codecs/FileEnds.h"
#include "peximage/platform/codecs/jpeg/JpegMetadata.h"
#include "peximage/platform/codecs/jpeg/decode/JpegReader.h"
#include "peximage/platform/codecs/jpeg/encode/ImageEncoder.h"

namespace pex {
namespace {

bool isJpeg(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

} // namespace

const ImageCodec jpegCodec{ImageFormat::jpeg, isJpeg,        openJpeg,         encodeJpeg,
                           nullptr,           jpegBreaksOff, readJpegMetadata, encodeJpegRepeatedly};

} // namespace pex
