#pragma once

#include "peximage/platform/codecs/jpeg/decode/BaselineCodes.h"
#include "peximage/platform/codecs/jpeg/decode/BlockSource.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <array>
#include <memory>
#include <vector>

namespace pex::jpeg {

class ScanStretch;

/// The blocks of a baseline file. Its codes are decoded from several places at once: stretches of the scan
/// by whoever is free, ahead of the rows that are asked for.
class BaselineBlocks final : public BlockSource {
  public:
    /// Of a decompressor that has read the header of `file`, which is in memory. Null when its codes are
    /// unusual, and for lack of memory.
    static std::unique_ptr<BlockSource> make(const jpeg_decompress_struct& info, const Frame& frame,
                                             const Data& file);
    ~BaselineBlocks() override;

    bool advance(int begin, int end) override;
    const Coefficient* row(std::size_t component, int y) const override;

  private:
    struct Stretches;
    using Packed = BaselineCodes::Packed;
    /// A component's blocks in the rows of MCUs that are ready.
    struct Plane {
        Coefficient* blocks = nullptr;
        std::ptrdiff_t rowLength = 0;
        int firstRow = 0;
        int lastDc = 0;
    };
    /// One of the blocks of an MCU: where it is, and the row of blocks that it is in just now.
    struct BlockOfMcu {
        std::size_t component;
        int across, column, rowInMcu;
        Coefficient* row = nullptr;
    };

    BaselineBlocks(const Frame& frame, std::shared_ptr<Stretches> stretches, unsigned restartInterval);
    bool makeRoom(int begin, int end);
    void goToRow(int y);
    bool decodeMcu(int x);
    const Packed* nextMcu();
    bool passRestart();
    bool nextStretch();

    std::shared_ptr<Stretches> stretches_; // shared with who works ahead
    const Frame frame_;
    PixelBuffer memory_;
    std::vector<Plane> planes_;
    std::vector<BlockOfMcu> blocks_;

    ScanStretch* stretch_ = nullptr;
    int index_ = -1;                 // of the stretch
    std::uint32_t bit_ = 0;          // where the next MCU begins
    std::uint32_t endOfStretch_ = 0; // in bits
    std::size_t nextRestart_ = 0;    // among the stretch's
    std::uint32_t endOfSegment_ = 0; // bits before it
    const unsigned restartInterval_;
    unsigned restartsToGo_;
    int restartNumber_ = 0;
    std::vector<Packed> mcu_; // one that has to be decoded when it is used
};

} // namespace pex::jpeg
