#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"

#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/JpegColour.h"
#include "peximage/platform/raster/kernels/JpegDct.h"

#include <algorithm>
#include <cstring>
#include <utility>
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
class RowTransform {
  public:
    RowTransform(const EncoderInput& input, const TransformedPicture& to)
        : input_(input),
          to_(to),
          halves_(!input.grey && to.chroma == ChromaSize::half),
          unitHeight_(halves_ ? 16 : 8),
          scratch_(static_cast<std::size_t>(input.width) * 4),
          luma_(input.width, unitHeight_),
          cb_(input.width, 8),
          cr_(input.width, 8),
          cbPair_(input.width, 2),
          crPair_(input.width, 2) {}

    void run(int unitRow) {
        const int top = unitRow * unitHeight_, rows = std::min(unitHeight_, input_.height - top);
        for (int y = 0; y < rows; ++y)
            addRow(input_.row(top + y, scratch_.data()), y, y + 1 == rows);
        luma_.extendDown(rows);
        for (int y = 0; y < unitHeight_ / 8; ++y)
            transformLuma(top / 8 + y, y);
        if (input_.grey) return;
        for (auto [strip, plane] : {std::pair{&cb_, &to_.cb}, {&cr_, &to_.cr}}) {
            strip->extendDown(halves_ ? ceilDiv(rows, 2) : rows);
            strip->transformRow(0, plane->blocksWide, plane->block(0, unitRow));
        }
    }

  private:
    void addRow(const std::uint8_t* pixels, int y, bool isLast) {
        const int width = input_.width;
        if (input_.grey) {
            std::memcpy(luma_.row(y), pixels, static_cast<std::size_t>(width));
        } else {
            kernels::lumaRow(pixels, luma_.row(y), width);
            Strip &cb = halves_ ? cbPair_ : cb_, &cr = halves_ ? crPair_ : cr_;
            const int chromaY = halves_ ? y % 2 : y;
            kernels::chromaRow(pixels, cb.row(chromaY), cr.row(chromaY), width);
            cb.extendRow(chromaY, width);
            cr.extendRow(chromaY, width);
            if (halves_ && (chromaY == 1 || isLast)) halvePair(y / 2, chromaY);
        }
        luma_.extendRow(y, width);
    }

    /// The last row of an odd height is averaged with itself.
    void halvePair(int y, int lower) {
        kernels::halveRows(cbPair_.row(0), cbPair_.row(lower), cb_.row(y), cbPair_.stride() / 2);
        kernels::halveRows(crPair_.row(0), crPair_.row(lower), cr_.row(y), crPair_.stride() / 2);
    }

    void transformLuma(int blockRow, int ofUnit) {
        const TransformedPlane& plane = to_.luma;
        if (8 * blockRow >= input_.height) {
            for (int x = 0; x < plane.blocksWide; ++x)
                fillBlock(plane.block(x, blockRow), plane.block(x | 1, blockRow - 1));
            return;
        }
        const int real = ceilDiv(input_.width, 8);
        luma_.transformRow(8 * ofUnit, real, plane.block(0, blockRow));
        if (real < plane.blocksWide) fillBlock(plane.block(real, blockRow), plane.block(real - 1, blockRow));
    }

    const EncoderInput& input_;
    const TransformedPicture& to_;
    bool halves_;
    int unitHeight_;
    std::vector<std::uint8_t> scratch_;
    Strip luma_, cb_, cr_, cbPair_, crPair_;
};

/// Gives the planes one block of memory together: large blocks come in large pages. False when there is none.
bool allocate(std::initializer_list<TransformedPlane*> planes) {
    std::size_t bytes = 0;
    for (const TransformedPlane* plane : planes)
        bytes += plane->bytes();
    const PixelBuffer whole = PixelBuffer::make(bytes);
    std::size_t offset = 0;
    for (TransformedPlane* plane : planes) {
        if (whole) plane->memory = whole.piece(offset, plane->bytes());
        offset += plane->bytes();
    }
    return static_cast<bool>(whole);
}

/// Of a strip that is loaded at once: up to a megabyte as a rule, and whole units.
int rowsOfStrip(const EncoderInput& input) {
    constexpr int bytes = 1 << 20, fewest = 32, most = 128;
    if (!input.load) return input.height;
    return std::clamp(bytes / (4 * input.width), fewest, most) / 16 * 16;
}

/// Planes without memory where there is none.
TransformedPicture emptyPicture(const EncoderInput& input, ChromaSize chroma) {
    const int blocks = !input.grey && chroma == ChromaSize::half ? 2 : 1; // of luma, across and down a unit
    const int unitsWide = ceilDiv(input.width, 8 * blocks), unitsHigh = ceilDiv(input.height, 8 * blocks);
    TransformedPicture picture;
    picture.chroma = chroma;
    picture.luma = {
        blocks * unitsWide, blocks * unitsHigh, ceilDiv(input.width, 8), ceilDiv(input.height, 8), {}};
    if (!input.grey) picture.cb = picture.cr = {unitsWide, unitsHigh, unitsWide, unitsHigh, {}};
    if (!allocate({&picture.luma, &picture.cb, &picture.cr})) return {};
    return picture;
}

/// The rows from `top` on, up to `end`, are whole units or the last of the picture.
void transformStrip(const EncoderInput& input, const TransformedPicture& to, int top, int end) {
    constexpr int unitRowsAtOnce = 2;
    const int unitHeight = !input.grey && to.chroma == ChromaSize::half ? 16 : 8;
    const int first = top / unitHeight;
    const auto work = [&](int from, int until) {
        RowTransform rows(input, to);
        for (int row = from; row < until; ++row)
            rows.run(first + row);
    };
    forEachStrip(ceilDiv(end, unitHeight) - first, work, unitRowsAtOnce);
}

} // namespace

TransformedPicture transform(const EncoderInput& input, ChromaSize chroma,
                             const std::function<bool(int top, int end)>& accepts) {
    const TransformedPicture picture = emptyPicture(input, chroma);
    const int rows = rowsOfStrip(input);
    for (int top = 0; picture.luma && top < input.height; top += rows) {
        const int end = std::min(top + rows, input.height);
        if ((input.load && !input.load(top, end)) || !accepts(top, end)) return {};
        transformStrip(input, picture, top, end);
    }
    return picture;
}

} // namespace pex::jpeg
