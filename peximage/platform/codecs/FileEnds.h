#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"

namespace pex {

/// Whether a file of a format breaks off before its first image ends, as its structure tells: nothing is
/// decoded, and as little read as that takes. The bytes begin as such a file does.

/// The end of the file alone, where the picture ends with it; else all of the pixels.
bool jpegBreaksOff(const CGDataProvider& bytes);
/// The end of the file alone; else the heads of all chunks.
bool pngBreaksOff(const CGDataProvider& bytes);
bool webpBreaksOff(const CGDataProvider& bytes);
/// The heads of all blocks.
bool gifBreaksOff(const CGDataProvider& bytes);

} // namespace pex
