#include "peximage/pixels/PexImageBitmapRGBA.h"

#include "peximage/pixels/PexContextImage.h"
#include "peximage/platform/varda/PerfAn.h"
#include "tests/platform/raster/kernels/EveryInstructionSet.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"

#include <algorithm>
#include <cmath>
#include <limits>

using namespace pex;

namespace {

using Bitmap = PexImageBitmapRGBA;
using Channel = std::uint8_t;
using Components = PexContextImage::Components;

const double inf = std::numeric_limits<double>::infinity();
constexpr auto huge = std::numeric_limits<std::int64_t>::max(),
               low = std::numeric_limits<std::int64_t>::min();

Bytes bytesOf(const Bitmap& bitmap) { return {bitmap.bytes().begin(), bitmap.bytes().end()}; }

/// Random pixels, also such that no premultiplied picture has; few alphas, so that 0 is among them.
Bitmap randomBitmap(int width, int height) {
    Bitmap bitmap(noise(width, height, PixelLayout::skipLast));
    unsigned state = 3;
    for (std::size_t i = 0; i < bitmap.bytes().size(); i += 4)
        bitmap.writableBytes()[i] = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 30);
    if (width * height > 1) {
        std::fill_n(bitmap.writableBytes().begin(), 4, Channel{0}); // and the darkest and the lightest
        std::fill_n(bitmap.writableBytes().begin() + 4, 4, Channel{255});
    }
    return bitmap;
}

TEST(PexImageBitmapRGBA, BeginsTransparentOrBlackAndSaysSo) {
    CapturedLines captured;
    EXPECT_EQ(bytesOf(Bitmap(2, 1, true)), (Bytes{255, 0, 0, 0, 255, 0, 0, 0}));
    EXPECT_EQ(bytesOf(Bitmap(1, 2, false)), Bytes(8, 0));
    EXPECT_EQ(captured.lines,
              (std::vector<std::string>{"PexImageBitmapRGBA.init (width: 2, height: 1, fillBlack: true",
                                        "PexImageBitmapRGBA.init (width: 1, height: 2, fillBlack: false"}));
}

TEST(PexImageBitmapRGBA, SinglePixelsFromTheTopAndFromTheBottom) {
    CapturedLines captured;
    Bitmap bitmap(1, 2, false);
    bitmap.setPixel({.x = 0, .y = 0, .r = 1, .g = 2, .b = 3, .a = 4, .invertedY = false});
    EXPECT_EQ(bytesOf(bitmap), (Bytes{4, 1, 2, 3, 0, 0, 0, 0}));
    bitmap.setPixel({.x = 0, .y = 0, .color = PexColor(1, 0.5, 0, 0.25), .invertedY = true});
    EXPECT_EQ(bytesOf(bitmap), (Bytes{4, 1, 2, 3, 64, 255, 128, 0}));
    bitmap.setPixelAlpha({.x = 0, .y = 0, .alpha = 9});
    bitmap.setPixelAlpha({.x = 0, .y = 0, .alpha = 8, .invertedY = false});
    EXPECT_EQ(bytesOf(bitmap), (Bytes{8, 1, 2, 3, 9, 255, 128, 0}));
    bitmap.setPixel({.x = 0, .y = 1, .color = PexColor255(255, 255, 254, 0), .invertedY = true});

    EXPECT_EQ(bitmap.getPixelAlpha(0, 1, false), 9);
    EXPECT_EQ(bitmap.getPixelAlpha(0, 0, true), 9);
    EXPECT_EQ(bitmap.getPixelPexColor255(0, 0, false), PexColor255(255, 255, 254, 0));
    EXPECT_EQ(bitmap.getPixelColor(0, 0, false), PexColor({.intRed = 255, .green = 255, .blue = 254}));
    EXPECT_EQ(bitmap.getPixelLuminance(0, 0, false), 254);
    bitmap.setPixel({.x = 0, .y = 0, .r = 1, .g = 1, .b = 0, .a = 255, .invertedY = false});
    EXPECT_EQ(bitmap.getPixelLuminance(0, 0, false), 0);
}

