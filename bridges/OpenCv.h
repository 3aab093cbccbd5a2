#pragma once

// Between pictures of the library and OpenCV's matrices. Headers alone: the program links OpenCV
// (opencv_core).
#include "peximage/platform/raster/ApplicationPixels.h"

#include <cstdint>
#include <opencv2/core/mat.hpp>
#include <optional>

namespace pex {

/// A copy in OpenCV's order, whose owner is the matrix: CV_8UC1 of grey pictures, CV_8UC3 (B G R) of those
/// without alpha, else CV_8UC4 (B G R A, not premultiplied). Colours keep their numbers. Empty when the
/// pixels cannot be had; throws what OpenCV throws when memory cannot. Any thread.
inline cv::Mat toMat(const CGImage& image) {
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return {};
    const bool isGrey = pixels->layout == PixelLayout::grey;
    const PixelBytes bytes = isGrey                     ? PixelBytes::grey
                             : hasAlpha(pixels->layout) ? PixelBytes::bgra
                                                        : PixelBytes::bgr;
    cv::Mat mat(image.height(), image.width(), CV_8UC(byteCount(bytes)));
    const bool done = copyPixels(
        image, {mat.data, mat.cols, mat.rows, static_cast<std::ptrdiff_t>(mat.step[0]), bytes, false});
    return done ? mat : cv::Mat();
}

/// A matrix over the image's own memory, which must only be read and lives as long as the image or a copy:
/// CV_8UC1 of grey pictures, else CV_8UC4 in the order of the image's `layout()` (R G B A, mostly). Empty
/// when the pixels cannot be had.
inline cv::Mat matOver(const CGImage& image) {
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return {};
    // cv::Mat knows no memory that is only read.
    return {pixels->height, pixels->width, CV_8UC(bytesPerPixel(pixels->layout)),
            const_cast<std::uint8_t*>(pixels->data), static_cast<std::size_t>(pixels->bytesPerRow)};
}

/// An image of a matrix: CV_8UC1 shares its memory, which must stay as it is, and keeps it; CV_8UC3 (B G R)
/// and CV_8UC4 (B G R A, not premultiplied) are copied. Absent for other types, for empty matrices and those
/// of more than two dimensions. Memory that the matrix does not own must outlive the image.
inline std::optional<CGImage> fromMat(const cv::Mat& mat) {
    if (mat.dims != 2 || mat.depth() != CV_8U || mat.channels() == 2 || mat.channels() > 4)
        return std::nullopt;
    const bool isGrey = mat.channels() == 1;
    const ConstApplicationPixels pixels{mat.data, mat.cols, mat.rows,
                                        static_cast<std::ptrdiff_t>(mat.step[0]),
                                        isGrey                ? PixelBytes::grey
                                        : mat.channels() == 3 ? PixelBytes::bgr
                                                              : PixelBytes::bgra};
    return isGrey ? imageOfShared(
                        pixels, [mat] {}, CGColorSpace::deviceGray())
                  : imageOfCopied(pixels);
}

} // namespace pex
