#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"

namespace pex {

/// Whether a file of a format is cut short before its first image ends, as far as its structure tells.
/// Nothing is decoded, and as little as possible is read. The bytes have to begin as such a file does.

/// Reads only the end of the file, if the picture ends there; else all of the pixels.
bool jpegBreaksOff(const CGDataProvider& bytes);
/// Reads only the end of the file, or else the heads of all chunks.
bool pngBreaksOff(const CGDataProvider& bytes);
bool webpBreaksOff(const CGDataProvider& bytes);
/// Reads the heads of all blocks.
bool gifBreaksOff(const CGDataProvider& bytes);

} // namespace pex
