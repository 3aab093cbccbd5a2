// The byte-budget search with everything it needs, from pixels to the bytes of the file, beside one plain
// encoding by libjpeg-turbo at the quality found. Counter `ratio`: times one such encoding.
#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"
#include "peximage/platform/foundation/Workers.h"

// jpeglib.h needs FILE.
// clang-format off
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>

namespace pex {
namespace {

struct Picture {
    int width, height;
    std::vector<std::uint8_t> rgbx;

    const std::uint8_t* row(int y) const {
        return &rgbx[std::size_t{4} * static_cast<std::size_t>(y * width)];
    }
};

/// Smooth tones under noise.
Picture paint(int width, int height) {
    std::mt19937 random(5);
    Picture picture{width, height, {}};
    picture.rgbx.reserve(std::size_t{4} * static_cast<std::size_t>(width * height));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c) {
                const double tone = 128 + 60 * std::sin(x * 0.01 + c) + 50 * std::cos(y * 0.013 - c);
                const int grain = static_cast<int>(random() % 32) - 16;
                picture.rgbx.push_back(static_cast<std::uint8_t>(std::clamp(tone + grain, 0.0, 255.0)));
            }
    return picture;
}

/// Into memory that is already there; the library's own scaling of tables rounds the quality.
void encodePlainly(const Picture& picture, double quality, std::vector<std::uint8_t>& memory) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* to = memory.data();
    unsigned long size = memory.size();
    jpeg_mem_dest(&info, &to, &size);
    info.image_width = static_cast<JDIMENSION>(picture.width);
    info.image_height = static_cast<JDIMENSION>(picture.height);
    info.input_components = 4;
    info.in_color_space = JCS_EXT_RGBX;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, static_cast<int>(quality * 100), TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        auto* row = const_cast<JSAMPROW>(picture.row(static_cast<int>(info.next_scanline)));
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
}

/// Gives the quality that is written: of the two neighbours that the bisection ends on the better that fits.
double shrinkToBudget(const Picture& picture, double budget) {
    const auto encoder = jpeg::Encoder::make(
        {picture.width, picture.height, false, [&](int y, std::uint8_t*) { return picture.row(y); }, {}});
    jpeg::BudgetSizes sizes(encoder, budget, 0.975 * budget, 0.01);
    double lower = 0, upper = 1;
    while (upper - lower >= 0.01) {
        const double middle = (lower + upper) / 2;
        (sizes.sizeForSearch(middle) <= 0.975 * budget ? lower : upper) = middle;
    }
    const double quality = static_cast<double>(encoder->byteCount(upper)) <= budget ? upper : lower;
    benchmark::DoNotOptimize(encoder->encode(quality));
    return quality;
}

template <class Work>
double seconds(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Arguments: megapixels, threads, hundredths of a bit a pixel.
void jpegBudget(benchmark::State& state) {
    const int unit = state.range(0) == 3 ? 500 : 1000;
    const Picture picture = paint(4 * unit, 3 * unit);
    const double budget = static_cast<double>(state.range(2)) / 800 * picture.width * picture.height;
    std::vector<std::uint8_t> memory(picture.rgbx.size());
    const Workers::Limit threads(static_cast<int>(state.range(1)));
    double quality = shrinkToBudget(picture, budget), ours = 1e9, peer = 1e9;
    for (auto _ : state) {
        const double once = seconds([&] { quality = shrinkToBudget(picture, budget); });
        state.SetIterationTime(once);
        ours = std::min(ours, once);
        peer = std::min(peer, seconds([&] { encodePlainly(picture, quality, memory); }));
    }
    state.counters["quality"] = quality;
    state.counters["ratio"] = ours / peer;
}

BENCHMARK(jpegBudget)
    ->ArgsProduct({{3, 12}, {1, 2}, {50, 100, 200}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
} // namespace pex
