#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"

#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/JpegColour.h"
#include "peximage/platform/raster/kernels/JpegDct.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace pex::jpeg {
namespace {

constexpr int ceilDiv(int a, int b) { return (a + b - 1) / b; }

/// A few rows of samples, wide enough for kernels that work on 64 at a time.
class Strip {
  public:
    Strip(int width, int rows)
        : stride_(ceilDiv(width, 64) * 64),
          rows_(rows),
          bytes_(static_cast<std::size_t>(stride_) * static_cast<std::size_t>(rows) + 64) {}

    int stride() const { return stride_; }
    std::uint8_t* row(int y) { return bytes_.data() + std::ptrdiff_t{stride_} * y; }

    /// Repeats the last of `width` samples up to the end of the row.
    void extendRow(int y, int width) {
        std::memset(row(y) + width, row(y)[width - 1], static_cast<std::size_t>(stride_ - width));
    }

    /// Repeats the last of `filled` rows down to the end of the strip.
    void extendDown(int filled) {
        for (int y = filled; y < rows_; ++y)
            std::memcpy(row(y), row(filled - 1), static_cast<std::size_t>(stride_));
    }

    void transformRow(int firstRow, int blocks, std::int16_t* coefficients) {
        kernels::forwardDct(row(firstRow), stride_, blocks, coefficients);
    }

  private:
    int stride_, rows_;
    std::vector<std::uint8_t> bytes_;
};

/// A block of one flat tone that codes as "no change" after `neighbour`.
void fillBlock(std::int16_t* block, const std::int16_t* neighbour) {
    std::memset(block, 0, 64 * sizeof(std::int16_t));
    block[0] = neighbour[0];
}

/// Makes one row of minimum coded units at a time; an object serves one thread.
class HalfChromaTransform {
  public:
    HalfChromaTransform(const EncoderInput& input, const Coefficients& to)
        : input_(input),
          to_(to),
          scratch_(static_cast<std::size_t>(input.width) * 4),
          luma_(input.width, 16),
          cbPair_(input.width, 2),
          crPair_(input.width, 2),
          cb_(cbPair_.stride() / 2, 8),
          cr_(cbPair_.stride() / 2, 8) {}

    void run(int unitRow) {
        const int rows = std::min(16, input_.height - 16 * unitRow);
        for (int y = 0; y < rows; y += 2)
            addRowPair(16 * unitRow, y, y + 1 < rows);
        luma_.extendDown(rows);
        cb_.extendDown(ceilDiv(rows, 2));
        cr_.extendDown(ceilDiv(rows, 2));
        transformLuma(2 * unitRow);
        transformLuma(2 * unitRow + 1);
        cb_.transformRow(0, to_.cb.blocksWide, to_.cb.block(0, unitRow));
        cr_.transformRow(0, to_.cr.blocksWide, to_.cr.block(0, unitRow));
    }

  private:
    /// The last row of an odd height is averaged with itself.
    void addRowPair(int top, int y, bool both) {
        addRow(top, y, 0);
        if (both) addRow(top, y + 1, 1);
        const int lower = both ? 1 : 0;
        kernels::halveRows(cbPair_.row(0), cbPair_.row(lower), cb_.row(y / 2), cbPair_.stride() / 2);
        kernels::halveRows(crPair_.row(0), crPair_.row(lower), cr_.row(y / 2), crPair_.stride() / 2);
    }

    void addRow(int top, int y, int ofPair) {
        const std::uint8_t* rgbx = input_.row(top + y, scratch_.data());
        kernels::lumaRow(rgbx, luma_.row(y), input_.width);
        kernels::chromaRow(rgbx, cbPair_.row(ofPair), crPair_.row(ofPair), input_.width);
        luma_.extendRow(y, input_.width);
        cbPair_.extendRow(ofPair, input_.width);
        crPair_.extendRow(ofPair, input_.width);
    }

    void transformLuma(int blockRow) {
        const CoefficientPlane& plane = to_.luma;
        if (8 * blockRow >= input_.height) {
            for (int x = 0; x < plane.blocksWide; ++x)
                fillBlock(plane.block(x, blockRow), plane.block(x | 1, blockRow - 1));
            return;
        }
        const int real = ceilDiv(input_.width, 8);
        luma_.transformRow(blockRow % 2 * 8, real, plane.block(0, blockRow));
        if (real < plane.blocksWide) fillBlock(plane.block(real, blockRow), plane.block(real - 1, blockRow));
    }

