#include "qt/QtImages.h"

#include "peximage/platform/raster/ApplicationPixels.h"

#include <QColorSpace>
#include <string_view>

namespace pex {
namespace {

/// Invalid for the layouts that Qt has not.
QImage::Format formatOf(PixelLayout layout) {
    switch (layout) {
    case PixelLayout::grey:
        return QImage::Format_Grayscale8;
    case PixelLayout::premultipliedLast:
        return QImage::Format_RGBA8888_Premultiplied;
    case PixelLayout::straightLast:
        return QImage::Format_RGBA8888;
    case PixelLayout::skipLast:
        return QImage::Format_RGBX8888;
    default:
        return QImage::Format_Invalid;
    }
}

QImage copied(const CGImage& image, bool isPremultiplied) {
    QImage copy(image.width(), image.height(),
                isPremultiplied ? QImage::Format_RGBA8888_Premultiplied : QImage::Format_RGBA8888);
    const bool done =
        !copy.isNull() && copyPixels(image, {copy.bits(), copy.width(), copy.height(), copy.bytesPerLine(),
                                             PixelBytes::rgba, isPremultiplied});
    return done ? copy : QImage();
}

QImage shared(const CGImage& image, const PixelView& pixels, QImage::Format format) {
    const auto release = [](void* kept) { delete static_cast<CGImage*>(kept); };
    return {pixels.data, pixels.width, pixels.height,     static_cast<qsizetype>(pixels.bytesPerRow),
            format,      release,      new CGImage(image)};
}

QColorSpace spaceForQt(const CGColorSpace& space) {
    if (space.isStandard()) return QColorSpace::SRgb;
    const std::string_view profile = space.iccProfile().text();
    return QColorSpace::fromIccProfile({profile.data(), static_cast<qsizetype>(profile.size())});
}

CGColorSpace spaceFromQt(const QImage& image) {
    if (image.format() == QImage::Format_Grayscale8) return CGColorSpace::deviceGray();
    const QColorSpace space = image.colorSpace();
    if (!space.isValid() || space == QColorSpace(QColorSpace::SRgb)) return CGColorSpace::sRGB();
    const QByteArray profile = space.iccProfile();
    const std::string_view bytes(profile.constData(), static_cast<std::size_t>(profile.size()));
    return CGColorSpace::fromICC(Data(bytes)).value_or(CGColorSpace::sRGB());
}

/// The nearest format whose bytes the library's images can hold.
QImage::Format sharedFormat(const QImage& image) {
    switch (image.format()) {
    case QImage::Format_Grayscale8:
    case QImage::Format_RGBA8888:
    case QImage::Format_RGBA8888_Premultiplied:
    case QImage::Format_RGBX8888:
        return image.format();
    case QImage::Format_Grayscale16:
        return QImage::Format_Grayscale8;
    default:
        break;
    }
    if (!image.hasAlphaChannel()) return QImage::Format_RGBX8888;
    const bool isPremultiplied = image.pixelFormat().premultiplied() == QPixelFormat::Premultiplied;
    return isPremultiplied ? QImage::Format_RGBA8888_Premultiplied : QImage::Format_RGBA8888;
}

PixelBytes bytesOf(QImage::Format format) {
    if (format == QImage::Format_Grayscale8) return PixelBytes::grey;
    return format == QImage::Format_RGBX8888 ? PixelBytes::rgbx : PixelBytes::rgba;
}

} // namespace

QImage toQImage(const CGImage& image, double scale) {
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return {};
    const QImage::Format format = formatOf(pixels->layout);
    QImage result = format == QImage::Format_Invalid
                        ? copied(image, pixels->layout == PixelLayout::premultipliedFirst)
                        : shared(image, *pixels, format);
    result.setColorSpace(spaceForQt(image.colorSpace()));
    result.setDevicePixelRatio(scale);
    return result;
}

QPixmap toQPixmap(const CGImage& image, double scale) { return QPixmap::fromImage(toQImage(image, scale)); }

std::optional<CGImage> fromQImage(const QImage& image) {
    const QImage kept = image.convertToFormat(sharedFormat(image));
    const QImage::Format format = kept.format();
    return imageOfShared(
        {.data = kept.constBits(),
         .width = kept.width(),
         .height = kept.height(),
         .bytesPerRow = kept.bytesPerLine(),
         .bytes = bytesOf(format),
         .isPremultiplied = format == QImage::Format_RGBA8888_Premultiplied},
        [kept] {}, spaceFromQt(kept));
}

std::optional<CGImage> fromQPixmap(const QPixmap& pixmap) { return fromQImage(pixmap.toImage()); }

} // namespace pex
