#pragma once

#include "peximage/platform/codecs/jpeg/decode/Bits.h"
#include "peximage/platform/codecs/jpeg/decode/BlockSource.h"
#include "peximage/platform/codecs/jpeg/decode/Progression.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// The codes of one progressive scan, decoded block by block. An object serves one thread.
class ProgressiveCodes {
  public:
    /// The scan must outlive this object.
    explicit ProgressiveCodes(const ProgressiveScan& scan);

    /// The next blocks' first coefficients, of the scan's i-th component: those from `begin` up to `end` of a
    /// row. False when the codes are damaged.
    bool decodeFirsts(Coefficient* row, int begin, int end, std::size_t i);
    /// The other coefficients of the scan, of the first so many blocks of a row; `nonzero` tells which ones
    /// are not zero. False when the codes are damaged.
    bool decodeBand(Coefficient* row, std::uint64_t* nonzero, int count);

    /// Whether no bits but padding are left.
    bool isAtEnd() const;

  private:
    const ProgressiveScan& scan_;
    Bits bits_;
    std::vector<int> lastDc_;  // of each component
    unsigned blocksAtEnd_ = 0; // the next so many have no more coefficients
};

} // namespace pex::jpeg
