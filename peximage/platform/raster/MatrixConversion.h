#pragma once

#include "peximage/platform/raster/IccProfile.h"
#include "peximage/platform/raster/kernels/MatrixRow.h"

#include <memory>

namespace pex {

/// The conversion between two profiles that are nothing but a curve for each channel and a matrix, as nearly
/// all of cameras and screens are: within one step of exact arithmetic in the dark, too, where the colour
/// engine's own tables for bytes are coarse. Null for all others, and for curves that do not begin at black.
std::shared_ptr<const kernels::MatrixTables> matrixConversion(const IccProfile& from, const IccProfile& to);

} // namespace pex
