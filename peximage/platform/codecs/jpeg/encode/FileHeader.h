#pragma once

#include "peximage/platform/codecs/jpeg/encode/Tables.h"

#include <cstdint>
#include <vector>

namespace pex::jpeg {

struct FrameHeader {
    int width = 0, height = 0;
    bool grey = false;
    /// Chroma as fine as luma, or one sample for 2 x 2 pixels.
    bool fullChroma = false;
};

/// Everything of a baseline file before the coded data: a JFIF segment without a density (bytes 13 to 17 hold
/// it), whole segments of metadata as they are given, the colour profile in as many segments as it takes,
/// tables, frame and scan.
std::vector<std::uint8_t> fileHeader(const FrameHeader& frame, const QuantTables& tables,
                                     const std::vector<std::uint8_t>& metadata,
                                     const std::vector<std::uint8_t>& iccProfile);

} // namespace pex::jpeg
