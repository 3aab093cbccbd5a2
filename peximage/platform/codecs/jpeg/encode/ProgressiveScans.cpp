#include "peximage/platform/codecs/jpeg/encode/ProgressiveScans.h"

#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/ProgressiveSymbols.h"
#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"
#include "peximage/platform/foundation/Workers.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <utility>

namespace pex::jpeg {
namespace {

using Parts = std::vector<PartOfPicture>;

/// The levels of a component in a band of places: without their lowest bits, which follow one by one.
Parts partsOf(std::uint8_t component, int first, int last, int low) {
    Parts parts{{{component}, first, last, 0, low}};
    for (; low > 0; --low)
        parts.push_back({{component}, first, last, low, low - 1});
    return parts;
}

/// Coarse levels of low frequencies come first, then those of colour, and of high frequencies; then what
/// makes them fine.
int turnOf(const PartOfPicture& part) {
    const bool isLuma = part.components[0] == 0;
    if (part.high > 0) return 20 - 2 * part.high + (isLuma ? 1 : 0);
    if (isLuma) return part.first < 3 ? 0 : 2;
    return 1;
}

std::vector<LevelPlane> levelsOf(const Scan& scan) {
    std::vector<LevelPlane> planes;
    for (const ScanComponent& component : scan.components) {
        planes.emplace_back(*component.plane);
        Workers::forEach(component.plane->blocksHigh, [&](int y, int) {
            component.quantise(component.plane->block(0, y), component.plane->blocksWide,
                               planes.back().block(0, y), planes.back().masks(0, y));
        });
    }
    return planes;
}

/// A scan without its symbols.
struct ScanHeader {
    std::vector<std::uint8_t> bytes;
    std::vector<SymbolCodes> codes;
};

ScanHeader headerFor(const PartOfPicture& part, const ProgressiveSymbols& symbols) {
    ScanHeader header;
    std::vector<CodeDescription> descriptions;
    for (const SymbolCounts& counts : symbols.counts) {
        descriptions.push_back(optimalCode(counts));
        header.codes.emplace_back(descriptions.back());
    }
    appendScanHeader(header.bytes, part, descriptions);
    return header;
}

std::vector<std::uint8_t> codedPart(const Scan& scan, const std::vector<LevelPlane>& planes,
                                    const PartOfPicture& part) {
    const ProgressiveSymbols symbols =
        part.first == 0 ? symbolsOfMeans(scan, planes) : symbolsOfPart(planes[part.components[0]], part);
    ScanHeader header = headerFor(part, symbols);
    Stuffer stuffer(header.bytes);
    stuffer.append(symbols.coded(header.codes));
    stuffer.finish();
    return std::move(header.bytes);
}

/// About how many bits a part takes, by a sample of large planes.
std::uint64_t bitsOf(const LevelPlane& plane, const PartOfPicture& part) {
    constexpr int enoughBlocks = 1 << 15;
    const int everySoManyRows = 1 + plane.realWide() * plane.realHigh() / enoughBlocks;
    const ProgressiveSymbols symbols = symbolsOfPart(plane, part, everySoManyRows);
    const ScanHeader header = headerFor(part, symbols);
    return 8 * header.bytes.size() + static_cast<std::uint64_t>(everySoManyRows) * symbols.bits(header.codes);
}

/// Where the bands of places may begin that are told by themselves, and behind the last place.
std::vector<int> bordersOf(std::uint8_t component, Effort effort) {
    if (effort == Effort::best) return {1, 2, 3, 6, 9, 13, 21, 64};
    if (effort == Effort::normal) return {1, 2, 3, 13, 64};
    return component == 0 ? std::vector{1, 2, 3, 64} : std::vector{1, 64};
}

/// A way to tell a band, and the bits that it takes.
struct Band {
    Parts parts;
    std::uint64_t bits = 0;

    std::uint8_t component() const { return parts[0].components[0]; }
    std::size_t first() const { return static_cast<std::size_t>(parts[0].first); }
    std::size_t end() const { return static_cast<std::size_t>(parts[0].last) + 1; }
};

/// All ways to tell bands between any two borders, by their first places.
std::vector<Band> waysToTell(std::uint8_t component, Effort effort) {
    const std::vector<int> borders = bordersOf(component, effort);
    const int mostLow = effort == Effort::best ? 2 : effort == Effort::normal ? 1 : 0;
    std::vector<Band> bands;
    for (std::size_t i = 0; i < borders.size(); ++i) {
        const std::size_t ends = effort == Effort::fast ? std::min(i + 2, borders.size()) : borders.size();
        for (std::size_t j = i + 1; j < ends; ++j)
            for (int low = 0; low <= mostLow; ++low)
                bands.push_back({partsOf(component, borders[i], borders[j] - 1, low)});
    }
    return bands;
}

/// Of each component the bands that together tell all places in fewest bits.
std::vector<Parts> fewestBits(const std::vector<Band>& bands, std::size_t components) {
    struct Way {
        std::uint64_t bits = std::numeric_limits<std::uint64_t>::max();
        Parts parts;
    };
    std::vector<std::array<Way, 65>> upTo(components); // before each place
    for (const Band& band : bands) {
        auto& ways = upTo[band.component()];
        ways[1].bits = 0;
        const Way& before = ways[band.first()];
        Way& way = ways[band.end()];
        if (way.bits <= before.bits + band.bits) continue;
        way = {before.bits + band.bits, before.parts};
        way.parts.insert(way.parts.end(), band.parts.begin(), band.parts.end());
    }
    std::vector<Parts> fewest;
    for (auto& ways : upTo)
        fewest.push_back(std::move(ways[64].parts));
    return fewest;
}

/// How each component's levels but its mean tones are shared out: what takes fewest bits is a matter of the
/// picture, so all ways are tried.
std::vector<Parts> sharedOut(const std::vector<LevelPlane>& planes, Effort effort) {
    std::vector<Band> bands;
    for (std::uint8_t c = 0; c < planes.size(); ++c)
        std::ranges::move(waysToTell(c, effort), std::back_inserter(bands));
    if (effort != Effort::fast)
        Workers::forEach(static_cast<int>(bands.size()), [&](int i, int) {
            Band& band = bands[static_cast<std::size_t>(i)];
            for (const PartOfPicture& part : band.parts)
                band.bits += bitsOf(planes[band.component()], part);
        });
    return fewestBits(bands, planes.size());
}

/// Mean tones whole, since everything rests on them, then all else.
Parts bestParts(const std::vector<LevelPlane>& planes, Effort effort) {
    PartOfPicture means{{}, 0, 0, 0, 0};
    Parts all;
    for (const Parts& parts : sharedOut(planes, effort)) {
        means.components.push_back(static_cast<std::uint8_t>(means.components.size()));
        all.insert(all.end(), parts.begin(), parts.end());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const PartOfPicture& a, const PartOfPicture& b) { return turnOf(a) < turnOf(b); });
    all.insert(all.begin(), means);
    return all;
}

} // namespace

void appendProgressiveScans(std::vector<std::uint8_t>& bytes, const Scan& scan, Effort effort) {
    const std::vector<LevelPlane> planes = levelsOf(scan);
    const Parts parts = bestParts(planes, effort);
    std::vector<std::vector<std::uint8_t>> codedParts(parts.size());
    Workers::forEach(static_cast<int>(parts.size()), [&](int i, int) {
        codedParts[static_cast<std::size_t>(i)] = codedPart(scan, planes, parts[static_cast<std::size_t>(i)]);
    });
    for (const auto& part : codedParts)
        bytes.insert(bytes.end(), part.begin(), part.end());
}

} // namespace pex::jpeg
