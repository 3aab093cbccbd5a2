#include "peximage/composer/PexComposer.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"

#include <array>
#include <cmath>
#include <span>

namespace pex {
namespace {

using Layer = PexComposer::Layer;
using Orientation = PexComposer::Guide::Orientation;

constexpr std::array<double, 2> snapMargins{0.0, 0.05};

/// The lines of one layer in one direction: one or three.
struct Lines {
    std::array<double, 3> positions{};
    std::size_t count = 1;

    const double* begin() const { return positions.data(); }
    const double* end() const { return positions.data() + count; }
    std::vector<double> list() const { return {begin(), end()}; }
};

Lines linesAround(double centre, double length) {
    return {.positions = {centre - length / 2, centre, centre + length / 2}, .count = 3};
}

Lines imageVLines(const Layer& layer, const PexComposer& composer) {
    return linesAround(layer.transform.location.x, layer.imageActualNormalizedSize(composer).width);
}

Lines imageHLines(const Layer& layer, const PexComposer& composer) {
    const Lines lines =
        linesAround(layer.transform.location.y, layer.imageActualNormalizedSize(composer).height);
    if (diagnostics::enabled()) {
        const auto& [low, centre, high] = lines.positions;
        diagnostics::print("guides = [" + decimalText(low) + ", " + decimalText(centre) + ", " +
                           decimalText(high) + ']');
    }
    return lines;
}

Lines linesOf(const Layer& layer, const PexComposer& composer, Orientation orientation) {
    const bool vertical = orientation == Orientation::vertical;
    if (layer.layerType == Layer::LayerType::image)
        return vertical ? imageVLines(layer, composer) : imageHLines(layer, composer);
    return {.positions = {vertical ? layer.transform.location.x : layer.transform.location.y}};
}

/// Calls `visit(orientation, location, intrinsic)` for every guide that is computed rather than stored.
template <class Visit>
void forEachComputedGuide(const PexComposer& composer, std::span<const double> margins, Visit visit) {
    visit(Orientation::horizontal, 0.0, true);
    visit(Orientation::vertical, 0.0, true);
    for (const double margin : margins) {
        visit(Orientation::vertical, 0.5 - margin, true);
        visit(Orientation::vertical, margin - 0.5, true);
        visit(Orientation::horizontal, (0.5 - margin) / composer.ratio, true);
        visit(Orientation::horizontal, (margin - 0.5) / composer.ratio, true);
    }
    for (const Layer& layer : composer.layerList)
        for (const Orientation orientation : {Orientation::horizontal, Orientation::vertical})
            for (const double location : linesOf(layer, composer, orientation))
                visit(orientation, location, false);
}

std::vector<double> snapPositions(const PexComposer& composer, const Layer& moving, Orientation wanted) {
    std::vector<double> positions;
    for (const Layer& layer : composer.layerList) {
        if (layer.id == moving.id) continue;
        const Lines lines = linesOf(layer, composer, wanted);
        positions.insert(positions.end(), lines.begin(), lines.end());
    }
    for (const PexComposer::Guide& guide : composer.guideList_)
        if (guide.orientation == wanted) positions.push_back(guide.location);
    forEachComputedGuide(composer, snapMargins, [&](Orientation orientation, double location, bool) {
        if (orientation == wanted) positions.push_back(location);
    });
    return positions;
}

/// The nearest position `guide + offset` within the limit. Of equally near ones, the first in the order of
/// offsets, then guides.
std::optional<double> nearest(const std::vector<double>& guides, std::span<const double> offsets, double at,
                              double limit) {
    std::optional<double> found;
    double foundDistance = 0;
    for (const double offset : offsets)
        for (const double guide : guides) {
            const double distance = std::abs(guide + offset - at);
            if (!(distance <= limit) || (found && !(distance < foundDistance))) continue;
            found = guide + offset;
            foundDistance = distance;
        }
    return found;
}

/// Where a layer snaps; `length` is its extent in the direction of the search.
std::optional<double> snap(const std::vector<double>& guides, const Layer& layer, double length, double at,
                           CGSize size) {
    const std::array<double, 3> offsets{0, length / 2, -length / 2};
    const std::size_t count = layer.layerType == Layer::LayerType::image ? 3 : 1;
    return nearest(guides, std::span(offsets).first(count), at,
                   PexComposer::kGuideSnapDistanceInPixels / size.width);
}

} // namespace

CGSize PexComposer::Layer::imageActualNormalizedSize(const PexComposer& in) const {
    const double ratioScale = in.ratio / image.ratio > 1.0 ? in.ratio / image.ratio : 1.0;
    const CGSize size{ratioScale * transform.scale.x, ratioScale * transform.scale.y / image.ratio};
    if (diagnostics::enabled()) {
        diagnostics::print("ratioScale = " + decimalText(ratioScale));
        diagnostics::print("scale = (" + decimalText(size.width) + ", " + decimalText(size.height) + ')');
    }
    return size;
}

std::vector<double> PexComposer::Layer::imageHGuides(const PexComposer& in) const {
    return imageHLines(*this, in).list();
}

std::vector<double> PexComposer::Layer::imageVGuides(const PexComposer& in) const {
    return imageVLines(*this, in).list();
}

std::vector<double> PexComposer::Layer::horizontalGuides(const PexComposer& in) const {
    return linesOf(*this, in, Orientation::horizontal).list();
}

std::vector<double> PexComposer::Layer::verticalGuides(const PexComposer& in) const {
    return linesOf(*this, in, Orientation::vertical).list();
}

CGPoint PexComposer::actualPosition(const Layer& of, CGSize in) {
    return deNormalize(of.transform.location, in);
}

CGPoint PexComposer::livePosition(const Layer& of, CGSize inSize, CGSize with) {
    return actualPosition(of, inSize) + CGPoint{with.width, with.height};
}

std::vector<PexComposer::Guide> PexComposer::guideList(const std::vector<double>& including) const {
    std::vector<Guide> guides = guideList_;
    forEachComputedGuide(*this, including, [&](Orientation orientation, double location, bool intrinsic) {
        guides.push_back({PexId::newId("", "", true), orientation, location, intrinsic});
    });
    return guides;
}

std::vector<double> PexComposer::verticalGuides(const Layer& forLayer) const {
    return snapPositions(*this, forLayer, Orientation::vertical);
}

std::vector<double> PexComposer::horizontalGuides(const Layer& forLayer) const {
    return snapPositions(*this, forLayer, Orientation::horizontal);
}

std::optional<double> PexComposer::nearestVerticalGuide(const Layer& forLayer, double at, CGSize in) const {
    const std::vector<double> guides = verticalGuides(forLayer);
    if (guides.empty()) return std::nullopt;
    return snap(guides, forLayer, forLayer.imageActualNormalizedSize(*this).width, at, in);
}

std::optional<double> PexComposer::nearestHorizontalGuide(const Layer& forLayer, double at, CGSize in) const {
    const std::vector<double> guides = horizontalGuides(forLayer);
    if (guides.empty()) return std::nullopt;
    return snap(guides, forLayer, forLayer.imageActualNormalizedSize(*this).height, at, in);
}

} // namespace pex
