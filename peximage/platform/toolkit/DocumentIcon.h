#pragma once

#include "peximage/platform/raster/CGImage.h"

#include <optional>

namespace pex {

/// An icon for any document, a sheet of paper with a folded corner, on a transparent square of `side` pixels.
/// Absent when memory cannot be had.
std::optional<CGImage> drawDocumentIcon(int side);

} // namespace pex
