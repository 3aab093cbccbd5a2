#include "peximage/platform/codecs/FileEnds.h"
#include "peximage/platform/codecs/PngMetadata.h"
#include "peximage/platform/codecs/PngReader.h"
#include "peximage/platform/codecs/PngWriter.h"

#include <algorithm>

namespace pex {
namespace {

bool isPng(std::span<const std::uint8_t> bytes) {
    constexpr std::uint8_t signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    return bytes.size() >= sizeof signature &&
           std::equal(signature, signature + sizeof signature, bytes.begin());
}

} // namespace

const ImageCodec pngCodec{ImageFormat::png, isPng,        openPng,        encodePng,
                          nullptr,          pngBreaksOff, readPngMetadata};

} // namespace pex
