#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// Finds a text ignoring case, in every script: full Unicode case folding, so that "STRASSE" finds "straße",
/// and accented letters are found in whichever of their forms they are written. A match covers whole
/// characters only: "e" is not found inside "é" that is written as a letter and an accent. Immutable.
class PEX_EXPORT TextSearch {
  public:
    /// The text to look for, in UTF-8.
    explicit TextSearch(std::string_view search);

    /// The text with every occurrence replaced, from left to right and without searching what was put in. An
    /// empty search text occurs nowhere. Bytes that are not UTF-8 stay as they are and match only themselves.
    std::string replacingAll(std::string_view text, std::string_view replacement) const;

  private:
    std::u32string search_;           // folded
    std::vector<std::size_t> border_; // of each prefix: the length of its longest proper prefix that ends it
};

} // namespace pex
