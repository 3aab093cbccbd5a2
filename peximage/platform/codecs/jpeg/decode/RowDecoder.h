#pragma once

#include "peximage/platform/codecs/jpeg/decode/BlockSource.h"
#include "peximage/platform/codecs/jpeg/decode/Frame.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/PixelView.h"

#include <memory>
#include <vector>

namespace pex::jpeg {

/// Decodes a photo by bands of some rows of MCUs, on all cores: transforms its blocks into samples, spreads
/// subsampled colours, and converts to pixels. Nothing but a band is ever held. It gives the very bytes that
/// the codec library gives by its accurate transform and smooth upsampling.
class RowDecoder {
  public:
    /// Of a decompressor that has read the header of `file`, which is in memory; it is needed no longer. Null
    /// when the file is of a kind that is left to the codec library, or damaged, and for lack of memory.
    static std::unique_ptr<RowDecoder> make(const jpeg_decompress_struct& info, const Data& file);

    /// Fills `rows`, grey or R G B x, with the next ones of the picture. Fewer than all come when the file is
    /// damaged: those are good, the rest is for the codec library.
    int read(MutablePixelView rows);

  private:
    /// How a component's samples become as many as there are pixels.
    enum class Spreading { none, across, down, both, repeated };
    /// A component's samples in the band, and the row above it.
    struct Plane {
        Spreading spreading;
        int timesAcross, timesDown;
        int firstRow = 0; // in the picture, of the first one here
        std::ptrdiff_t bytesPerRow;
        PixelBuffer samples;

        std::uint8_t* row(int y) const { return samples.data() + (y - firstRow) * bytesPerRow; }
    };

    RowDecoder(Frame frame, std::unique_ptr<BlockSource> blocks);
    bool allocate();
    bool makeScratch();
    bool decodeBand();
    void keepLastRows();
    bool transform(int begin, int end);
    void convert(int y, MutablePixelView rows) const;
    void convertRow(int y, std::uint8_t* scratch, std::uint8_t* to) const;
    const std::uint8_t* spread(std::size_t component, int y, std::uint8_t* scratch) const;

    const Frame frame_;
    std::unique_ptr<BlockSource> blocks_;
    std::vector<Plane> planes_;
    PixelBuffer scratch_;
    std::ptrdiff_t scratchRow_ = 0;
    int mcusOfBand_;
    int mcusDone_ = 0;
    int rowsReady_ = 0, rowsDone_ = 0;
};

} // namespace pex::jpeg
