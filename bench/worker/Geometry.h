#pragma once

#include "bench/worker/Jobs.h"

namespace bench {

/// Turning, drawing and editing whole pictures of four channels, 4000 × 3000: ours, by libvips and by OpenCV,
/// and a plain copy of as many pixels.
void addGeometry(std::map<std::string, Prepare>& jobs, const std::string& folder);

} // namespace bench