    const EncoderInput& input_;
    const Coefficients& to_;
    std::vector<std::uint8_t> scratch_;
    Strip luma_, cbPair_, crPair_, cb_, cr_;
};

class FullChromaTransform {
  public:
    FullChromaTransform(const EncoderInput& input, const Coefficients& to)
        : input_(input),
          to_(to),
          scratch_(static_cast<std::size_t>(input.width) * 4),
          cb_(input.width, 8),
          cr_(input.width, 8) {}

    void run(int blockRow) {
        const int rows = std::min(8, input_.height - 8 * blockRow);
        for (int y = 0; y < rows; ++y) {
            const std::uint8_t* rgbx = input_.row(8 * blockRow + y, scratch_.data());
            kernels::chromaRow(rgbx, cb_.row(y), cr_.row(y), input_.width);
            cb_.extendRow(y, input_.width);
            cr_.extendRow(y, input_.width);
        }
        cb_.extendDown(rows);
        cr_.extendDown(rows);
        cb_.transformRow(0, to_.cb.blocksWide, to_.cb.block(0, blockRow));
        cr_.transformRow(0, to_.cr.blocksWide, to_.cr.block(0, blockRow));
    }

  private:
    const EncoderInput& input_;
    const Coefficients& to_;
    std::vector<std::uint8_t> scratch_;
    Strip cb_, cr_;
};

class GreyTransform {
  public:
    GreyTransform(const EncoderInput& input, const Coefficients& to)
        : input_(input), to_(to), scratch_(static_cast<std::size_t>(input.width)), luma_(input.width, 8) {}

    void run(int blockRow) {
        const int rows = std::min(8, input_.height - 8 * blockRow);
        for (int y = 0; y < rows; ++y) {
            std::memcpy(luma_.row(y), input_.row(8 * blockRow + y, scratch_.data()), scratch_.size());
            luma_.extendRow(y, input_.width);
        }
        luma_.extendDown(rows);
        luma_.transformRow(0, to_.luma.blocksWide, to_.luma.block(0, blockRow));
    }

  private:
    const EncoderInput& input_;
    const Coefficients& to_;
    std::vector<std::uint8_t> scratch_;
    Strip luma_;
};

template <class Transform>
void runOnAllCores(const EncoderInput& input, const Coefficients& to, int rows) {
    constexpr int rowsAtOnce = 4;
    forEachStrip(
        rows,
        [&](int begin, int end) {
            Transform transform(input, to);
            for (int row = begin; row < end; ++row)
                transform.run(row);
        },
        rowsAtOnce);
}

/// Gives the planes one block of memory together: large blocks come in large pages. False when there is none.
bool allocate(std::initializer_list<CoefficientPlane*> planes) {
    std::size_t bytes = 0;
    for (const CoefficientPlane* plane : planes)
        bytes += plane->bytes();
    const PixelBuffer whole = PixelBuffer::make(bytes);
    std::size_t offset = 0;
    for (CoefficientPlane* plane : planes) {
        if (whole) plane->memory = whole.piece(offset, plane->bytes());
        offset += plane->bytes();
    }
    return static_cast<bool>(whole);
}

} // namespace

Coefficients transform(const EncoderInput& input) {
    Coefficients planes;
    if (input.grey) {
        planes.luma = {ceilDiv(input.width, 8), ceilDiv(input.height, 8), {}};
        if (allocate({&planes.luma})) runOnAllCores<GreyTransform>(input, planes, planes.luma.blocksHigh);
        return planes;
    }
    const int unitsWide = ceilDiv(input.width, 16), unitsHigh = ceilDiv(input.height, 16);
    planes.luma = {2 * unitsWide, 2 * unitsHigh, {}};
    planes.cb = planes.cr = {unitsWide, unitsHigh, {}};
    if (allocate({&planes.luma, &planes.cb, &planes.cr}))
        runOnAllCores<HalfChromaTransform>(input, planes, unitsHigh);
    return planes;
}

Coefficients transformFullChroma(const EncoderInput& input) {
    Coefficients planes;
    planes.cb = planes.cr = {ceilDiv(input.width, 8), ceilDiv(input.height, 8), {}};
    if (allocate({&planes.cb, &planes.cr}))
        runOnAllCores<FullChromaTransform>(input, planes, planes.cb.blocksHigh);
    return planes;
}

} // namespace pex::jpeg
