#include "peximage/canvas/PexCanvas.h"
#include "peximage/helpers/PexWatermark.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Workers.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>

namespace pex {
namespace {

/// Soft colours with some detail, premultiplied.
std::shared_ptr<PexImage> picture(int width, int height) {
    const std::ptrdiff_t row = std::ptrdiff_t{width} * 4;
    PixelBuffer pixels = PixelBuffer::make(static_cast<std::size_t>(row * height));
    for (int y = 0; y < height; ++y) {
        std::uint8_t* to = pixels.data() + y * row;
        for (int x = 0; x < width; ++x, to += 4) {
            to[0] = static_cast<std::uint8_t>(100 + 60 * std::sin(x * 0.02));
            to[1] = static_cast<std::uint8_t>(100 + 60 * std::cos(y * 0.03));
            to[2] = static_cast<std::uint8_t>((x * 7 + y * 13) & 127);
            to[3] = 200;
        }
    }
    return PexImage::make(*CGImage::make(width, height, row, PixelLayout::premultipliedLast,
                                         CGColorSpace::sRGB(), std::move(pixels)));
}

const std::shared_ptr<PexImage>& photo() {
    static const auto made = picture(4000, 3000);
    return made;
}

void copy(benchmark::State& state) {
    const PixelView from = *photo()->cgImage->pixels();
    const auto bytes = static_cast<std::size_t>(from.bytesPerRow) * static_cast<std::size_t>(from.height);
    const PixelBuffer to = PixelBuffer::make(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data, bytes);
        benchmark::ClobberMemory();
    }
}

template <class Work>
void onThreads(benchmark::State& state, Work work) {
    const Workers::Limit control(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(work());
}

void quarterTurn(benchmark::State& state) {
    onThreads(state, [] { return photo()->rotate(PexImage::RotationDirection::r90Clockwhise); });
}
void rotation(benchmark::State& state) {
    onThreads(state, [] { return photo()->rotate({.degrees = 10}); });
}
void straighten(benchmark::State& state) {
    onThreads(state, [] { return photo()->rotateAndZoom(3); });
}
void steepStraighten(benchmark::State& state) {
    onThreads(state, [] { return photo()->rotateAndZoom(80); });
}

void tiles(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(photo()->split({.to = {256, 256}}));
}

void tenLayers(benchmark::State& state) {
    static const auto layer = picture(1600, 1250);
    using Source = PexCanvasLayer::Source;
    onThreads(state, [] {
        PexCanvas canvas(PexCanvas::Size(1600, 1250));
        for (int i = 0; i < 10; ++i)
            canvas.layerList.emplace_back(
                PexCanvasLayer::newId(), PexCanvasLayer::LayerType::image,
                Source{.identification = Source::Identification::image, .image = layer},
                PexSpatialConforming::none, PexCanvasLayer::Transform{.opacity = 0.5});
        return canvas.getImage();
    });
}

void watermark(benchmark::State& state) {
    static const auto mark = picture(800, 300);
    onThreads(state, [] { return photo()->watermark(mark, {.opacity = 0.6}); });
}

BENCHMARK(copy)->Name("canvas/plain copy of 12 MP")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(tiles)->Name("canvas/split into 256 x 256")->Unit(benchmark::kMillisecond)->UseRealTime();

[[maybe_unused]] const auto registered = [] {
    const std::pair<const char*, void (*)(benchmark::State&)> jobs[] = {
        {"canvas/quarter turn, threads", quarterTurn},    {"canvas/rotate 10 degrees, threads", rotation},
        {"canvas/straighten 3, threads", straighten},     {"canvas/straighten 80, threads", steepStraighten},
        {"canvas/10 layers of 2 MP, threads", tenLayers}, {"canvas/watermark, threads", watermark}};
    for (const auto& [name, job] : jobs)
        benchmark::RegisterBenchmark(name, job)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
    return true;
}();

} // namespace
} // namespace pex
