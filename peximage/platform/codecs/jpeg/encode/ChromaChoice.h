#pragma once

#include "peximage/platform/codecs/jpeg/encode/EncoderInput.h"
#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"

namespace pex::jpeg {

/// Whether the picture loses something visible with half chroma: drawings, screenshots and text have
/// saturated colours that change from one pixel to the next, photos hardly ever. Looks at a quarter of the
/// rows.
ChromaSize chromaSizeFor(const EncoderInput& input);

} // namespace pex::jpeg
