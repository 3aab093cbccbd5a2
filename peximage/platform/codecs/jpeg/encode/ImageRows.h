#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/raster/CGImage.h"

namespace pex::jpeg {

/// Lets an input have the image's rows, of its width and in its form: those in memory, or, of a picture that
/// nothing has decoded yet, a strip at a time as they are decoded. False when the pixels cannot be had.
bool takeRows(const CGImage& image, EncoderInput& input);

} // namespace pex::jpeg
