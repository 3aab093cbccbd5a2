#include "peximage/platform/codecs/JpegEncoder.h"

#include "peximage/platform/codecs/JpegHeader.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace pex {
namespace {

constexpr double fullChromaFrom = 0.9;
constexpr std::size_t keptEncodings = 2;

/// Sums over [0, count) what `bits` tells of an index, on all cores.
template <class Bits>
double sumOfBits(int count, const Bits& bits) {
    const auto sum = tbb::parallel_reduce(
        tbb::blocked_range<int>(0, count), std::uint64_t{0},
        [&](const tbb::blocked_range<int>& range, std::uint64_t part) {
            for (int i = range.begin(); i != range.end(); ++i)
                part += bits(i);
            return part;
        },
        std::plus<>());
    return static_cast<double>(sum);
}

/// Spreads at least `wanted` short runs of units evenly over a scan, if it has as many: in every row each
/// `step`-th, shifted from row to row so that no part of the picture's width is left out.
std::vector<jpeg::UnitRange> sampleOf(const jpeg::Scan& scan, int wanted) {
    constexpr int unitsPerRun = 16;
    const int runsWide = (scan.unitsWide + unitsPerRun - 1) / unitsPerRun;
    const int step = std::max(runsWide * scan.unitsHigh / wanted, 1);
    const int shift = (3 * step + 7) / 8;
    std::vector<jpeg::UnitRange> runs;
    for (int row = 0; row < scan.unitsHigh; ++row) {
        for (int run = row * shift % step; run < runsWide; run += step) {
            const int first = run * unitsPerRun;
            runs.push_back({row, first, std::min(first + unitsPerRun, scan.unitsWide)});
        }
    }
    return runs;
}

jpeg::ScanComponent component(const jpeg::CoefficientPlane& plane, int blocks, const jpeg::QuantTable& table,
                              jpeg::Channel channel) {
    return {&plane, blocks, blocks, kernels::Quantizer(table), &jpeg::huffmanCodes(channel)};
}

} // namespace

std::shared_ptr<JpegEncoder> JpegEncoder::make(JpegInput input) {
    if (std::min(input.width, input.height) < 1) return nullptr;
    if (std::max(input.width, input.height) > mostPixelsPerSide) return nullptr;
    jpeg::Coefficients coefficients = jpeg::transform(input);
    if (!coefficients.luma) return nullptr;
    return std::shared_ptr<JpegEncoder>(new JpegEncoder(std::move(input), std::move(coefficients)));
}

JpegEncoder::JpegEncoder(JpegInput input, jpeg::Coefficients coefficients)
    : input_(std::move(input)), coefficients_(std::move(coefficients)) {}

std::vector<std::uint8_t> JpegEncoder::encode(double quality) { return encoded(quality); }

std::size_t JpegEncoder::byteCount(double quality) {
    const auto known = byteCounts_.find(quality);
    return known != byteCounts_.end() ? known->second : encoded(quality).size();
}

const std::vector<std::uint8_t>& JpegEncoder::encoded(double quality) {
    const auto kept = std::find_if(lastEncoded_.begin(), lastEncoded_.end(),
                                   [&](const Encoded& e) { return e.quality == quality; });
    if (kept != lastEncoded_.end()) return kept->bytes;

    const jpeg::Scan whole = scan(quality);
    std::vector<jpeg::CodedBits> rows(static_cast<std::size_t>(whole.unitsHigh));
    tbb::parallel_for(0, whole.unitsHigh,
                      [&](int row) { rows[static_cast<std::size_t>(row)] = jpeg::codeRow(whole, row); });
    std::vector<std::uint8_t> bytes = header(quality);
    jpeg::appendStuffed(bytes, rows);
    bytes.insert(bytes.end(), {0xFF, 0xD9});

    byteCounts_[quality] = bytes.size();
    if (lastEncoded_.size() == keptEncodings) lastEncoded_.pop_front();
    lastEncoded_.push_back({quality, std::move(bytes)});
    return lastEncoded_.back().bytes;
}

double JpegEncoder::estimatedByteCount(double quality, Estimate estimate) {
    const jpeg::Scan whole = scan(quality);
    const auto runs = sampleOf(whole, estimate == Estimate::rough ? 48 : 192);
    double counted = 0;
    for (const auto& run : runs)
        counted += run.end - run.first;
    const double bits = sumOfBits(static_cast<int>(runs.size()), [&](int i) {
        return jpeg::countBits(whole, runs[static_cast<std::size_t>(i)]);
    });
    const double units = static_cast<double>(whole.unitsWide) * whole.unitsHigh;
    return static_cast<double>(header(quality).size()) + bits / 8 * units / counted;
}

bool JpegEncoder::surelyReaches(double quality, double bytes) {
    constexpr int rowsAtOnce = 16;
    const jpeg::Scan luma = lumaScan(quality);
    double bits = 0;
    for (int row = 0; row < luma.unitsHigh; row += rowsAtOnce) {
        bits += sumOfBits(std::min(rowsAtOnce, luma.unitsHigh - row), [&](int i) {
            return jpeg::countBits(luma, {row + i, 0, luma.unitsWide});
        });
        if (bits / 8 >= bytes) return true;
    }
    return false;
}

bool JpegEncoder::wantsFullChroma(double quality) {
    if (input_.grey || !(quality >= fullChromaFrom) || noFullChroma_) return false;
    if (!fullChroma_.cb) fullChroma_ = jpeg::transformFullChroma(input_);
    noFullChroma_ = !fullChroma_.cb;
    return !noFullChroma_;
}

jpeg::Scan JpegEncoder::lumaScan(double quality) const {
    const auto& plane = coefficients_.luma;
    const jpeg::QuantTables tables = jpeg::quantTables(quality);
    return {{component(plane, 1, tables.luma, jpeg::Channel::luma)}, plane.blocksWide, plane.blocksHigh};
}

jpeg::Scan JpegEncoder::scan(double quality) {
    if (input_.grey) return lumaScan(quality);
    const bool full = wantsFullChroma(quality);
    const jpeg::Coefficients& chroma = full ? fullChroma_ : coefficients_;
    const jpeg::QuantTables tables = jpeg::quantTables(quality);
    return {{component(coefficients_.luma, full ? 1 : 2, tables.luma, jpeg::Channel::luma),
             component(chroma.cb, 1, tables.chroma, jpeg::Channel::chroma),
             component(chroma.cr, 1, tables.chroma, jpeg::Channel::chroma)},
            chroma.cb.blocksWide,
            chroma.cb.blocksHigh};
}

std::vector<std::uint8_t> JpegEncoder::header(double quality) {
    const jpeg::FrameInfo frame{input_.width, input_.height, input_.grey, wantsFullChroma(quality)};
    return jpeg::header(frame, jpeg::quantTables(quality), input_.iccProfile);
}

} // namespace pex