TEST(PexImageBitmapRGBA, OutsideReadsZeroAndWritesNothing) {
    CapturedLines captured;
    Bitmap bitmap(3, 2, true);
    const Bytes before = bytesOf(bitmap);
    const std::pair<std::int64_t, std::int64_t> places[] = {{-1, 0},   {3, 0},    {0, -1},      {0, 2},
                                                            {huge, 0}, {0, huge}, {huge, huge}, {low, low}};
    for (const bool inverted : {false, true}) {
        for (const auto& [x, y] : places) {
            bitmap.setPixel({.x = x, .y = y, .r = 9, .g = 9, .b = 9, .a = 9, .invertedY = inverted});
            bitmap.setPixel({.x = x, .y = y, .color = PexColor::pureWhite, .invertedY = inverted});
            bitmap.setPixelAlpha({.x = x, .y = y, .alpha = 9, .invertedY = inverted});
            EXPECT_EQ(bitmap.getPixelAlpha(x, y, inverted), 0);
            EXPECT_EQ(bitmap.getPixelPexColor255(x, y, inverted), PexColor255());
        }
    }
    EXPECT_EQ(bytesOf(bitmap), before);

    // Sides set beyond the buffer.
    bitmap.width = huge;
    bitmap.height = huge;
    EXPECT_EQ(bitmap.getPixelAlpha(5, 0, false), 255);
    for (const auto& [x, y] : {std::pair<std::int64_t, std::int64_t>{6, 0}, {0, 1}, {huge - 1, huge - 1}}) {
        bitmap.setPixelAlpha({.x = x, .y = y, .alpha = 9, .invertedY = false});
        EXPECT_EQ(bitmap.getPixelAlpha(x, y, false), 0);
    }
    bitmap.fillRect({Bitmap::Point(0, 0), Bitmap::Size(huge, huge)}, PexColor::pureWhite, true);
    EXPECT_EQ(bytesOf(bitmap), before);
    EXPECT_FALSE(bitmap.cgImage());
}

TEST(PexImageBitmapRGBA, CopiesAndImagesAreIndependent) {
    CapturedLines captured;
    Bitmap first(2, 2, true);
    const auto image = first.cgImage();
    Bitmap second = first;
    second.setPixelAlpha({.x = 0, .y = 0, .alpha = 1, .invertedY = false});
    first.fill(5, 6, 7);
    EXPECT_EQ(second.getPixelPexColor255(0, 0, false), PexColor255(0, 0, 0, 1));
    EXPECT_EQ(first.getPixelPexColor255(0, 0, false), PexColor255(5, 6, 7, 255));
    EXPECT_EQ(pixelAt(*image, 0, 0), (Pixel{255, 0, 0, 0}));
    EXPECT_EQ(image->layout(), PixelLayout::premultipliedFirst);
    EXPECT_EQ(first.pexImage()->size, (CGSize{2, 2}));
}

/// R G B A of every pixel.
template <class Wanted>
void expectColours(const Bitmap& bitmap, bool inverted, Wanted wanted) {
    for (std::int64_t i = 0; i < bitmap.width * bitmap.height; ++i) {
        const int x = int(i % bitmap.width), y = int(i / bitmap.width);
        const Pixel p = wanted(x, y);
        ASSERT_EQ(bitmap.getPixelPexColor255(x, y, inverted), PexColor255(p[0], p[1], p[2], p[3]))
            << x << ' ' << y;
    }
}

TEST(PexImageBitmapRGBA, FromImagesAndContexts) {
    const CGImage picture = noise(21, 13, PixelLayout::premultipliedLast);
    const Bitmap fromBitmap(picture), fromImage(*PexImage::make(picture));
    const Bitmap mirrored(*PexContextImage::make(picture));
    expectColours(fromBitmap, false, [&](int x, int y) { return pixelAt(picture, x, y); });
    expectColours(mirrored, true, [&](int x, int y) { return pixelAt(picture, x, y); });
    EXPECT_EQ(bytesOf(fromImage), bytesOf(fromBitmap));

    // At the image's size, not that of its pixels.
    const auto smaller = PexImage::make(picture);
    smaller->size = {10.9, 5.2};
    const auto context = PexContextImage::make(smaller);
    const Bitmap scaled(*smaller), scaledMirrored(*context);
    EXPECT_EQ(std::pair(scaled.width, scaled.height), std::pair(std::int64_t{10}, std::int64_t{5}));
    const auto drawn = [&](int x, int y) {
        const auto [r, g, b, a] = context->getPixelColorComponents(x, y);
        return Pixel{r, g, b, a};
    };
    expectColours(scaled, false, drawn);
    expectColours(scaledMirrored, true, drawn);

    context->size = {12, 3}; // larger than what was drawn, and smaller
    const Bitmap other(*context);
    EXPECT_EQ(bytesOf(other).size(), 12u * 3 * 4);
    EXPECT_EQ(other.getPixelPexColor255(9, 0, true), scaled.getPixelPexColor255(9, 0, false));
    EXPECT_EQ(other.getPixelPexColor255(10, 0, true), PexColor255());
    const Bitmap blank(*PexImage::make({.notBakedNormalizedSize = {4, 3}}));
    EXPECT_EQ(bytesOf(blank), Bytes(48, 0));
}

