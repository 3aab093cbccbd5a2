#pragma once

#include "peximage/platform/codecs/JpegScanCodes.h"
#include "peximage/platform/foundation/Data.h"

#include <memory>

namespace pex {

/// Decodes the Huffman codes of the most usual files in the place of the codec library: faster, and ahead of
/// it on another core, while the library transforms what was decoded before. The library gets what it would
/// have decoded itself, coefficient by coefficient. At the first sign of damage it is given up with an error:
/// the file is then for the library alone, which knows what to make of it.
class JpegCodesAhead {
  public:
    /// Takes over from a decompressor that has just been started, before its first row; null, and nothing
    /// changes, when the file is not of that kind. The object must live as long as the decoding, and is the
    /// decompressor's `client_data`. `file` is what the decompressor's source reads.
    static std::unique_ptr<JpegCodesAhead> takeOver(j_decompress_ptr info, const Data& file);
    ~JpegCodesAhead();

    bool gaveUp() const { return gaveUp_; }

  private:
    struct Parts;

    explicit JpegCodesAhead(std::shared_ptr<Parts> parts);
    static boolean decodeMcu(j_decompress_ptr info, JBLOCKROW* blocks);
    bool copyMcu(JBLOCKROW* blocks);
    [[noreturn]] void giveUp(j_decompress_ptr info);

    std::shared_ptr<Parts> parts_; // shared with who works ahead
    const int blocksOfMcu_;
    const std::int64_t mcusOfPart_;
    int part_ = 0;
    std::int64_t mcu_ = 0;                             // in the part, the next one
    const JpegScanCodes::Coefficient* next_ = nullptr; // its first block
    bool gaveUp_ = false;
};

} // namespace pex
