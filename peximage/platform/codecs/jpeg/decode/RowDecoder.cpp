#include "peximage/platform/codecs/jpeg/decode/RowDecoder.h"

#include "peximage/platform/codecs/jpeg/decode/BaselineBlocks.h"
#include "peximage/platform/codecs/jpeg/decode/ProgressiveBlocks.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/JpegRgb.h"
#include "peximage/platform/raster/kernels/JpegUpsample.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

namespace pex::jpeg {
namespace {

/// Small enough to stay in the cache between two steps of the work.
constexpr int rowsOfBand = 64;
constexpr int rowsOfStrip = 8;

std::ptrdiff_t rounded(std::ptrdiff_t bytes) { return (bytes + 63) / 64 * 64; }

/// Whether no block of a row is brighter or darker than any picture is. Beyond that arithmetic in 16 bits
/// overflows, in every decoder in its own way.
bool arePossible(const Coefficient* row, const Component& of) {
    constexpr int most = 8191; // four times what coarse steps make of white
    const int steps = static_cast<std::uint16_t>(of.steps[0]);
    bool arePossible = true;
    for (int x = 0; x < of.blocksWide; ++x)
        arePossible &= std::abs(*blockAt(row, x) * steps) <= most;
    return arePossible;
}

} // namespace

RowDecoder::RowDecoder(Frame frame, std::unique_ptr<BlockSource> blocks)
    : frame_(std::move(frame)),
      blocks_(std::move(blocks)),
      mcusOfBand_(std::max(1, rowsOfBand / (frame_.mostDown * DCTSIZE))) {}

std::unique_ptr<RowDecoder> RowDecoder::make(const jpeg_decompress_struct& info, const Data& file) {
    std::optional<Frame> frame = Frame::of(info);
    if (!frame) return nullptr;
    std::unique_ptr<BlockSource> blocks = info.progressive_mode ? ProgressiveBlocks::make(info, *frame)
                                                                : BaselineBlocks::make(info, *frame, file);
    if (!blocks) return nullptr;
    std::unique_ptr<RowDecoder> decoder(new RowDecoder(std::move(*frame), std::move(blocks)));
    return decoder->allocate() ? std::move(decoder) : nullptr;
}

bool RowDecoder::allocate() {
    constexpr int shortestRow = 3; // of samples that are filtered across
    for (const Component& of : frame_.components) {
        const int across = frame_.mostAcross / of.across, down = frame_.mostDown / of.down;
        auto spreading = Spreading::repeated;
        if (across == 1 && down == 1) spreading = Spreading::none;
        if (across == 1 && down == 2) spreading = Spreading::down;
        if (across == 2 && of.samplesWide >= shortestRow && down <= 2)
            spreading = down == 1 ? Spreading::across : Spreading::both;
        const std::ptrdiff_t stride =
            rounded(quadsFor(frame_.mcusWide * of.across) * std::ptrdiff_t{8 * kernels::blocksOfQuad});
        const int rows = mcusOfBand_ * of.down * DCTSIZE + 1;
        planes_.push_back({spreading, across, down, -1, stride,
                           PixelBuffer::make(static_cast<std::size_t>(stride * rows))});
        if (!planes_.back().samples) return false;
        scratchRow_ = std::max(scratchRow_, stride * across);
    }
    return true;
}

/// For each thread a row of each component.
bool RowDecoder::makeScratch() {
    const auto bytes = static_cast<std::size_t>(scratchRow_ * Workers::mostCount()) * planes_.size();
    if (scratch_.size() < bytes) scratch_ = PixelBuffer::make(bytes);
    return scratch_.size() >= bytes;
}

int RowDecoder::read(MutablePixelView rows) {
    int done = 0;
    while (done < rows.height && makeScratch()) {
        if (rowsDone_ == rowsReady_ && !decodeBand()) break;
        const int count = std::min(rows.height - done, rowsReady_ - rowsDone_);
        convert(rowsDone_, rows.part(0, done, rows.width, count));
        rowsDone_ += count;
        done += count;
    }
    return done;
}

/// The last row of pixels may need samples of the next band.
bool RowDecoder::decodeBand() {
    const int begin = mcusDone_, end = std::min(begin + mcusOfBand_, frame_.mcusHigh);
    if (begin == end || !blocks_->advance(begin, end)) return false;
    keepLastRows();
    if (!transform(begin, end)) return false;
    mcusDone_ = end;
    rowsReady_ = end == frame_.mcusHigh ? frame_.height : end * frame_.mostDown * DCTSIZE - 1;
    return true;
}

void RowDecoder::keepLastRows() {
    for (std::size_t c = 0; c < planes_.size(); ++c) {
        Plane& plane = planes_[c];
        const int last = mcusDone_ * frame_.components[c].down * DCTSIZE - 1;
        if (last >= 0)
            std::memcpy(plane.samples.data(), plane.row(last), static_cast<std::size_t>(plane.bytesPerRow));
        plane.firstRow = last;
    }
}

/// Rows of MCUs.
bool RowDecoder::transform(int begin, int end) {
    struct Row {
        std::size_t component;
        int y;
    };
    std::vector<Row> rows;
    for (std::size_t c = 0; c < planes_.size(); ++c) {
        const int down = frame_.components[c].down;
        for (int y = begin * down; y < end * down; ++y)
            rows.push_back({c, y});
    }
    std::atomic<bool> isGood{true};
    const auto work = [&](int index, int) {
        const auto [c, y] = rows[static_cast<std::size_t>(index)];
        const Component& of = frame_.components[c];
        const Plane& plane = planes_[c];
        if (!arePossible(blocks_->row(c, y), of)) isGood = false;
        kernels::inverseDct(blocks_->row(c, y), of.steps.data(), quadsFor(of.blocksWide),
                            plane.row(y * DCTSIZE), plane.bytesPerRow);
    };
    Workers::forEach(static_cast<int>(rows.size()), work);
    return isGood;
}

void RowDecoder::convert(int y, MutablePixelView rows) const {
    const auto work = [&](int begin, int end, int slot) {
        for (int i = begin; i < end; ++i)
            convertRow(y + i, scratch_.data() + slot * scratchRow_ * std::ssize(planes_), rows.row(i));
    };
    forEachStripInSlots(rows.height, work, rowsOfStrip);
}

void RowDecoder::convertRow(int y, std::uint8_t* scratch, std::uint8_t* to) const {
    std::array<const std::uint8_t*, 3> samples{};
    for (std::size_t c = 0; c < planes_.size(); ++c)
        samples[c] = spread(c, y, scratch + static_cast<std::ptrdiff_t>(c) * scratchRow_);
    if (planes_.size() == 1)
        std::memcpy(to, samples[0], static_cast<std::size_t>(frame_.width));
    else if (frame_.isYcc)
        kernels::rgbFromYcc(samples[0], samples[1], samples[2], to, frame_.width);
    else
        kernels::rgbFromPlanes(samples[0], samples[1], samples[2], to, frame_.width);
}

/// A row of a component's samples, one for each pixel: in place, or made in `scratch`.
const std::uint8_t* RowDecoder::spread(std::size_t component, int y, std::uint8_t* scratch) const {
    const Plane& plane = planes_[component];
    const int wide = frame_.components[component].samplesWide,
              high = frame_.components[component].samplesHigh;
    const int near = y / plane.timesDown;
    const int far = std::clamp(y % 2 == 0 ? near - 1 : near + 1, 0, high - 1);
    switch (plane.spreading) {
    case Spreading::none:
        return plane.row(near);
    case Spreading::across:
        kernels::doubleAcross(plane.row(near), scratch, wide);
        break;
    case Spreading::down:
        kernels::doubleDown(plane.row(near), plane.row(far), y % 2 != 0, scratch, wide);
        break;
    case Spreading::both:
        kernels::doubleBoth(plane.row(near), plane.row(far), scratch, wide);
        break;
    case Spreading::repeated:
        kernels::repeatAcross(plane.row(near), scratch, wide, plane.timesAcross);
        break;
    }
    return scratch;
}

} // namespace pex::jpeg
