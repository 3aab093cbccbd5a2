#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include "peximage/platform/codecs/jpeg/encode/ChromaChoice.h"
#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/ProgressiveScans.h"
#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"
#include "peximage/platform/foundation/Workers.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>

namespace pex::jpeg {
namespace {

constexpr std::size_t keptEncodings = 2;
constexpr std::uint8_t endOfImage = 0xD9;

/// Calls `work(index, slot, counts)` for [0, count) on all cores and adds up what it counts.
template <class Work>
ScanCounts sumOfCounts(int count, const Work& work) {
    std::vector<ScanCounts> counts(static_cast<std::size_t>(Workers::mostCount()));
    Workers::forEach(count, [&](int i, int slot) { work(i, slot, counts[static_cast<std::size_t>(slot)]); });
    for (std::size_t slot = 1; slot < counts.size(); ++slot)
        add(counts[0], counts[slot]);
    return counts[0];
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

/// The symbols of a scan: row by row, and how often each occurs.
struct ScanSymbols {
    std::vector<RowSymbols> rows;
    ScanCounts counts;
};

/// Rows are quantised on all cores into memory that each thread uses again.
ScanSymbols symbolsOf(const Scan& scan) {
    ScanSymbols symbols;
    symbols.rows.resize(static_cast<std::size_t>(scan.unitsHigh));
    std::vector<std::vector<std::uint8_t>> scratch(static_cast<std::size_t>(Workers::mostCount()));
    symbols.counts = sumOfCounts(scan.unitsHigh, [&](int row, int slot, ScanCounts& counts) {
        std::vector<std::uint8_t>& room = scratch[static_cast<std::size_t>(slot)];
        room.resize(mostSymbolBytes(scan));
        symbols.rows[static_cast<std::size_t>(row)] = symbolsOfRow(scan, row, counts, room.data());
    });
    return symbols;
}

/// The symbols of all rows, counted on all cores.
ScanCounts countsOf(const Scan& scan) {
    return sumOfCounts(scan.unitsHigh, [&](int row, int, ScanCounts& sum) {
        countSymbols(scan, {row, 0, scan.unitsWide}, sum);
    });
}

/// Rows are coded some at a time on all cores, their symbols let go, then joined.
void appendScan(std::vector<std::uint8_t>& bytes, const Scan& scan) {
    constexpr int rowsAtOnce = 32;
    ScanSymbols symbols = symbolsOf(scan);
    const ScanDescription description = optimalCodes(symbols.counts);
    const ScanCodes codes = codesOf(description);
    appendScanHeader(bytes, scan.components.size() == 1, description);
    const auto coded = static_cast<std::size_t>(bitsOf(symbols.counts, codes) / 8);
    bytes.reserve(bytes.size() + coded + coded / 64 + 64);
    Stuffer stuffer(bytes);
    std::vector<CodedBits> rows(rowsAtOnce);
    for (int top = 0; top < scan.unitsHigh; top += rowsAtOnce) {
        const int count = std::min(rowsAtOnce, scan.unitsHigh - top);
        Workers::forEach(count, [&](int i, int) {
            RowSymbols& ofRow = symbols.rows[static_cast<std::size_t>(top + i)];
            rows[static_cast<std::size_t>(i)] = codeRow(scan, ofRow, codes);
            ofRow = {};
        });
        for (int i = 0; i < count; ++i)
            stuffer.append(rows[static_cast<std::size_t>(i)]);
    }
    stuffer.finish();
}

/// With half chroma, unless that is not wanted or the picture turns out to lose by it.
TransformedPicture transformed(const EncoderInput& input, Chroma wanted) {
    const auto all = [](int, int) { return true; };
    if (input.grey || wanted == Chroma::half) return transform(input, ChromaSize::half, all);
    if (wanted == Chroma::full) return transform(input, ChromaSize::full, all);
    ChromaChoice choice(input);
    bool allowsHalf = true;
    const auto accepts = [&](int top, int end) { return allowsHalf = choice.allowsHalf(top, end); };
    TransformedPicture halved = transform(input, ChromaSize::half, accepts);
    return allowsHalf ? std::move(halved) : transform(input, ChromaSize::full, all);
}

} // namespace

std::shared_ptr<Encoder> Encoder::make(EncoderInput input, const JpegOptions& options) {
    if (std::min(input.width, input.height) < 1) return nullptr;
    if (std::max(input.width, input.height) > mostPixelsPerSide) return nullptr;
    TransformedPicture picture = transformed(input, options.chroma);
    if (!picture.luma) return nullptr;
    input.row = nullptr;
    input.load = nullptr;
    return std::shared_ptr<Encoder>(new Encoder(std::move(input), std::move(picture), options));
}

Encoder::Encoder(EncoderInput input, TransformedPicture picture, const JpegOptions& options)
    : input_(std::move(input)), picture_(std::move(picture)), options_(options) {}

std::vector<std::uint8_t> Encoder::encode(double quality) { return encoded(quality); }

std::vector<std::uint8_t> Encoder::encode(const Quantisation& quantisation) const {
    const Scan whole = bestScan(quantisation, [](const Scan& scan) { return countsOf(scan); });
    std::vector<std::uint8_t> bytes = fileStart(header(quantisation), input_.metadata, input_.iccProfile);
    if (options_.progressive)
        appendProgressiveScans(bytes, whole, options_.effort);
    else
        appendScan(bytes, whole);
    bytes.insert(bytes.end(), {0xFF, endOfImage});
    return bytes;
}

std::size_t Encoder::byteCount(double quality) {
    const auto known = byteCounts_.find(quality);
    return known != byteCounts_.end() ? known->second : encoded(quality).size();
}

const std::vector<std::uint8_t>& Encoder::encoded(double quality) {
    const auto kept = std::find_if(lastEncoded_.begin(), lastEncoded_.end(),
                                   [&](const Encoded& e) { return e.quality == quality; });
    if (kept != lastEncoded_.end()) return kept->bytes;

    std::vector<std::uint8_t> bytes = encode(quantisation(quality));
    byteCounts_[quality] = bytes.size();
    if (lastEncoded_.size() == keptEncodings) lastEncoded_.pop_front();
    lastEncoded_.push_back({quality, std::move(bytes)});
    return lastEncoded_.back().bytes;
}

double Encoder::estimatedByteCount(double quality, Estimate estimate) const {
    const Quantisation tables = quantisation(quality);
    const int smallerUnits = picture_.chroma == ChromaSize::full ? 2 : 1;
    const auto runs = sampleOf(scan(tables), smallerUnits * (estimate == Estimate::rough ? 48 : 384));
    double counted = 0;
    for (const auto& run : runs)
        counted += run.end - run.first;
    const auto countRuns = [&](const Scan& scan) {
        return sumOfCounts(static_cast<int>(runs.size()), [&](int i, int, ScanCounts& sum) {
            countSymbols(scan, runs[static_cast<std::size_t>(i)], sum);
        });
    };
    const Scan whole = bestScan(tables, countRuns);
    const ScanCounts counts = countRuns(whole);
    const ScanDescription codes = optimalCodes(counts);
    std::vector<std::uint8_t> bytes = fileStart(header(tables), input_.metadata, input_.iccProfile);
    appendScanHeader(bytes, input_.grey, codes);
    const double units = static_cast<double>(whole.unitsWide) * whole.unitsHigh;
    return static_cast<double>(bytes.size()) + bitsOf(counts, codesOf(codes)) / 8 * units / counted;
}

bool Encoder::surelyReaches(double quality, double bytes) const {
    // A trellis can drop any level, and progressive files have other symbols.
    if (options_.effort == Effort::best || options_.progressive) return false;
    constexpr int rowsAtOnce = 16;
    const Scan whole = scan(quantisation(quality));
    ScanCounts counts;
    for (int top = 0; top < whole.unitsHigh; top += rowsAtOnce) {
        const int rows = std::min(rowsAtOnce, whole.unitsHigh - top);
        add(counts, sumOfCounts(rows, [&](int y, int, ScanCounts& sum) {
                countSymbols(whole, {top + y, 0, whole.unitsWide}, sum);
            }));
        if (fewestBits(counts) >= 8 * bytes) return true;
    }
    return bytes <= 0;
}

Scan Encoder::scan(const Quantisation& quantisation, const ScanCodes* codes) const {
    const bool halves = !input_.grey && picture_.chroma == ChromaSize::half;
    const int blocks = halves ? 2 : 1;
    const auto choice = options_.effort == Effort::fast ? BlockQuantiser::Choice::threshold
                                                        : BlockQuantiser::Choice::loneOnes;
    const auto component = [&](const TransformedPlane& plane, const QuantTable& table, Channel channel,
                               int side) {
        ScanComponent of{std::make_shared<const BlockQuantiser>(table, quantisation.rounding, choice), &plane,
                         channel, side, side};
        if (codes)
            of.trellis =
                std::make_shared<const Trellis>(table, quantisation.rounding, codes->othersOf(channel));
        return of;
    };
    Scan scan{{component(picture_.luma, quantisation.luma, Channel::luma, blocks)},
              picture_.luma.blocksWide / blocks,
              picture_.luma.blocksHigh / blocks};
    if (input_.grey) return scan;
    scan.components.push_back(component(picture_.cb, quantisation.cb, Channel::chroma, 1));
    scan.components.push_back(component(picture_.cr, quantisation.cr, Channel::chroma, 1));
    return scan;
}

Scan Encoder::bestScan(const Quantisation& quantisation,
                       const std::function<ScanCounts(const Scan&)>& count) const {
    Scan best = scan(quantisation);
    if (options_.effort != Effort::best) return best;
    constexpr int passes = 2; // codes follow from levels, and levels from codes
    for (int pass = 0; pass < passes; ++pass) {
        const ScanCodes codes = codesOf(optimalCodes(count(best)));
        best = scan(quantisation, &codes);
    }
    return best;
}

FileHeader Encoder::header(const Quantisation& quantisation) const {
    return {input_.width, input_.height, input_.grey, options_.progressive, picture_.chroma, quantisation};
}

} // namespace pex::jpeg
