#pragma once

#include "bench/worker/Jobs.h"

namespace bench {

/// Hits in the caches of images, in memory and on disk.
void addCaches(std::map<std::string, Prepare>& jobs, const std::string& folder);

} // namespace bench