TEST(PexImageBitmapRGBA, RectanglesTruncate) {
    using Rect = Bitmap::Rect;
    const Rect wanted(Bitmap::Point(-1, 2), Bitmap::Size(3, 0));
    EXPECT_EQ(Rect(CGRect(-1.9, 2.9, 3.5, 0.99)), wanted);
    EXPECT_EQ(Rect(CGPoint{-1.9, 2.9}, CGSize{3.5, -0.99}), wanted);
    EXPECT_EQ(Bitmap::Point(CGPoint{std::nan(""), 1e300}).x, 0);
    EXPECT_GT(Bitmap::Point(CGPoint{std::nan(""), 1e300}).y, std::int64_t{1} << 62);
}

/// Applies `edit(a, r, g, b)` to every pixel of a copy of the bytes.
template <class Edit>
Bytes edited(Bytes bytes, Edit edit) {
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        edit(bytes[i], bytes[i + 1], bytes[i + 2], bytes[i + 3]);
    return bytes;
}

/// Runs the operation on bitmaps of several sizes, one of them cut into many strips, on each instruction set.
template <class Operation, class Edit>
void expectEdits(Operation operation, Edit edit) {
    for (const CGSize size : {CGSize{1, 1}, CGSize{7, 5}, CGSize{613, 411}}) {
        const Bitmap original = randomBitmap(int(size.width), int(size.height));
        const Bytes wanted = edited(bytesOf(original), edit);
        kernels::onEveryInstructionSet([&] {
            Bitmap bitmap = original;
            operation(bitmap);
            EXPECT_EQ(bytesOf(bitmap), wanted) << size.width;
        });
    }
}

TEST(PexImageBitmapRGBA, FillsTheWholeBuffer) {
    expectEdits([](Bitmap& b) { b.fill(1, 2, 3); },
                [](Channel&, Channel& r, Channel& g, Channel& b) { r = 1, g = 2, b = 3; });
    expectEdits([](Bitmap& b) { b.fillAlpha(); }, [](Channel& a, Channel&, Channel&, Channel&) { a = 255; });
    expectEdits([](Bitmap& b) { b.fillTransparentPixelWithColor(PexColor(1, 0.5, 0, 0.25)); },
                [](Channel& a, Channel& r, Channel& g, Channel& b) {
                    if (a == 0) a = 64, r = 255, g = 128, b = 0;
                });
}

TEST(PexImageBitmapRGBA, GatesByLuminance) {
    const std::pair<double, int> cases[] = {{0.5, 382}, {0, 0}, {1, 765}, {0.333, 254}, {-2, -1}, {inf, 766}};
    for (const auto& [threshold, limit] : cases) {
        SCOPED_TRACE(threshold);
        const auto gated = [&, threshold = threshold, limit = limit](auto gate, auto colour) {
            expectEdits([&, threshold = threshold](Bitmap& b) { (b.*gate)(threshold); },
                        [&](Channel&, Channel& r, Channel& g, Channel& b) {
                            const int light = r + g + b;
                            r = colour(light<limit, light> limit, r);
                            g = colour(light<limit, light> limit, g);
                            b = colour(light<limit, light> limit, b);
                        });
        };
        gated(&Bitmap::lightGate, [](bool below, bool, int own) { return Channel(below ? 0 : own); });
        gated(&Bitmap::darkGate, [](bool, bool above, int own) { return Channel(above ? 255 : own); });
        gated(&Bitmap::lightDarkGate, [](bool below, bool, int) { return Channel(below ? 0 : 255); });
    }
    const auto nothing = [](Channel&, Channel&, Channel&, Channel&) {};
    expectEdits([](Bitmap& b) { b.lightDarkGate(std::nan("")); }, nothing);
}

