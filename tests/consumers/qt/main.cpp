// Pictures go to Qt and come from there with every pixel, without a copy where the layouts agree, and the
// widget draws in the pixels of a screen that has two for each point.
#include "../Check.h"

#include <QApplication>
#include <QColorSpace>
#include <peximage/peximage.h>
#include <qt/PexImageWidget.h>
#include <qt/QtImages.h>
#include <qt/QtPlatform.h>

namespace {

constexpr int width = 5, height = 3; // rows end with padding in most formats

QImage picture(QImage::Format format) {
    QImage image(width, height, QImage::Format_RGBA8888);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixelColor(x, y, QColor(250 - 50 * x, 10 + 40 * y, 60 * x, x == 1 ? 128 : 255));
    return image.convertToFormat(format);
}

bool looksTheSame(const QImage& a, const QImage& b) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const QColor one = a.pixelColor(x, y), other = b.pixelColor(x, y);
            const int most = one.alpha() < 255 ? 1 : 0; // premultiplying rounds
            for (const auto part : {&QColor::red, &QColor::green, &QColor::blue, &QColor::alpha})
                if (std::abs((one.*part)() - (other.*part)()) > most) return false;
        }
    return a.size() == b.size();
}

void checkFormats() {
    const struct {
        QImage::Format format;
        bool isShared;
    } rows[] = {{QImage::Format_RGBA8888, true},    {QImage::Format_RGBA8888_Premultiplied, true},
                {QImage::Format_RGBX8888, true},    {QImage::Format_Grayscale8, true},
                {QImage::Format_ARGB32, false},     {QImage::Format_ARGB32_Premultiplied, false},
                {QImage::Format_RGB32, false},      {QImage::Format_RGB888, false},
                {QImage::Format_Grayscale16, false}};
    for (const auto& [format, isShared] : rows) {
        std::optional<QImage> from = picture(format);
        std::optional<pex::CGImage> image = pex::fromQImage(*from);
        CHECK(image && (image->pixels()->data == from->constBits()) == isShared);
        QImage back = pex::toQImage(*image, 2);
        CHECK(back.constBits() == image->pixels()->data && back.devicePixelRatio() == 2);
        from.reset();
        image.reset();
        CHECK(looksTheSame(back, picture(format)));
        back.setPixelColor(0, 0, Qt::black); // a copy of Qt's own
    }
    CHECK(!pex::fromQImage({}) && pex::lastReason().code == pex::ReasonCode::badArgument);
}

void checkAlphaFirst() {
    const std::uint8_t argb[] = {128, 200, 100, 50};
    const auto image = pex::imageOfCopied({argb, 1, 1, 4, pex::PixelBytes::argb});
    CHECK(image && pex::toQImage(*image).pixelColor(0, 0) == QColor(200, 100, 50, 128));
}

void checkColours() {
    QImage image = picture(QImage::Format_RGB888);
    image.setColorSpace(QColorSpace::DisplayP3);
    const auto wide = pex::fromQImage(image);
    CHECK(wide && !wide->colorSpace().isStandard());
    CHECK(pex::toQImage(*wide).colorSpace().primaries() == QColorSpace::Primaries::DciP3D65);
    CHECK(pex::toQImage(*pex::fromQImage(picture(QImage::Format_RGB888))).colorSpace() == QColorSpace::SRgb);
}

/// Columns of one device pixel, black and white in turns, arrive as such.
void checkSharpness() {
    QImage columns(40, 20, QImage::Format_RGBA8888);
    for (int i = 0; i < 40 * 20; ++i)
        columns.setPixelColor(i % 40, i / 40, i % 2 ? Qt::white : Qt::black);
    const auto image = pex::fromQImage(columns);
    pex::PexImageWidget widget(nullptr);
    widget.resize(20, 10);
    widget.view()->setImage(pex::NSImage::make(*image, {20, 10}));
    const QImage shown = widget.grab().toImage();
    CHECK(shown.devicePixelRatio() == 2 && shown.size() == QSize(40, 20));
    const QRect between(2, 8, 36, 4); // the view's round corners
    CHECK(shown.copy(between).convertToFormat(QImage::Format_RGBA8888) == columns.copy(between));
    CHECK(pex::toQPixmap(*image, 2).deviceIndependentSize() == QSizeF(20, 10));
    CHECK(pex::fromQPixmap(widget.grab())->width() == 40);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_SCALE_FACTOR", "2");
    QApplication application(argc, argv);
    pex::connectToQt(application);
    CHECK(pex::NSScreen::screens().front().backingScaleFactor == 2);
    checkFormats();
    checkAlphaFirst();
    checkColours();
    checkSharpness();
}
