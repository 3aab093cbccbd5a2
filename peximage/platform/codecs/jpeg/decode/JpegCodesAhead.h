#pragma once

#include "peximage/platform/codecs/jpeg/decode/JpegScanCodes.h"
#include "peximage/platform/foundation/Data.h"

#include <array>
#include <memory>
#include <vector>

namespace pex {

class JpegScanStretch;

/// Decodes the Huffman codes of the most usual files in the place of the codec library: faster, and ahead of
/// it on other cores, while the library transforms what was decoded before. The library gets what it would
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
    struct Stretches;
    using Coefficient = JpegScanCodes::Coefficient;

    JpegCodesAhead(j_decompress_ptr info, std::shared_ptr<Stretches> stretches);
    static boolean decodeMcu(j_decompress_ptr info, JBLOCKROW* blocks);
    bool copyMcu(JBLOCKROW* blocks);
    bool passRestart();
    bool nextStretch();
    [[noreturn]] void giveUp(j_decompress_ptr info);

    std::shared_ptr<Stretches> stretches_; // shared with who works ahead
    const int blocksOfMcu_;
    std::array<int, D_MAX_BLOCKS_IN_MCU> componentOf_{}; // of each block of an MCU

    JpegScanStretch* stretch_ = nullptr;
    int index_ = -1;                 // of the stretch
    std::uint32_t bit_ = 0;          // where the next MCU begins
    std::uint32_t endOfStretch_ = 0; // in bits
    std::size_t nextRestart_ = 0;    // among the stretch's
    std::uint32_t endOfSegment_ = 0; // bits before it
    std::array<int, MAX_COMPS_IN_SCAN> lastDc_{};
    const unsigned restartInterval_;
    unsigned restartsToGo_;
    int restartNumber_ = 0;
    std::vector<Coefficient> mcu_; // one that has to be decoded when it is used
    bool gaveUp_ = false;
};

} // namespace pex
