#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/Resampler.h"
#include "peximage/platform/raster/ResamplerStream.h"
#include "peximage/platform/raster/kernels/InstructionSet.h"
#include "peximage/platform/raster/kernels/OrientRows.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace pex {
namespace {

struct Sizes {
    int fromWidth, fromHeight, toWidth, toHeight;
};

MutablePixelView makePicture(PixelBuffer& memory, int width, int height, PixelLayout layout) {
    const std::ptrdiff_t row = std::ptrdiff_t{width} * bytesPerPixel(layout);
    memory = PixelBuffer::make(row * height);
    unsigned state = 1;
    for (std::ptrdiff_t i = 0; i < row * height; ++i) {
        state = state * 1664525 + 1013904223;
        memory.data()[i] = static_cast<std::uint8_t>(state >> 24);
    }
    return {memory.data(), width, height, row, layout};
}

void whole(benchmark::State& state, Sizes sizes, kernels::InstructionSet set, int threads,
           PixelLayout layout) {
    const Workers::Limit control(threads);
    kernels::setInstructionSet(set);
    PixelBuffer fromMemory, toMemory;
    const auto from = makePicture(fromMemory, sizes.fromWidth, sizes.fromHeight, layout);
    const auto to = makePicture(toMemory, sizes.toWidth, sizes.toHeight, layout);
    for (auto _ : state) {
        const auto resampler =
            Resampler::make(sizes.fromWidth, sizes.fromHeight, sizes.toWidth, sizes.toHeight, layout);
        resampler->resample(from, to);
    }
}

/// As a decoder would use it; the copy into the stream stands for decoding.
void streamed(benchmark::State& state, Sizes sizes, int threads) {
    const Workers::Limit control(threads);
    const auto layout = PixelLayout::skipLast;
    PixelBuffer fromMemory, toMemory;
    const auto from = makePicture(fromMemory, sizes.fromWidth, sizes.fromHeight, layout);
    const auto to = makePicture(toMemory, sizes.toWidth, sizes.toHeight, layout);
    const auto resampler =
        Resampler::make(sizes.fromWidth, sizes.fromHeight, sizes.toWidth, sizes.toHeight, layout);
    for (auto _ : state) {
        auto stream = ResamplerStream::make(*resampler, to);
        for (int y = 0; stream->rowsLeft() > 0;) {
            const MutablePixelView room = stream->room();
            for (int r = 0; r < room.height; ++r, ++y)
                std::memcpy(room.row(r), from.row(y), from.bytesPerRow);
            stream->commit(room.height);
        }
    }
}

void turned(benchmark::State& state, Orientation orientation) {
    PixelBuffer fromMemory, toMemory;
    const auto from = makePicture(fromMemory, 4000, 3000, PixelLayout::skipLast);
    const bool swaps = swapsSides(orientation);
    const auto to = makePicture(toMemory, swaps ? 3000 : 4000, swaps ? 4000 : 3000, PixelLayout::skipLast);
    for (auto _ : state)
        kernels::orientRows(from, 0, orientation, to);
}

void copied(benchmark::State& state) {
    PixelBuffer fromMemory, toMemory;
    const auto from = makePicture(fromMemory, 4000, 3000, PixelLayout::skipLast);
    const auto to = makePicture(toMemory, 4000, 3000, PixelLayout::skipLast);
    for (auto _ : state) {
        std::memcpy(to.data, from.data, fromMemory.size());
        benchmark::ClobberMemory();
    }
}

void registerAll() {
    constexpr std::array pairs = {Sizes{4000, 3000, 2000, 1500}, Sizes{4000, 3000, 500, 375},
                                  Sizes{1000, 750, 2000, 1500}};
    constexpr std::array names = {"scalar", "sse4", "avx2", "avx512", "avx512 vnni", "neon"};
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    for (const Sizes s : pairs) {
        const std::string name = fmt::format("{} to {}", s.fromWidth, s.toWidth);
        for (const int threads : {1, 2}) {
            for (const auto set : kernels::availableInstructionSets()) {
                for (const auto layout : {PixelLayout::premultipliedLast, PixelLayout::grey}) {
                    const bool grey = layout == PixelLayout::grey;
                    add(fmt::format("resample{}/{}/{}/threads {}", grey ? " grey" : "", name, names[int(set)],
                                    threads),
                        [=](benchmark::State& state) { whole(state, s, set, threads, layout); });
                }
            }
            add(fmt::format("stream/{}/threads {}", name, threads),
                [=](benchmark::State& state) { streamed(state, s, threads); });
        }
    }
    add("turn/right", [](benchmark::State& state) { turned(state, Orientation::right); });
    add("turn/mirror", [](benchmark::State& state) { turned(state, Orientation::upMirrored); });
    add("turn/plain copy", copied);
}

} // namespace
} // namespace pex

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    pex::registerAll();
    benchmark::RunSpecifiedBenchmarks();
}
