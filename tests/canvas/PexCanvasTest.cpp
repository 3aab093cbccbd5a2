#include "peximage/canvas/PexCanvas.h"

#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace pex;

namespace {

const double infinity = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

const Pixel clear{0, 0, 0, 0}, red{255, 0, 0, 255}, blue{0, 0, 255, 255};

PexCanvasLayer layerOf(const std::shared_ptr<PexImage>& image, PexSpatialConforming conforming,
                       PexCanvasLayer::Transform transform = {}) {
    using Source = PexCanvasLayer::Source;
    return {PexCanvasLayer::newId(), PexCanvasLayer::LayerType::image,
            Source{.identification = Source::Identification::image, .image = image}, conforming, transform};
}

/// The rectangle of the pixels that are not `background`: "x y width height", y from the top.
std::string boxOf(const PexImage& image, Pixel background = clear) {
    int x0 = 1 << 30, y0 = x0, x1 = -1, y1 = -1;
    for (int y = 0; y < image.size.height; ++y) {
        for (int x = 0; x < image.size.width; ++x) {
            if (pixelAt(*image.cgImage, x, y) == background) continue;
            x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
        }
    }
    if (x1 < 0) return "none";
    return std::to_string(x0) + ' ' + std::to_string(y0) + ' ' + std::to_string(x1 - x0 + 1) + ' ' +
           std::to_string(y1 - y0 + 1);
}

TEST(PexCanvas, LayersAreSizedAndPlacedByTheFormulas) {
    using enum PexSpatialConforming;
    struct Case {
        PexSpatialConforming conforming;
        PexCanvasLayer::Transform transform;
        std::string box;
    };
    const Case cases[] = {
        {none, {}, "150 175 100 50"},
        {none, {.anchor = {9, 9}}, "150 175 100 50"},
        {none, {.position = {0, 0}}, "0 375 50 25"},
        {none, {.position = {1, 1}}, "350 0 50 25"},
        {fit, {}, "0 100 400 200"},
        {fit, {.position = {0.5, 0.25}, .scale = 0.5}, "100 250 200 100"},
        {fill, {}, "0 0 400 400"},
        {fill, {.scale = 1e7}, "0 0 400 400"},
        {none, {.scale = 0}, "none"},
        {none, {.scale = nan}, "none"},
        {none, {.position = {infinity, 0}}, "none"},
        {none, {.position = {40, 0.5}}, "none"},
        {fill, {.opacity = 0}, "none"},
    };
    onScreensOfOneAndTwo([&](double) {
        for (const Case& c : cases) {
            PexCanvas canvas(PexCanvas::Size(400, 400));
            canvas.layerList.push_back(layerOf(plain(100, 50, red), c.conforming, c.transform));
            const auto drawn = canvas.getImage();
            ASSERT_EQ(drawn->size, (CGSize{400, 400}));
            EXPECT_EQ(boxOf(*drawn), c.box) << c.transform.position.x << " " << c.transform.scale;
        }
    });
}

TEST(PexCanvas, LaterLayersCoverEarlierOnesAndEachPassDrawsAgain) {
    onScreensOfOneAndTwo([&](double scale) {
        PexCanvas canvas(PexCanvas::Size(8, 6));
        canvas.layerList = {layerOf(plain(4, 4, red), PexSpatialConforming::fill),
                            layerOf(plain(4, 4, blue), PexSpatialConforming::none)};
        const auto drawn = canvas.getImage();
        EXPECT_EQ(boxOf(*drawn, red), "2 1 4 4");
        PexCanvas tall(PexCanvas::Size(40, 40));
        tall.layerList = {layerOf(plain(10, 20, red), PexSpatialConforming::fit)};
        EXPECT_EQ(boxOf(*tall.getImage()), "10 0 20 40");
        EXPECT_EQ(pixelAt(*drawn->cgImage, 4, 3), blue);
        EXPECT_EQ(drawn->image->width(), 8 / scale);

        PexCanvas half(PexCanvas::Size(4, 4));
        half.layerList = {layerOf(plain(4, 4, red), PexSpatialConforming::none, {.opacity = 0.5})};
        const auto once = half.getImage();
        EXPECT_EQ(pixelAt(*once->cgImage, 1, 1), (Pixel{128, 0, 0, 128}));
        EXPECT_EQ(pixelAt(*half.getImage()->cgImage, 1, 1), (Pixel{192, 0, 0, 192}));
        EXPECT_EQ(pixelAt(*once->cgImage, 1, 1), (Pixel{128, 0, 0, 128})); // not changed by the second pass

        // One layer after the other gives what both at once give.
        const auto both = PexCanvasLayer::draw(canvas.layerList, PexImage::make({.size = {8, 6}}));
        const auto one = canvas.layerList[0].draw(PexImage::make({.size = {8, 6}}));
        const auto two = canvas.layerList[1].draw(one);
        expectPixels(*two->cgImage, [&](int x, int y) { return pixelAt(*both->cgImage, x, y); });
    });
}

TEST(PexCanvas, WithoutImagesOrRoomTheBlankImageStays) {
    PexCanvas empty(PexCanvas::Size(30, 20));
    const auto blank = empty.getImage();
    EXPECT_EQ(blank->size, (CGSize{30, 20}));
    empty.layerList.push_back(layerOf(nullptr, PexSpatialConforming::fill));
    EXPECT_EQ(empty.getImage(), blank); // no new image
    EXPECT_EQ(empty.layerList[0].draw(blank), blank);
    empty.layerList.push_back(layerOf(PexImage::make({.size = {0, 0}}), PexSpatialConforming::fit));
    EXPECT_EQ(boxOf(*empty.getImage()), "none"); // an image of no size

    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    for (const PexCanvas::Size size : {PexCanvas::Size(0, 5), {-3, 5}, {most, most}, {1 << 30, 1 << 30}}) {
        PexCanvas canvas(size);
        canvas.layerList.push_back(layerOf(plain(4, 4, red), PexSpatialConforming::fill));
        EXPECT_FALSE(canvas.getImage()->cgImage);
    }
    EXPECT_EQ(PexCanvas::Size(CGSize{3.9, -2.9}), PexCanvas::Size(3, -2));
    EXPECT_EQ(PexCanvas::Size(CGSize{nan, 1}).width, 0);
}

TEST(PexCanvas, FitPlacesTheImageInTheMiddleOfASquare) {
    onScreensOfOneAndTwo([&](double) {
        for (const double ratio : {1., 0., 7.}) {
            const auto wide = PexCanvas::fit(plain(300, 200, red), ratio);
            EXPECT_EQ(wide->size, (CGSize{300, 300}));
            EXPECT_EQ(boxOf(*wide), "0 50 300 200");
            EXPECT_EQ(boxOf(*PexCanvas::fit(plain(20, 40, red), ratio)), "10 0 20 40");
        }
        const auto picture = noise(31, 31, PixelLayout::premultipliedLast);
        const auto same = PexCanvas::fit(PexImage::make(picture), 1);
        expectPixels(*same->cgImage, [&](int x, int y) { return pixelAt(picture, x, y); });
    });
}

TEST(PexCanvas, DocumentsAreWrittenInOrderAndReadBack) {
    PexCanvas canvas(PexCanvas::Size(640, 480));
    canvas.layerList.push_back(
        layerOf(plain(2, 2, red), PexSpatialConforming::fit, {.anchor = {0, 1}, .opacity = 0.25}));
    canvas.layerList[0].id = "a";
    canvas.layerList[0].source = {.identification = PexCanvasLayer::Source::Identification::shareAppId,
                                  .url = URL::parse("file:///a%20b.png"),
                                  .shareAppId = "s"};
    const std::string text =
        R"({"size":{"width":640,"height":480},"layerList":[{"id":"a","type":"Image",)"
        R"("source":{"identification":"shareAppId","url":"file:///a%20b.png","shareAppId":"s"},)"
        R"("spatialConforming":"Fit","transform":{"anchor":[0,1],"position":[0.5,0.5],"scale":1,"opacity":0.25}}]})";
    EXPECT_EQ(encode(canvas), text);
    const auto read = decode<PexCanvas>(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(encode(*read), text);
    EXPECT_FALSE(read->layerList[0].image);
    EXPECT_FALSE(read->shareApp);
}

TEST(PexCanvas, ReadingForgivesFieldByField) {
    for (const char* size : {R"({"width":800})", R"({"width":800,"height":"6"})",
                             R"({"width":1.5,"height":6})", "null", "[1,2]"})
        EXPECT_EQ(decode<PexCanvas>(R"({"size":)" + std::string(size) + "}")->size, PexCanvas::Size(512, 512))
            << size;
    EXPECT_EQ(decode<PexCanvas>(R"({"size":{"width":-800,"height":0},"more":1})")->size,
              PexCanvas::Size(-800, 0));
    for (const char* list : {"[1, 2]", "null", R"([{"id":"a"}, 3])"})
        EXPECT_TRUE(decode<PexCanvas>(R"({"layerList":)" + std::string(list) + "}")->layerList.empty())
            << list;
    for (const char* text : {"", "[]", "null", R"({"size":1)"})
        EXPECT_FALSE(decode<PexCanvas>(text)) << text;
    EXPECT_EQ(decode<PexCanvas>(R"({"size":{"width":9,"height":8}})")->getImage()->size, (CGSize{9, 8}));
}

TEST(PexCanvas, LayersForgiveFieldsButPartsAreStrict) {
    const std::string good = R"({"anchor":[0,0],"position":[0,0],"scale":2,"opacity":0.5})";
    struct Case {
        std::string document; // of one layer
        PexCanvasLayer::Source::Identification identification;
        PexSpatialConforming conforming = PexSpatialConforming::fill;
        double scale = 1, x = 0.5;
    };
    using enum PexCanvasLayer::Source::Identification;
    const Case cases[] = {
        {R"("type":"Film","source":{"identification":"image"})", image},
        {R"("spatialConforming":"none")", url},
        {R"("spatialConforming":"None","transform":)" + good, url, PexSpatialConforming::none, 2, 0},
        {R"("transform":{"anchor":[0,0],"position":[0,0],"scale":2})", url},
        {R"("source":{"identification":"shareAppId","url":7})", url},
        {R"("source":{"identification":"shareAppId","url":null})", shareAppId},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.document);
        const auto layer = decode<PexCanvasLayer>(R"({"id":"b",)" + c.document + "}");
        ASSERT_TRUE(layer);
        EXPECT_EQ(layer->id, "b");
        EXPECT_EQ(layer->source.identification, c.identification);
        EXPECT_EQ(layer->spatialConforming, c.conforming);
        EXPECT_EQ(layer->transform.scale, c.scale);
        EXPECT_EQ(layer->transform.position.x, c.x);
    }
    const auto fresh = decode<PexCanvasLayer>("{}"), another = decode<PexCanvasLayer>(R"({"id":7})");
    EXPECT_NE(fresh->id.find("pexcl"), std::string::npos);
    EXPECT_NE(fresh->id, another->id);
    EXPECT_FALSE(decode<PexCanvasLayer>("[]"));
    EXPECT_EQ(displayName(PexSpatialConforming::fill), "Fill");
}

TEST(PexCanvas, LoadsLayersFromTheirSources) {
    const TempFolder folder;
    ASSERT_TRUE(plain(3, 2, red)->saveToPNG(folder.url("a.png")));
    const PexShareApp store(folder.url("store"));
    const auto shared = store.ingestAndGetId({.fileAtUrl = folder.url("a.png")}).get();
    ASSERT_TRUE(shared);
    using Source = PexCanvasLayer::Source;
    using enum Source::Identification;
    const auto held = plain(9, 9, blue);
    struct Case {
        Source source;
        bool loads, needsStore;
    };
    const Case cases[] = {{{.identification = url, .url = folder.url("a.png")}, true, false},
                          {{.identification = url, .url = folder.url("none.png")}, false, false},
                          {{.identification = url, .shareAppId = shared}, false, false},
                          {{.identification = shareAppId, .shareAppId = shared}, true, true},
                          {{.identification = shareAppId, .url = folder.url("a.png")}, false, false},
                          {{.identification = shareAppId, .shareAppId = "../a.png"}, false, false},
                          {{.identification = image, .url = folder.url("a.png")}, false, false},
                          {{.identification = url, .url = folder.url("a.png"), .image = held}, true, false}};
    for (const bool hasStore : {true, false}) {
        PexCanvas canvas(PexCanvas::Size(4, 4), hasStore ? std::optional(store) : std::nullopt);
        for (const Case& c : cases)
            canvas.layerList.emplace_back("x", PexCanvasLayer::LayerType::image, c.source,
                                          PexSpatialConforming::fill, PexCanvasLayer::Transform{});
        canvas.loadAllLayers().get();
        for (std::size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(canvas.layerList[i].image != nullptr,
                      cases[i].loads && (hasStore || !cases[i].needsStore))
                << i;
        EXPECT_EQ(canvas.layerList.back().image, held);
        EXPECT_EQ(canvas.getImage()->size, (CGSize{4, 4}));
    }
    PexCanvas(PexCanvas::Size(1, 1)).loadAllLayers().get();
}

TEST(FitAndFill, BoxesShowTheWholeImageOrItsMiddle) {
    onScreensOfOneAndTwo([&](double scale) {
        const auto wide = plain(400, 200, red);
        const auto fitted = wide->resizeWithFit({200, 200}), filled = wide->resizeWithFill({200, 200});
        EXPECT_EQ(fitted->size, (CGSize{200 * scale, 200 * scale}));
        EXPECT_EQ(boxOf(*filled), scale == 1 ? "0 0 200 200" : "0 0 400 400");
        // Where the box has more pixels than the canvas, resampling softens six at the band's edges.
        const int band = static_cast<int>(50 * scale);
        for (const int y : {0, band - 7, 4 * band - 1})
            EXPECT_EQ(pixelAt(*fitted->cgImage, 9, y), clear) << y;
        for (const int y : {band + 6, 3 * band - 7})
            EXPECT_EQ(pixelAt(*fitted->cgImage, 9, y), red) << y;

        const auto middle = PexImage::make(makePicture(400, 200, PixelLayout::skipLast, [](int x, int) {
            return x >= 100 && x < 300 ? Pixel{0, 255, 0, 255} : Pixel{255, 0, 0, 255};
        }));
        EXPECT_EQ(boxOf(*middle->resizeWithFill({200, 200}), Pixel{0, 255, 0, 255}), "none");
        for (const CGSize size : {CGSize{0, 5}, {-3, 5}, {nan, 5}, {infinity, 5}, {1e9, 1e9}, {0.4, 9}}) {
            EXPECT_FALSE(wide->resizeWithFit(size)) << size.width;
            EXPECT_FALSE(wide->resizeWithFill(size)) << size.width;
        }
        EXPECT_FALSE(PexImage::make({.size = {5, 5}})->resizeWithFit({9, 9}));
    });
}

TEST(Join, PutsImagesSideBySide) {
    using enum PexImage::JoinOrientation;
    using enum PexImage::ScaleMode;
    struct Case {
        PexImage::JoinOrientation orientation;
        PexImage::ScaleMode mode;
        CGSize size;
        std::string boxOfSecond;
    };
    const Case cases[] = {{horizontal, min, {150, 50}, "100 0 50 50"},
                          {horizontal, max, {600, 200}, "400 0 200 200"},
                          {vertical, min, {100, 150}, "0 50 100 100"},
                          {vertical, max, {200, 300}, "0 100 200 200"}};
    onScreensOfOneAndTwo([&](double) {
        const auto a = plain(100, 50, red), b = plain(200, 200, blue);
        for (const Case& c : cases) {
            const auto joined =
                PexImage::join(a, {.with = b, .orientation = c.orientation, .scaleMode = c.mode});
            EXPECT_EQ(joined->size, c.size);
            EXPECT_EQ(boxOf(*joined, red), c.boxOfSecond);
        }
        const auto odd = PexImage::join(plain(33, 7, red), {.with = plain(10, 7, blue)});
        EXPECT_EQ(boxOf(*odd, red), "33 0 10 7");
        EXPECT_TRUE(PexImage::join(PexImage::make({.size = {0, 0}}), {.with = b}));
    });
}

} // namespace
