#include "bench/worker/Resizing.h"

#include "peximage/platform/raster/Resampler.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <stdexcept>
#include <vips/vips.h>

namespace bench {
namespace {

struct Taps {
    int first = 0;
    std::vector<double> weights = {};
};

double lanczos3(double x) {
    if (std::abs(x) >= 3) return 0;
    if (x == 0) return 1;
    const double angle = std::numbers::pi * x;
    return 3 * std::sin(angle) * std::sin(angle / 3) / (angle * angle);
}

double reach(int from, int to) { return 3 * std::max(double(from) / to, 1.0); }

Taps tapsFor(int position, int from, int to) {
    const double widening = std::max(double(from) / to, 1.0), radius = reach(from, to);
    const double centre = (position + 0.5) * from / to;
    const int first = std::max(0, int(std::floor(centre - radius)));
    const int end = std::min(from, int(std::ceil(centre + radius)));
    Taps taps{first};
    double sum = 0;
    for (int i = first; i < end; ++i) {
        taps.weights.push_back(lanczos3((i + 0.5 - centre) / widening));
        sum += taps.weights.back();
    }
    for (double& weight : taps.weights)
        weight /= sum;
    return taps;
}

std::vector<double> filteredColumns(const Picture& from, const Taps& taps) {
    std::vector<double> sums(from.rowBytes());
    for (std::size_t k = 0; k < taps.weights.size(); ++k) {
        const std::uint8_t* row = from.row(taps.first + int(k));
        for (std::size_t i = 0; i < sums.size(); ++i)
            sums[i] += taps.weights[k] * row[i];
    }
    return sums;
}

double filteredAt(const std::vector<double>& row, const Taps& taps, int channels, int channel) {
    double sum = 0;
    for (std::size_t k = 0; k < taps.weights.size(); ++k)
        sum += taps.weights[k] *
               row[(std::size_t(taps.first) + k) * std::size_t(channels) + std::size_t(channel)];
    return std::clamp(sum, 0.0, 255.0);
}

void noteError(Errors& errors, double error, bool inside) {
    errors.anywhere = std::max(errors.anywhere, error);
    if (inside) errors.inside = std::max(errors.inside, error);
}

/// The lazily resized picture; for enlarging libvips has no Lanczos and takes its bicubic.
VipsImage* vipsResized(const Picture& from, int width, int height) {
    VipsImage* in = vips_image_new_from_memory(from.bytes.data(), from.bytes.size(), from.width, from.height,
                                               from.channels, VIPS_FORMAT_UCHAR);
    VipsImage* out = nullptr;
    const int failed = vips_resize(in, &out, double(width) / from.width, "vscale",
                                   double(height) / from.height, "kernel", VIPS_KERNEL_LANCZOS3, nullptr);
    g_object_unref(in);
    if (failed != 0) throw std::runtime_error(vips_error_buffer());
    return out;
}

struct VipsPixels {
    VipsPixels(const Picture& from, int width, int height) {
        VipsImage* resized = vipsResized(from, width, height);
        bytes = static_cast<std::uint8_t*>(vips_image_write_to_memory(resized, &size));
        g_object_unref(resized);
        if (!bytes) throw std::runtime_error(vips_error_buffer());
    }
    VipsPixels(const VipsPixels&) = delete;
    VipsPixels& operator=(const VipsPixels&) = delete;
    ~VipsPixels() { g_free(bytes); }

    std::size_t size = 0;
    std::uint8_t* bytes = nullptr;
};

} // namespace

void resizeByOurs(Picture& from, Picture& to) {
    const auto resampler =
        pex::Resampler::make(from.width, from.height, to.width, to.height, pex::PixelLayout::skipLast);
    if (!resampler || !resampler->resample(from.view(), to.view())) throw std::runtime_error("cannot resize");
}

Picture resizeByVips(const Picture& from, int width, int height) {
    const VipsPixels pixels(from, width, height);
    Picture result(width, height, from.channels);
    std::memcpy(result.bytes.data(), pixels.bytes, std::min(pixels.size, result.bytes.size()));
    return result;
}

void runVips(const Picture& from, int width, int height) { const VipsPixels pixels(from, width, height); }

Errors resizeErrors(const Picture& from, const Picture& to) {
    std::vector<Taps> columns;
    for (int x = 0; x < to.width; ++x)
        columns.push_back(tapsFor(x, from.width, to.width));
    const double marginX = std::ceil(reach(from.width, to.width) * to.width / from.width);
    const double marginY = std::ceil(reach(from.height, to.height) * to.height / from.height);
    Errors errors{0, 0};
    for (int y = 0; y < to.height; ++y) {
        const std::vector<double> row = filteredColumns(from, tapsFor(y, from.height, to.height));
        const bool insideY = y >= marginY && y < to.height - marginY;
        for (int x = 0; x < to.width; ++x) {
            const bool inside = insideY && x >= marginX && x < to.width - marginX;
            for (int c = 0; c < 3; ++c) {
                const double exact = filteredAt(row, columns[std::size_t(x)], from.channels, c);
                noteError(errors, std::abs(exact - to.row(y)[x * to.channels + c]), inside);
            }
        }
    }
    return errors;
}

} // namespace bench
