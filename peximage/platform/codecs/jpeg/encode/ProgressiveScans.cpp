#include "peximage/platform/codecs/jpeg/encode/ProgressiveScans.h"

#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/ProgressiveSymbols.h"
#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"
#include "peximage/platform/foundation/Workers.h"

#include <algorithm>
#include <utility>

namespace pex::jpeg {
namespace {

/// How the levels of a component but its mean tones are told: up to a place and behind it, or all at once;
/// without some of their lowest bits, which follow one by one.
struct Cut {
    int place, low;
};
constexpr int lastPlace = 63;

using Parts = std::vector<PartOfPicture>;

Parts partsOf(std::uint8_t component, const Cut& cut) {
    Parts parts{{{component}, 1, cut.place, 0, cut.low}};
    if (cut.place < lastPlace) parts.push_back({{component}, cut.place + 1, lastPlace, 0, cut.low});
    for (int low = cut.low; low > 0; --low)
        parts.push_back({{component}, 1, lastPlace, low, low - 1});
    return parts;
}

/// Coarse levels of low frequencies come first, then those of colour, and of high frequencies; then what
/// makes them fine.
int turnOf(const PartOfPicture& part) {
    const bool isLuma = part.components[0] == 0;
    if (part.high > 0) return 20 - 2 * part.high + (isLuma ? 1 : 0);
    if (isLuma) return part.first == 1 ? 0 : 2;
    return 1;
}

std::vector<LevelPlane> levelsOf(const Scan& scan) {
    std::vector<LevelPlane> planes;
    for (const ScanComponent& component : scan.components) {
        planes.emplace_back(*component.plane);
        Workers::forEach(component.plane->blocksHigh, [&](int y, int) {
            std::vector<kernels::LevelMasks> masks(static_cast<std::size_t>(component.plane->blocksWide));
            component.quantise(component.plane->block(0, y), component.plane->blocksWide,
                               planes.back().block(0, y), masks.data());
        });
    }
    return planes;
}

std::vector<std::uint8_t> codedPart(const Scan& scan, const std::vector<LevelPlane>& planes,
                                    const PartOfPicture& part) {
    const ProgressiveSymbols symbols =
        part.first == 0 ? symbolsOfMeans(scan, planes) : symbolsOfPart(planes[part.components[0]], part);
    std::vector<CodeDescription> descriptions;
    std::vector<SymbolCodes> codes;
    for (const SymbolCounts& counts : symbols.counts) {
        descriptions.push_back(optimalCode(counts));
        codes.emplace_back(descriptions.back());
    }
    std::vector<std::uint8_t> bytes;
    appendScanHeader(bytes, part, descriptions);
    Stuffer stuffer(bytes);
    stuffer.append(symbols.coded(codes));
    stuffer.finish();
    return bytes;
}

/// The ways to cut a component that are tried.
std::vector<Cut> cutsOf(std::uint8_t component, Effort effort) {
    if (effort == Effort::fast) return {component == 0 ? Cut{5, 2} : Cut{lastPlace, 1}};
    if (effort == Effort::normal) return {{5, 0}, {lastPlace, 0}, {5, 1}, {lastPlace, 1}};
    std::vector<Cut> cuts;
    for (const int low : {0, 1, 2})
        for (const int place : {2, 5, 8, lastPlace})
            cuts.push_back({place, low});
    return cuts;
}

/// A component's parts, and the bytes that they take.
struct Trial {
    std::uint8_t component;
    Parts parts;
    std::size_t size = 0;
};

/// For each component the parts that take fewest bytes: which ones is a matter of the picture.
std::vector<Trial> bestTrials(const Scan& scan, const std::vector<LevelPlane>& planes, Effort effort) {
    std::vector<Trial> trials, best(planes.size());
    for (std::uint8_t c = 0; c < planes.size(); ++c)
        for (const Cut& cut : cutsOf(c, effort))
            trials.push_back({c, partsOf(c, cut)});
    if (trials.size() == planes.size()) return trials;
    Workers::forEach(static_cast<int>(trials.size()), [&](int i, int) {
        Trial& trial = trials[static_cast<std::size_t>(i)];
        for (const PartOfPicture& part : trial.parts)
            trial.size += codedPart(scan, planes, part).size();
    });
    for (const Trial& trial : trials) {
        Trial& least = best[trial.component];
        if (least.parts.empty() || trial.size < least.size) least = trial;
    }
    return best;
}

/// Mean tones whole, since everything rests on them, then all else.
Parts bestParts(const Scan& scan, const std::vector<LevelPlane>& planes, Effort effort) {
    PartOfPicture means{{}, 0, 0, 0, 0};
    Parts all;
    for (const Trial& best : bestTrials(scan, planes, effort)) {
        means.components.push_back(best.component);
        all.insert(all.end(), best.parts.begin(), best.parts.end());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const PartOfPicture& a, const PartOfPicture& b) { return turnOf(a) < turnOf(b); });
    all.insert(all.begin(), means);
    return all;
}

} // namespace

void appendProgressiveScans(std::vector<std::uint8_t>& bytes, const Scan& scan, Effort effort) {
    const std::vector<LevelPlane> planes = levelsOf(scan);
    const Parts parts = bestParts(scan, planes, effort);
    std::vector<std::vector<std::uint8_t>> codedParts(parts.size());
    Workers::forEach(static_cast<int>(parts.size()), [&](int i, int) {
        codedParts[static_cast<std::size_t>(i)] = codedPart(scan, planes, parts[static_cast<std::size_t>(i)]);
    });
    for (const auto& part : codedParts)
        bytes.insert(bytes.end(), part.begin(), part.end());
}

} // namespace pex::jpeg