TEST(PexImageBitmapRGBA, KeysByDistance) {
    // Some pixels lie just as far as the root, the square of which is rounded to less.
    for (const double tolerance : {50.0, std::sqrt(12206), 1e300, -1.0, std::nan("")}) {
        SCOPED_TRACE(tolerance);
        expectEdits([&](Bitmap& b) { b.key(200, 20, 130, tolerance); },
                    [&](Channel& a, Channel& r, Channel& g, Channel& b) {
                        const int square =
                            (r - 200) * (r - 200) + (g - 20) * (g - 20) + (b - 130) * (b - 130);
                        if (std::sqrt(square) <= tolerance) a = 0;
                    });
    }
}

TEST(PexImageBitmapRGBA, FillsTheVisiblePartOfARectangle) {
    using Four = std::array<std::int64_t, 4>;
    const Four rects[] = {
        {2, 1, 3, 2},  {5, 3, 100, 100},         {0, 0, huge, huge},   {8, 6, 1, 1},           {-2, -3, 5, 5},
        {1, 1, -1, 4}, {huge, huge, huge, huge}, {low, low, low, low}, {low, low, huge, huge}, {1, 1, 0, 3}};
    const Bitmap original = randomBitmap(8, 6);
    for (const auto& [x, y, width, height] : rects) {
        for (const bool inverted : {false, true}) {
            Bytes wanted = bytesOf(original);
            for (int row = 0; row < 6; ++row) {
                for (int column = 0; column < 8; ++column) {
                    const int at = inverted ? 5 - row : row;
                    const double right = double(x) + double(width), bottom = double(y) + double(height);
                    if (column < x || column >= right || at < y || at >= bottom) continue;
                    const Bytes pixel{64, 255, 128, 0};
                    std::ranges::copy(pixel, wanted.begin() + (row * 8 + column) * 4);
                }
            }
            kernels::onEveryInstructionSet([&, x = x, y = y, width = width, height = height] {
                Bitmap bitmap = original;
                bitmap.fillRect({Bitmap::Point(x, y), Bitmap::Size(width, height)}, PexColor(1, 0.5, 0, 0.25),
                                inverted);
                EXPECT_EQ(bytesOf(bitmap), wanted) << x << ' ' << y << ' ' << width << ' ' << height;
            });
        }
    }
    PerfAn::reset();
    Bitmap(original).fillRect({}, {}, false);
    ASSERT_EQ(PerfAn::measures().size(), 1u);
    EXPECT_EQ(PerfAn::measures()[0].label, "PexImageBitmap.fillRect ()");
}

TEST(PexImageBitmapRGBA, WithoutPixels) {
    CapturedLines captured;
    using Sides = std::pair<std::int64_t, std::int64_t>;
    for (const auto& [width, height] :
         {Sides{0, 5}, {5, 0}, {-2, -3}, {huge, huge}, {1 << 20, 1 << 20}, {huge, 1}}) {
        Bitmap bitmap(width, height, true);
        bitmap.fill(1, 2, 3);
        bitmap.fillAlpha();
        bitmap.fillRect({Bitmap::Point(0, 0), Bitmap::Size(9, 9)}, PexColor::pureWhite, false);
        bitmap.fillTransparentPixelWithColor(PexColor::pureWhite);
        bitmap.lightDarkGate(0.5);
        bitmap.key(0, 0, 0, 500);
        bitmap.setPixelAlpha({.x = 0, .y = 0, .alpha = 1});
        EXPECT_EQ(bitmap.bytes().size(), 0u);
        EXPECT_FALSE(bitmap.cgImage());
        EXPECT_FALSE(bitmap.pexImage());
    }
}

