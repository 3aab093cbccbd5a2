#include "peximage/platform/codecs/jpeg/encode/ProgressiveScans.h"

#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/ProgressiveSymbols.h"
#include "peximage/platform/codecs/jpeg/encode/Stuffer.h"
#include "peximage/platform/foundation/Workers.h"

#include <utility>

namespace pex::jpeg {
namespace {

/// Mean tones whole, since everything rests on them; then coarse levels of low frequencies, of colour, and of
/// high frequencies; then what makes them fine.
std::vector<PartOfPicture> partsOf(bool grey) {
    if (grey)
        return {
            {{0}, 0, 0, 0, 0}, {{0}, 1, 5, 0, 2}, {{0}, 6, 63, 0, 2}, {{0}, 1, 63, 2, 1}, {{0}, 1, 63, 1, 0}};
    return {{{0, 1, 2}, 0, 0, 0, 0}, {{0}, 1, 5, 0, 2},  {{2}, 1, 63, 0, 1},
            {{1}, 1, 63, 0, 1},      {{0}, 6, 63, 0, 2}, {{0}, 1, 63, 2, 1},
            {{2}, 1, 63, 1, 0},      {{1}, 1, 63, 1, 0}, {{0}, 1, 63, 1, 0}};
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

} // namespace

void appendProgressiveScans(std::vector<std::uint8_t>& bytes, const Scan& scan) {
    const std::vector<PartOfPicture> parts = partsOf(scan.components.size() == 1);
    const std::vector<LevelPlane> planes = levelsOf(scan);
    std::vector<std::vector<std::uint8_t>> codedParts(parts.size());
    Workers::forEach(static_cast<int>(parts.size()), [&](int i, int) {
        codedParts[static_cast<std::size_t>(i)] = codedPart(scan, planes, parts[static_cast<std::size_t>(i)]);
    });
    for (const auto& part : codedParts)
        bytes.insert(bytes.end(), part.begin(), part.end());
}

} // namespace pex::jpeg
