#pragma once

#include "bench/worker/Jobs.h"

namespace bench {

/// Filters, keys and masks over whole pictures of 4000 × 3000 pixels: ours, by OpenCV and by libvips. The
/// folder holds the lookup table, table.cube.
void addFilters(std::map<std::string, Prepare>& jobs, const std::string& folder);

} // namespace bench
