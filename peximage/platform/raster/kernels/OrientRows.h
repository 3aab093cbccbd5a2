#pragma once

#include "peximage/platform/raster/Orientation.h"
#include "peximage/platform/raster/PixelView.h"

namespace pex::kernels {

/// Copies the rows [firstRow, firstRow + rows.height) of a stored picture to their places in `upright`, which
/// is the complete upright picture: as large as the stored one, with its sides swapped where the orientation
/// does so. Both have the same bytes a pixel and must not overlap. Strips of one picture may be placed at the
/// same time from different threads.
void orientRows(PixelView rows, int firstRow, Orientation orientation, MutablePixelView upright);

} // namespace pex::kernels
