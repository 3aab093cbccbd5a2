#pragma once

#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"
#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"
#include "peximage/platform/codecs/jpeg/encode/ScanCodes.h"

#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// What a file says of the whole picture.
struct FileHeader {
    int width = 0, height = 0;
    bool grey = false, progressive = false;
    ChromaSize chroma = ChromaSize::half;
    Quantisation tables;
};

/// Everything before the first scan: a JFIF segment without a density (bytes 13 to 17 hold it), whole
/// segments of metadata as they are given, the colour profile in as many segments as it takes, tables and
/// frame.
std::vector<std::uint8_t> fileStart(const FileHeader& header, const std::vector<std::uint8_t>& metadata,
                                    const std::vector<std::uint8_t>& iccProfile);

/// The codes and the header of a baseline file's one scan.
void appendScanHeader(std::vector<std::uint8_t>& bytes, bool grey, const ScanDescription& codes);

/// Part of a picture that a scan of a progressive file tells: of some components (the first is 0) the places
/// `first` to `last` of their blocks, without the `low` lowest bits; with `high` above 0 one bit more of
/// levels whose bits above it stand in scans before.
struct PartOfPicture {
    std::vector<std::uint8_t> components;
    int first, last, high, low;
};

/// Codes are those of the first levels or of the others, by what the part tells; luma's, and chroma's behind
/// them where the part has both.
void appendScanHeader(std::vector<std::uint8_t>& bytes, const PartOfPicture& part,
                      const std::vector<CodeDescription>& codes);

} // namespace pex::jpeg
