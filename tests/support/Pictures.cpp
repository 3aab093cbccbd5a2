#include "tests/support/Pictures.h"

#include "peximage/platform/codecs/CGImageSource.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <stdexcept>

using namespace pex;

CGImage makePicture(int width, int height, PixelLayout layout, const std::function<Pixel(int, int)>& pixel,
                    const CGColorSpace& space) {
    const int bytes = bytesPerPixel(layout);
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytes;
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Pixel value = pixel(x, y);
            for (int c = 0; c < bytes; ++c)
                buffer.data()[y * stride + x * bytes + c] = value[static_cast<std::size_t>(c)];
        }
    }
    const auto image = CGImage::make(width, height, stride, layout, space, std::move(buffer));
    if (!image) throw std::runtime_error("no picture");
    return *image;
}

CGImage makePicture(int width, int height, PixelLayout layout, Pixel color, const CGColorSpace& space) {
    return makePicture(
        width, height, layout, [color](int, int) { return color; }, space);
}

std::shared_ptr<PexImage> plain(int width, int height, Pixel color, PixelLayout layout) {
    return PexImage::make(makePicture(width, height, layout, color));
}

Pixel pixelAt(const CGImage& image, int x, int y) {
    const auto view = image.pixels();
    if (!view) throw std::runtime_error("no pixels");
    const std::uint8_t* at = view->row(y) + std::ptrdiff_t{x} * bytesPerPixel(view->layout);
    if (view->layout == PixelLayout::grey) return {at[0], at[0], at[0], at[0]};
    return {at[0], at[1], at[2], at[3]};
}

CGImage photoLike(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    return makePicture(width, height, PixelLayout::skipLast, [&](int x, int y) {
        const double wave = 60 * std::sin(x * 0.013 + seed) + 50 * std::cos(y * 0.017) +
                            20 * std::sin(x * 0.31) * std::sin(y * 0.23);
        const auto channel = [&](double base) {
            const double value = base + wave + static_cast<double>(random() % 13);
            return static_cast<std::uint8_t>(std::fmin(std::fmax(value, 0), 255));
        };
        return Pixel{channel(120), channel(110), channel(90), 255};
    });
}

namespace {

bool isPremultiplied(PixelLayout layout) {
    return layout == PixelLayout::premultipliedLast || layout == PixelLayout::premultipliedFirst;
}

} // namespace

CGImage noise(int width, int height, PixelLayout layout, unsigned seed) {
    std::mt19937 random(seed);
    return makePicture(width, height, layout, [&](int, int) {
        Pixel pixel;
        for (auto& c : pixel)
            c = static_cast<std::uint8_t>(random());
        const std::size_t alpha = isAlphaFirst(layout) ? 0 : 3;
        for (std::size_t c = 0; isPremultiplied(layout) && c < pixel.size(); ++c) {
            if (c != alpha) pixel[c] = static_cast<std::uint8_t>(pixel[c] * pixel[alpha] / 255);
        }
        return pixel;
    });
}

Bytes bytesOf(const Data& data) { return {data.bytes().begin(), data.bytes().end()}; }

std::optional<CGImage> decoded(const Bytes& file) {
    const auto source = CGImageSource::make(Data(file));
    const auto image = source ? source->createImage() : std::nullopt;
    return image && image->pixels() ? image : std::nullopt;
}

Data encoded(const CGImage& image, ImageFormat format, const CGImageDestination::Options& options) {
    const auto file = CGImageDestination::encode(image, format, options);
    if (!file) throw std::runtime_error("cannot be encoded");
    return *file;
}

Pixel straightAt(const CGImage& image, int x, int y) {
    const PixelLayout layout = image.layout();
    Pixel p = pixelAt(image, x, y);
    if (isAlphaFirst(layout)) std::rotate(p.begin(), p.begin() + 1, p.end());
    if (!hasAlpha(layout)) p[3] = 255;
    if (isPremultiplied(layout) && p[3] > 0) {
        for (std::size_t c = 0; c < 3; ++c)
            p[c] = static_cast<std::uint8_t>(std::min(255, (p[c] * 255 + p[3] / 2) / p[3]));
    }
    return p;
}

double difference(const CGImage& a, const CGImage& b) {
    double sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            for (std::size_t c = 0; c < 3; ++c)
                sum += std::abs(straightAt(a, x, y)[c] - straightAt(b, x, y)[c]);
        }
    }
    return sum / (3.0 * a.width() * a.height());
}

namespace {

Bytes saved(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    Bytes bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

} // namespace

Bytes grayProfile(double gamma) {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    auto bytes = saved(cmsCreateGrayProfile(cmsD50_xyY(), curve));
    cmsFreeToneCurve(curve);
    return bytes;
}

Bytes wideProfile(double gamma) {
    const cmsCIExyY white{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE primaries{{0.68, 0.32, 1}, {0.265, 0.69, 1}, {0.15, 0.06, 1}};
    cmsToneCurve* curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve* const curves[] = {curve, curve, curve};
    auto bytes = saved(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return bytes;
}

namespace {

/// `count` pixels of the profile as sRGB, in the engine's own formats.
void toSrgb(const Bytes& profile, cmsUInt32Number format, const void* pixels, cmsUInt32Number srgbFormat,
            void* srgb, std::size_t count) {
    const cmsHPROFILE from =
        cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    const cmsHPROFILE to = cmsCreate_sRGBProfile();
    const cmsHTRANSFORM transform =
        cmsCreateTransform(from, format, to, srgbFormat, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    cmsDoTransform(transform, pixels, srgb, static_cast<cmsUInt32Number>(count));
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
}

} // namespace

std::uint8_t srgbOfGrey(const Bytes& profile, std::uint8_t grey) {
    std::uint8_t rgb[3] = {};
    toSrgb(profile, TYPE_GRAY_8, &grey, TYPE_RGB_8, rgb, 1);
    return rgb[1];
}

double distanceFromExact(const Bytes& profile, const Bytes& rgbx, const Bytes& srgb) {
    std::vector<double> in, out(rgbx.size() / 4 * 3);
    for (std::size_t i = 0; i < rgbx.size(); ++i)
        if (i % 4 < 3) in.push_back(rgbx[i] / 255.0);
    toSrgb(profile, TYPE_RGB_DBL, in.data(), TYPE_RGB_DBL, out.data(), rgbx.size() / 4);
    double largest = 0;
    for (std::size_t i = 0; i < out.size(); ++i)
        largest = std::max(largest, std::abs(std::clamp(out[i], 0.0, 1.0) * 255 - srgb[i / 3 * 4 + i % 3]));
    return largest;
}
