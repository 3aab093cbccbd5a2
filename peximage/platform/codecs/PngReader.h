#pragma once

#include "peximage/platform/codecs/ImageCodec.h"

namespace pex {

/// Header and, for bytes in memory, pixels of a PNG: every colour type and depth. 16 bits become 8.
std::optional<OpenedImage> openPng(const CGDataProvider& bytes, const ImageLimits& limits);

} // namespace pex
