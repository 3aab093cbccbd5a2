#pragma once

#include "peximage/platform/codecs/JpegOptions.h"
#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// Codes the blocks of a scan as the scans of a progressive file, each with codes of its own. All levels are
/// kept meanwhile, which takes as much memory as the coefficients.
void appendProgressiveScans(std::vector<std::uint8_t>& bytes, const Scan& scan, Effort effort);

} // namespace pex::jpeg