/// The picture drawn over an empty context, the long way.
CGImage drawn(const CGImage& picture, int width, int height) {
    const auto context =
        CGContext::make(width, height, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->draw(picture, {0, 0, double(width), double(height)});
    return *context->makeImage();
}

TEST(PexContextImage, HoldsWhatDrawingGives) {
    using enum PixelLayout;
    for (const PixelLayout layout :
         {premultipliedLast, premultipliedFirst, straightLast, straightFirst, skipLast, skipFirst, grey}) {
        SCOPED_TRACE(int(layout));
        const CGImage picture = noise(37, 21, layout);
        for (const CGSize size : {CGSize{37, 21}, CGSize{10.9, 5.2}, CGSize{50, 40}}) {
            const auto image = PexContextImage::make(PexImage::make(picture), {.size = size});
            EXPECT_EQ(image->width, std::trunc(size.width));
            EXPECT_EQ(image->height, std::trunc(size.height));
            expectPixels(drawn(picture, int(size.width), int(size.height)), [&](int x, int y) {
                const auto [r, g, b, a] = image->getPixelColorComponents(x, y);
                EXPECT_EQ(image->getPixelColor(x, y), NSColor(r / 255.0, g / 255.0, b / 255.0, a / 255.0));
                EXPECT_EQ(image->getPixelAlpha(x, y), a / 255.0);
                return Pixel{r, g, b, a};
            });
        }
        EXPECT_EQ(PexContextImage::make(picture)->image->size, (CGSize{37, 21}));
    }
}

TEST(PexContextImage, EmptyContextShowsWhatIsDrawnLater) {
    const auto image = PexContextImage::make({.size = {3, 2}});
    EXPECT_FALSE(image->image);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(image->getPixelColorComponents(i % 3, i / 3), Components{});

    ASSERT_TRUE(image->context);
    image->context->setFillColor({0, 1, 0, 1});
    image->context->fill({2, 1, 1, 1}); // its upper right pixel: y goes upward there
    EXPECT_EQ(image->getPixelColorComponents(2, 0), (Components{0, 255, 0, 255}));
    EXPECT_EQ(image->getPixelColorComponents(2, 1), Components{});

    // A picture of it stays as it is; drawing goes on in the same memory.
    const auto before = image->context->makeImage();
    image->context->fill({0, 0, 3, 2});
    EXPECT_EQ(image->getPixelColorComponents(0, 1), (Components{0, 255, 0, 255}));
    EXPECT_EQ(pixelAt(*before, 0, 1), (Pixel{0, 0, 0, 0}));

    image->size = {100, 100}; // changes neither the memory nor what is read
    EXPECT_EQ(image->getPixelColorComponents(50, 50), Components{});
    EXPECT_EQ(image->getPixelAlpha(0, 1), 1);
}

TEST(PexContextImage, OddSizesAndImagesWithoutPixels) {
    for (const CGSize size : {CGSize{0, 5}, CGSize{-3, -4}, CGSize{std::nan(""), 2}, CGSize{inf, inf},
                              CGSize{1e9, 1e9}, CGSize{0.9, 10}, CGSize{3e9, 1}}) {
        const auto image = PexContextImage::make({.size = size});
        EXPECT_FALSE(image->context);
        EXPECT_EQ(image->bitmap.size(), 0u);
        EXPECT_EQ(image->getPixelAlpha(0, 0), 0);
        EXPECT_EQ(PexContextImage::make(plain(2, 1, {}), {.size = size})->bitmap.size(), 0u);
    }
    const auto blank = PexContextImage::make(PexImage::make({.notBakedNormalizedSize = {4, 3}}));
    EXPECT_EQ(blank->bitmap.size(), 48u);
    EXPECT_EQ(blank->getPixelColorComponents(3, 2), Components{});
    EXPECT_EQ(PexContextImage::make(std::shared_ptr<PexImage>())->width, 0);

    const auto image = PexContextImage::make(plain(2, 1, {9, 9, 9, 255}));
    for (const auto& [x, y] : {std::pair{-1, 0}, {2, 0}, {0, -1}, {0, 1}})
        EXPECT_EQ(image->getPixelColorComponents(x, y), Components{});
}

TEST(PexContextImage, VeryWideImages) {
    const int width = 200'000;
    const auto picture = makePicture(width, 1, PixelLayout::skipLast, [](int x, int) {
        return Pixel{std::uint8_t(x % 251), 0, 0, 0};
    });
    EXPECT_EQ(PexContextImage::make(picture)->getPixelColorComponents(199'999, 0).r, 199'999 % 251);
    EXPECT_EQ(pixelAt(drawn(picture, width, 1), 199'999, 0)[0], 199'999 % 251);
}

} // namespace
