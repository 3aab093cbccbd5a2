#pragma once

#include "peximage/platform/raster/IccProfile.h"
#include "peximage/platform/raster/kernels/MatrixRow.h"

#include <memory>

namespace pex {

/// The conversion between two profiles that consist of a matrix and a curve for each channel, as nearly
/// all profiles of cameras and screens do. It stays within one step of exact arithmetic even in the dark,
/// where the colour engine's 8-bit tables are coarse. Null for all other profiles, and for curves that do
/// not begin at black.
std::shared_ptr<const kernels::MatrixTables> matrixConversion(const IccProfile& from, const IccProfile& to);

} // namespace pex
