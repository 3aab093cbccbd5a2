#include "bench/worker/Filters.h"

#include "bench/worker/WholePictures.h"
#include "peximage/pixels/PexLut.h"
#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/filters/ColorCube.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace bench {
namespace {

constexpr double sharpness = 0.8, stops = 0.5;

pex::PexLut tableOf(const std::string& folder) {
    return pex::PexLut::make(pex::URL::fromPath(folder + "/table.cube")).value();
}

void addConvolution(JobMap& jobs, const std::string& folder) {
    // Nine different weights, so that nobody can save work.
    static constexpr std::array<std::int16_t, 9> weights{-1, -2, 1, -3, 11, -4, 2, -5, 4};
    addOurs(jobs, "convolve/ours", folder, [](pex::PexImage& image) {
        image.convolve({.kernel = {weights.begin(), weights.end()}});
    });
    addOpenCv(jobs, "convolve/opencv", folder, [](const cv::Mat& in, cv::Mat& out) {
        cv::Mat kernel(3, 3, CV_32F);
        std::ranges::transform(weights, kernel.begin<float>(), [](int weight) { return float(weight) / 3; });
        cv::filter2D(in, out, -1, kernel, {-1, -1}, 0, cv::BORDER_CONSTANT);
    });
}

// Sharpening, exposure and a lookup table, one after the other.

/// A step of a libvips pipeline: the picture is handed over, and so is what comes out.
template <class Operation>
void step(VipsImage*& image, Operation operation) {
    VipsImage* out = nullptr;
    if (operation(image, &out)) throw std::runtime_error(vips_error_buffer());
    g_object_unref(image);
    image = out;
}

double exposed(double byte) {
    const double v = byte / 255;
    const double light = (v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4)) * std::exp2(stops);
    return std::min(light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055, 1.0) * 255;
}

/// A table of one value for each byte and channel, all that libvips has.
template <class Value>
VipsImage* byteTable(Value value) {
    std::array<std::uint8_t, 256 * 3> entries;
    for (int i = 0; i < int(entries.size()); ++i)
        entries[std::size_t(i)] = std::uint8_t(std::lround(value(i / 3, i % 3)));
    return vips_image_new_from_memory_copy(entries.data(), entries.size(), 256, 1, 3, VIPS_FORMAT_UCHAR);
}

template <class Value>
void lookUp(VipsImage*& image, Value value) {
    VipsImage* table = byteTable(value);
    step(image, [&](VipsImage* in, VipsImage** out) { return vips_maplut(in, out, table, nullptr); });
    g_object_unref(table);
}

void exposeInLinearLight(VipsImage*& image) {
    const auto to = [&](VipsInterpretation space) {
        step(image,
             [&](VipsImage* in, VipsImage** out) { return vips_colourspace(in, out, space, nullptr); });
    };
    to(VIPS_INTERPRETATION_scRGB);
    step(image,
         [](VipsImage* in, VipsImage** out) { return vips_linear1(in, out, std::exp2(stops), 0, nullptr); });
    to(VIPS_INTERPRETATION_sRGB);
}

/// `expose(image)` is its second step.
template <class Expose>
int vipsChain(VipsImage* in, VipsImage** out, Expose expose) {
    VipsImage* image = nullptr;
    if (vips_copy(in, &image, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr)) return -1;
    step(image, [](VipsImage* from, VipsImage** to) { return vips_sharpen(from, to, nullptr); });
    expose(image);
    lookUp(image, [](int byte, int channel) { return 255 * std::pow(byte / 255.0, 0.8 + 0.2 * channel); });
    *out = image;
    return 0;
}

void addChain(JobMap& jobs, const std::string& folder) {
    jobs["chain/ours"] = [=]() -> Run {
        const pex::CIImage image(imageOf(*load(folder, 4000)));
        const pex::PexLut table = tableOf(folder);
        return run([=] {
            const auto sharp = image.sharpenedLuminance(sharpness).exposureAdjusted(stops);
            if (!table.applyTo(sharp)->getCGImage()) throw std::runtime_error("cannot be filtered");
        });
    };
    addVips(
        jobs, "chain/vips", folder,
        [](VipsImage* in, VipsImage** out) { return vipsChain(in, out, exposeInLinearLight); }, 3);
    addVips(
        jobs, "chain/vips-tables", folder,
        [](VipsImage* in, VipsImage** out) {
            return vipsChain(in, out, [](VipsImage*& image) {
                lookUp(image, [](int byte, int) { return exposed(byte); });
            });
        },
        3);
}

void addKeying(JobMap& jobs, const std::string& folder) {
    addOurs(jobs, "key-image/ours", folder, [](pex::PexImage& image) {
        image.key({.color = pex::PexColor(10 / 255.0, 20 / 255.0, 30 / 255.0), .tolerance = 60});
    });
    jobs["mask-image/ours"] = [=]() -> Run {
        const auto image = pex::PexImage::make(imageOf(*load(folder, 4000)));
        const pex::CGImage mask = imageOf(*load(folder, 4000));
        return run([=] { image->apply({.mask = mask}); });
    };
}

} // namespace

void addFilters(JobMap& jobs, const std::string& folder) {
    addConvolution(jobs, folder);
    jobs["table/ours"] = [=]() -> Run {
        const auto image = pex::PexImage::make(imageOf(*load(folder, 4000)));
        const pex::PexLut table = tableOf(folder);
        return run([=] { image->apply({.lut = table}); });
    };
    addOurs(jobs, "sharpen/ours", folder, [](pex::PexImage& image) { image.sharpen(float(sharpness)); });
    jobs["sharpen-alpha/ours"] = [=]() -> Run {
        const Shared picture = load(folder, 4000);
        for (std::size_t i = 0; i < picture->bytes.size(); ++i)
            picture->bytes[i] = i % 4 == 3 ? 200 : picture->bytes[i] * 200 / 255;
        const auto image = pex::PexImage::make(imageOf(*picture));
        return run([=] { image->sharpen(float(sharpness)); });
    };
    addChain(jobs, folder);
    addKeying(jobs, folder);
}

} // namespace bench
