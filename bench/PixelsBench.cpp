// Whole-picture edits of a 12-megapixel picture, each beside a plain copy of as many pixels by the same
// number of threads in the same iteration: "of copy" is the share of the copy's bandwidth that the edit
// reaches with the bytes it reads and writes.
#include "peximage/pixels/PexImageBitmapRGBA.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/CGContext.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/Turning.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>

namespace pex {
namespace {

constexpr int width = 4000, height = 3000;
constexpr std::size_t pictureBytes = std::size_t{width} * height * 4;

template <class Work>
double secondsOf(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

PixelBuffer randomPixels() {
    const PixelBuffer pixels = PixelBuffer::make(pictureBytes);
    unsigned state = 1;
    for (std::size_t i = 0; i < pictureBytes; ++i)
        pixels.data()[i] = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
    return pixels;
}

CGImage randomPicture() {
    return *CGImage::make(width, height, width * 4, PixelLayout::premultipliedLast, CGColorSpace::sRGB(),
                          randomPixels());
}

/// `work` reads and writes `passes` times the picture's bytes.
template <class Work>
void besideCopy(benchmark::State& state, double passes, Work work) {
    const Workers::Limit threads(static_cast<int>(state.range(0)));
    const PixelBuffer from = randomPixels(), to = randomPixels();
    double worked = 0, copied = 0;
    for (auto _ : state) {
        const double seconds = secondsOf(work);
        worked += seconds;
        copied += secondsOf([&] {
            forEachStrip(height, [&](int begin, int end) {
                const std::size_t first = std::size_t{4} * width * begin;
                std::memcpy(to.data() + first, from.data() + first, std::size_t{4} * width * (end - begin));
            });
        });
        state.SetIterationTime(seconds);
    }
    state.counters["of copy"] = copied / worked * passes / 2;
    state.counters["copy ms"] = copied / static_cast<double>(state.iterations()) * 1000;
}

template <class Edit>
void editBitmap(benchmark::State& state, Edit edit) {
    PexImageBitmapRGBA bitmap(randomPicture());
    edit(bitmap);
    besideCopy(state, 2, [&] { edit(bitmap); });
}

void drawLayer(benchmark::State& state, double opacity) {
    const CGImage layer = randomPicture();
    const auto context =
        CGContext::make(width, height, PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    context->setAlpha(opacity);
    besideCopy(state, 3, [&] { context->draw(layer, {0, 0, width, height}); });
}

void turn(benchmark::State& state, Orientation orientation) {
    const CGImage picture = randomPicture();
    besideCopy(state, 2, [&] { benchmark::DoNotOptimize(turnedImage(picture, orientation)); });
}

void makeBitmap(benchmark::State& state) {
    const CGImage picture = randomPicture();
    besideCopy(state, 2, [&] { benchmark::DoNotOptimize(PexImageBitmapRGBA(picture)); });
}

template <class Run>
void add(const char* name, Run run) {
    benchmark::RegisterBenchmark(name, run)->ArgName("threads")->Arg(1)->Arg(2)->UseManualTime()->Unit(
        benchmark::kMillisecond);
}

using Bitmap = PexImageBitmapRGBA;

[[maybe_unused]] const bool registered = [] {
    const auto edit = [](const char* name, auto work) {
        add(name, [=](benchmark::State& state) { editBitmap(state, work); });
    };
    edit("pixels/fill", [](Bitmap& b) { b.fill(10, 20, 30); });
    edit("pixels/fillAlpha", [](Bitmap& b) { b.fillAlpha(); });
    edit("pixels/fillRect", [](Bitmap& b) {
        b.fillRect({Bitmap::Point(0, 0), Bitmap::Size(width, height)}, PexColor::pureWhite, false);
    });
    edit("pixels/fillTransparentPixelWithColor",
         [](Bitmap& b) { b.fillTransparentPixelWithColor(PexColor::pureWhite); });
    edit("pixels/lightGate", [](Bitmap& b) { b.lightGate(0.5); });
    edit("pixels/lightDarkGate", [](Bitmap& b) { b.lightDarkGate(0.5); });
    edit("pixels/key", [](Bitmap& b) { b.key(10, 20, 30, 60); });
    add("pixels/bitmap of an image", makeBitmap);
    add("pixels/source over", [](benchmark::State& state) { drawLayer(state, 1); });
    add("pixels/source over at 0.5", [](benchmark::State& state) { drawLayer(state, 0.5); });
    add("pixels/quarter turn", [](benchmark::State& state) { turn(state, Orientation::right); });
    add("pixels/half turn", [](benchmark::State& state) { turn(state, Orientation::down); });
    return true;
}();

} // namespace
} // namespace pex
