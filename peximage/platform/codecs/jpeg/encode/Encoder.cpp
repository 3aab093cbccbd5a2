#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"
#include "peximage/platform/foundation/Workers.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>

namespace pex::jpeg {
namespace {

constexpr double fullChromaFrom = 0.9;
constexpr std::size_t keptEncodings = 2;
constexpr std::uint8_t endOfImage = 0xD9;

/// Sums over [0, count) what `bits` tells of an index, on all cores.
template <class Bits>
double sumOfBits(int count, const Bits& bits) {
    std::atomic<std::uint64_t> sum = 0;
    Workers::forEach(count, [&](int i, int) { sum += bits(i); });
    return static_cast<double>(sum);
}

/// Spreads `wanted` short runs of units evenly over a scan, or all if there are no more: one in each stretch
/// of equally many, at a place that the golden ratio varies, so that no pattern in the picture falls in step.
std::vector<UnitRange> sampleOf(const Scan& scan, int wanted) {
    constexpr int unitsPerRun = 16;
    constexpr double goldenRatio = 0.6180339887498949;
    const int runsWide = (scan.unitsWide + unitsPerRun - 1) / unitsPerRun;
    const int all = runsWide * scan.unitsHigh, count = std::min(wanted, all);
    std::vector<UnitRange> runs;
    for (int i = 0; i < count; ++i) {
        const double place = i * goldenRatio - std::floor(i * goldenRatio);
        const int run = static_cast<int>((i + place) * all / count);
        const int first = run % runsWide * unitsPerRun;
        runs.push_back({run / runsWide, first, std::min(first + unitsPerRun, scan.unitsWide)});
    }
    return runs;
}

ScanComponent component(const CoefficientPlane& plane, int blocks, const QuantTable& table, Channel channel) {
    return {kernels::Quantizer(table), &plane, &huffmanCodes(channel), blocks, blocks};
}

/// Counts bits from the top, some rows at a time, until they are `enough` or all.
double countUntil(const Scan& scan, double enough) {
    constexpr int rowsAtOnce = 16;
    double bits = 0;
    for (int top = 0; top < scan.unitsHigh && bits < enough; top += rowsAtOnce) {
        bits += sumOfBits(std::min(rowsAtOnce, scan.unitsHigh - top), [&](int y) {
            return countBits(scan, {top + y, 0, scan.unitsWide});
        });
    }
    return bits;
}

/// Rows are coded on all cores into memory that each thread uses again, then joined.
void appendScan(std::vector<std::uint8_t>& bytes, const Scan& scan) {
    std::vector<std::vector<std::uint8_t>> scratch(static_cast<std::size_t>(Workers::count()));
    std::vector<CodedBits> rows(static_cast<std::size_t>(scan.unitsHigh));
    Workers::forEach(scan.unitsHigh, [&](int row, int slot) {
        std::vector<std::uint8_t>& room = scratch[static_cast<std::size_t>(slot)];
        room.resize(mostBytesPerRow(scan));
        rows[static_cast<std::size_t>(row)] = codeRow(scan, row, room.data());
    });
    std::size_t coded = 0;
    for (const auto& row : rows)
        coded += row.bytes.size();
    bytes.reserve(bytes.size() + coded + coded / 64 + 64);
    Stuffer stuffer(bytes);
    for (const auto& row : rows)
        stuffer.append(row);
    stuffer.finish();
}

} // namespace

std::shared_ptr<Encoder> Encoder::make(EncoderInput input) {
    if (std::min(input.width, input.height) < 1) return nullptr;
    if (std::max(input.width, input.height) > mostPixelsPerSide) return nullptr;
    Coefficients coefficients = transform(input);
    if (!coefficients.luma) return nullptr;
    return std::shared_ptr<Encoder>(new Encoder(std::move(input), std::move(coefficients)));
}

Encoder::Encoder(EncoderInput input, Coefficients coefficients)
    : input_(std::move(input)), coefficients_(std::move(coefficients)) {}

std::vector<std::uint8_t> Encoder::encode(double quality) { return encoded(quality); }

std::size_t Encoder::byteCount(double quality) {
    const auto known = byteCounts_.find(quality);
    return known != byteCounts_.end() ? known->second : encoded(quality).size();
}

const std::vector<std::uint8_t>& Encoder::encoded(double quality) {
    const auto kept = std::find_if(lastEncoded_.begin(), lastEncoded_.end(),
                                   [&](const Encoded& e) { return e.quality == quality; });
    if (kept != lastEncoded_.end()) return kept->bytes;

    std::vector<std::uint8_t> bytes = header(quality);
    appendScan(bytes, scan(quality));
    bytes.insert(bytes.end(), {0xFF, endOfImage});

    byteCounts_[quality] = bytes.size();
    if (lastEncoded_.size() == keptEncodings) lastEncoded_.pop_front();
    lastEncoded_.push_back({quality, std::move(bytes)});
    return lastEncoded_.back().bytes;
}

double Encoder::estimatedByteCount(double quality, Estimate estimate) {
    const Scan whole = scan(quality);
    const int smallerUnits = hasFullChroma(quality) ? 2 : 1;
    const auto runs = sampleOf(whole, smallerUnits * (estimate == Estimate::rough ? 48 : 384));
    double counted = 0;
    for (const auto& run : runs)
        counted += run.end - run.first;
    const double bits = sumOfBits(static_cast<int>(runs.size()),
                                  [&](int i) { return countBits(whole, runs[static_cast<std::size_t>(i)]); });
    const double units = static_cast<double>(whole.unitsWide) * whole.unitsHigh;
    return static_cast<double>(header(quality).size()) + bits / 8 * units / counted;
}

bool Encoder::surelyReaches(double quality, double bytes) {
    const double luma = countUntil(lumaScan(quality), 8 * bytes);
    if (luma >= 8 * bytes || input_.grey) return luma >= 8 * bytes;
    Scan chroma = scan(quality);
    chroma.components.erase(chroma.components.begin());
    return luma + countUntil(chroma, 8 * bytes - luma) >= 8 * bytes;
}

bool Encoder::wantsFullChroma(double quality) const {
    return !input_.grey && quality >= fullChromaFrom && !noFullChroma_;
}

bool Encoder::hasFullChroma(double quality) {
    if (wantsFullChroma(quality) && !fullChroma_.cb) {
        fullChroma_ = transformFullChroma(input_);
        noFullChroma_ = !fullChroma_.cb;
    }
    return wantsFullChroma(quality);
}

Scan Encoder::lumaScan(double quality) const {
    const int blocks = input_.grey || wantsFullChroma(quality) ? 1 : 2, side = 8 * blocks;
    const QuantTables tables = quantTables(quality);
    return {{component(coefficients_.luma, blocks, tables.luma, Channel::luma)},
            (input_.width + side - 1) / side,
            (input_.height + side - 1) / side};
}

Scan Encoder::scan(double quality) {
    const bool full = hasFullChroma(quality);
    Scan scan = lumaScan(quality);
    if (input_.grey) return scan;
    const QuantTables tables = quantTables(quality);
    const Coefficients& chroma = full ? fullChroma_ : coefficients_;
    for (const auto* plane : {&chroma.cb, &chroma.cr})
        scan.components.push_back(component(*plane, 1, tables.chroma, Channel::chroma));
    return scan;
}

std::vector<std::uint8_t> Encoder::header(double quality) {
    const FrameHeader frame{input_.width, input_.height, input_.grey, hasFullChroma(quality)};
    return fileHeader(frame, quantTables(quality), input_.metadata, input_.iccProfile);
}

} // namespace pex::jpeg
