#pragma once

#include "peximage/platform/codecs/ImageCodec.h"

namespace pex {

/// Opens a baseline or progressive JPEG of grey, RGB, YCbCr, CMYK or YCCK colours. Its pixels are R G B x, or
/// grey; CMYK is converted to sRGB through its profile, or by plain inversion without one.
std::optional<OpenedImage> openJpeg(const CGDataProvider& bytes, const ImageLimits& limits);

} // namespace pex
