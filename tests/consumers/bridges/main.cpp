// Pictures go to OpenCV and cairo and come back, held against what these libraries themselves say of a pixel.
#include "../Check.h"

#include <opencv2/core.hpp>
#include <peximage-bridges/Cairo.h>
#include <peximage-bridges/OpenCv.h>

namespace {

using pex::PixelBytes;

std::optional<pex::CGImage> onePixel(PixelBytes bytes, std::uint8_t a, std::uint8_t b = 0, std::uint8_t c = 0,
                                     std::uint8_t d = 0) {
    const std::uint8_t pixel[] = {a, b, c, d};
    return pex::imageOfCopied({pixel, 1, 1, 4, bytes});
}

void checkOpenCv() {
    CHECK(pex::toMat(*onePixel(PixelBytes::rgba, 10, 20, 30, 40)).at<cv::Vec4b>(0, 0) ==
          cv::Vec4b(30, 20, 10, 40));
    CHECK(pex::toMat(*onePixel(PixelBytes::rgb, 10, 20, 30)).at<cv::Vec3b>(0, 0) == cv::Vec3b(30, 20, 10));
    CHECK(pex::toMat(*onePixel(PixelBytes::grey, 70)).at<std::uint8_t>(0, 0) == 70);

    // A column within a larger matrix, so that rows are longer than its pixels.
    for (const int type : {CV_8UC1, CV_8UC3, CV_8UC4}) {
        const cv::Mat part = cv::Mat(7, 5, type, cv::Scalar(1, 2, 3, 4))(cv::Rect(1, 2, 3, 4));
        const auto image = pex::fromMat(part);
        CHECK(image && image->width() == 3 && image->height() == 4);
        CHECK((image->pixels()->data == part.data) == (type == CV_8UC1));
        CHECK(cv::norm(pex::toMat(*image), part, cv::NORM_INF) == 0);
        CHECK(pex::matOver(*image).data == image->pixels()->data);
    }
    std::optional<cv::Mat> grey(cv::Mat(2, 2, CV_8UC1, cv::Scalar(9)));
    const auto kept = pex::fromMat(*grey);
    grey.reset();
    CHECK(kept->pixels()->row(1)[1] == 9);
    CHECK(!pex::fromMat({}) && !pex::fromMat(cv::Mat(2, 2, CV_16UC1)) &&
          !pex::fromMat(cv::Mat(2, 2, CV_8UC2)));
}

void checkCairo() {
    // Red at half opacity, painted by cairo on a transparent surface.
    const pex::CairoSurface painted(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 3, 2),
                                    &cairo_surface_destroy);
    cairo_t* const pen = cairo_create(painted.get());
    cairo_set_source_rgba(pen, 1, 0, 0, 128 / 255.0);
    cairo_paint(pen);
    cairo_destroy(pen);
    const auto image = pex::fromCairo(painted.get());
    std::uint8_t rgba[3 * 2 * 4] = {};
    CHECK(image && pex::copyPixels(*image, {rgba, 3, 2, 12, PixelBytes::rgba}));
    CHECK(rgba[20] == 255 && rgba[21] == 0 && rgba[22] == 0 && rgba[23] == 128);

    const pex::CairoSurface back = pex::toCairo(*image, 2);
    CHECK(*reinterpret_cast<std::uint32_t*>(cairo_image_surface_get_data(back.get())) == 0x80800000);
    double scale = 0;
    cairo_surface_get_device_scale(back.get(), &scale, &scale);
    CHECK(scale == 2);
    const pex::CairoSurface opaque = pex::toCairo(*onePixel(PixelBytes::rgb, 1, 2, 3));
    CHECK(cairo_image_surface_get_format(opaque.get()) == CAIRO_FORMAT_RGB24);
    CHECK(cairo_image_surface_get_data(opaque.get())[0] == 3);
    const pex::CairoSurface mask(cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1), &cairo_surface_destroy);
    CHECK(!pex::fromCairo(mask.get()));
}

} // namespace

int main() {
    checkOpenCv();
    checkCairo();
}
