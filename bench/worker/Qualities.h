#pragma once

#include <string>

namespace bench {

struct Agreement {
    int same = 0, total = 0;
};

/// How often the search for a byte budget finds the quality that the plain search finds, which makes the file
/// of every quality that it looks at: over many budgets, for pictures that are photos, and for one that is
/// half noise.
struct Agreements {
    Agreement photos, halfNoise;
};
Agreements compareSearches(const std::string& folder);

} // namespace bench
