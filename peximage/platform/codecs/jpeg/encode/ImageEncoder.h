#pragma once

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

namespace pex {

namespace jpeg {

/// An encoder for the image: grey pictures as one component, others in colour, transparency laid over white,
/// a profile that is not standard embedded, whole segments of metadata behind the JFIF one. Null when the
/// pixels cannot be had or are too many for the format.
std::shared_ptr<Encoder> encoderOf(const CGImage& image, std::vector<std::uint8_t> metadata = {},
                                   const JpegOptions& options = {});

} // namespace jpeg

std::optional<Data> encodeJpeg(const CGImage& image, const CGImageDestination::Options& options);
std::unique_ptr<RepeatedEncoding> encodeJpegRepeatedly(const CGImage& image,
                                                       const CGImageDestination::Options& options);

} // namespace pex
