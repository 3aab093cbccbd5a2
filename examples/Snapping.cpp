// Drags a picture across a canvas, prints each snap to a guide, and draws the way it took into a PNG:
// grey the guides, blue where the mouse was, red where the picture's centre snapped to.
// Usage: snapping [RESULT.png]
#include "peximage/composer/PexComposer.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/raster/CGContext.h"

#include <cmath>
#include <cstdio>
#include <memory>

using namespace pex;

namespace {

constexpr CGSize canvas{960, 540};

const char* const page = R"({"id": "page", "name": "Page", "ratio": 1.7777777777777777, "guideList_": [],
  "bgColor": {"red": 1, "green": 1, "blue": 1, "alpha": 1}, "shouldBeDeleted": false, "layerList": [
    {"id": "photo", "layerType": "image",
     "image": {"type": "url", "ratio": 1.7777777777777777, "resourceAccess": {}},
     "shape": {"type": "rectangle", "style": {"strokeWidth": 0, "fill": true, "fillStyle": "color",
               "fillColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1}}}, "text": {},
     "transform": {"location": [0.2, 0.1], "scale": {"x": 0.2, "y": 0.2}, "rotation": 0, "opacity": 1}},
    {"id": "caption", "layerType": "text", "image": {"type": "url", "ratio": 1, "resourceAccess": {}},
     "shape": {"type": "rectangle", "style": {"strokeWidth": 0, "fill": true, "fillStyle": "color",
               "fillColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1}}}, "text": {"text": "Caption"},
     "transform": {"location": [-0.15, -0.1], "scale": {"x": 1, "y": 1}, "rotation": 0, "opacity": 1}}]})";

/// Fills a rectangle of that size in pixels around a normalized point.
void mark(CGContext& context, CGPoint at, double width, double height, const CGColor& color) {
    const CGPoint p = PexComposer::deNormalize(at, canvas) + CGPoint{canvas.width / 2, canvas.height / 2};
    context.setFillColor(color);
    context.fill({{p.x - width / 2, p.y - height / 2}, {width, height}});
}

} // namespace

int main(int argc, char** argv) {
    diagnostics::setSink({});
    const auto composer = decode<PexComposer>(page);
    const auto context = CGContext::make(960, 540, PixelLayout::skipLast, CGColorSpace::sRGB());
    if (!composer || !context) return 1;
    const PexComposer::Layer& photo = composer->layerList[0];

    mark(*context, {}, canvas.width, canvas.height, {1, 1, 1, 1});
    for (const auto& guide : composer->guideList({0.0, 0.05})) {
        const bool vertical = guide.orientation == PexComposer::Guide::Orientation::vertical;
        if (vertical)
            mark(*context, {guide.location, 0}, 1, canvas.height, {0.7, 0.7, 0.7, 1});
        else
            mark(*context, {0, guide.location}, canvas.width, 1, {0.7, 0.7, 0.7, 1});
    }

    CGPoint last{NAN, NAN};
    for (int step = 0; step <= 400; ++step) {
        const double t = step / 400.0;
        const CGPoint mouse{t * 0.8 - 0.4, 0.2 * std::sin(t * 6.28)};
        const auto x = composer->nearestVerticalGuide(photo, mouse.x, canvas);
        const auto y = composer->nearestHorizontalGuide(photo, mouse.y, canvas);
        const CGPoint centre{x.value_or(mouse.x), y.value_or(mouse.y)};
        mark(*context, mouse, 3, 3, {0.1, 0.3, 0.9, 1});
        if (x || y) mark(*context, centre, 5, 5, {0.9, 0.1, 0.1, 1});
        if (x && !(std::abs(*x - last.x) < 1e-9))
            std::printf("at (%6.3f, %6.3f) snaps to x = %.4f\n", mouse.x, mouse.y, *x);
        if (y && !(std::abs(*y - last.y) < 1e-9))
            std::printf("at (%6.3f, %6.3f) snaps to y = %.4f\n", mouse.x, mouse.y, *y);
        last = {x.value_or(NAN), y.value_or(NAN)};
    }

    const auto picture = context->makeImage();
    const auto result = URL::fromPath(argc > 1 ? argv[1] : "snapping.png");
    return picture && PexImage::make(*picture)->saveToPNG(result) ? 0 : 1;
}
