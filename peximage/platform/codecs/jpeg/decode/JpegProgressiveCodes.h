#pragma once

#include "peximage/platform/codecs/jpeg/decode/JpegBits.h"
#include "peximage/platform/codecs/jpeg/decode/JpegProgression.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex {

/// The codes of one progressive scan, decoded block by block. An object serves one thread.
class JpegProgressiveCodes {
  public:
    /// The scan must outlive this object.
    explicit JpegProgressiveCodes(const JpegProgressiveScan& scan);

    /// The next so many blocks' first coefficients, of the scan's i-th component; a scan that does not refine
    /// clears the blocks. False when the codes are damaged.
    bool decodeFirsts(JBLOCKROW blocks, int count, std::size_t i);
    /// The next so many blocks' other coefficients of the scan; `nonzero` tells which ones are not zero.
    /// False when the codes are damaged.
    bool decodeBand(JBLOCKROW blocks, std::uint64_t* nonzero, int count);

    /// Whether no bits but padding are left.
    bool isAtEnd() const;

  private:
    const JpegProgressiveScan& scan_;
    JpegBits bits_;
    std::vector<int> lastDc_;  // of each component
    unsigned blocksAtEnd_ = 0; // the next so many have no more coefficients
};

} // namespace pex
