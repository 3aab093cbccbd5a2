#pragma once

#include "peximage/platform/codecs/jpeg/decode/BlockSource.h"
#include "peximage/platform/codecs/jpeg/decode/Frame.h"

#include <memory>

namespace pex::jpeg {

/// The blocks of a progressive file: each scan is decoded in the wake of those that it builds on, on all
/// cores and into memory of large pages, which goes back to the system row by row.
class ProgressiveBlocks final : public BlockSource {
  public:
    /// Of a decompressor that has read the header from bytes in memory. Null when the file is unusual or seen
    /// to be damaged, and for lack of memory.
    static std::unique_ptr<BlockSource> make(const jpeg_decompress_struct& info, const Frame& frame);
    ~ProgressiveBlocks() override;

    bool advance(int begin, int end) override;
    const Coefficient* row(std::size_t component, int y) const override;

  private:
    struct Plane;
    class Scan;
    struct Picture;

    explicit ProgressiveBlocks(std::shared_ptr<Picture> picture);
    void giveBackAbove(int mcuRow);

    std::shared_ptr<Picture> picture_; // shared with who decodes
    int givenBack_ = 0;                // rows of MCUs
};

} // namespace pex::jpeg
