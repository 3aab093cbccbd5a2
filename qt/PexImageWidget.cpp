#include "qt/PexImageWidget.h"

#include "peximage/platform/varda/XMain.h"
#include "qt/QtImages.h"

#include <QPainter>
#include <QPointer>
#include <atomic>
#include <cmath>
#include <memory>
#include <utility>

namespace pex {

PexImageWidget::PexImageWidget(std::shared_ptr<PexImageView> view, QWidget* parent)
    : QWidget(parent), view_(std::move(view)) {
    if (!view_) view_ = PexImageView::make({.frame = {}});
    // Requests may come from any thread. Only on the main thread, where the widget is destroyed, is it
    // known whether it still exists.
    const auto isAsked = std::make_shared<std::atomic<bool>>(false);
    view_->setDisplayRequest([widget = QPointer<QWidget>(this), isAsked](const CGRect&) {
        if (isAsked->exchange(true)) return;
        XMain::execute([widget, isAsked] {
            *isAsked = false;
            if (widget) widget->update();
        });
    });
}

PexImageWidget::~PexImageWidget() { view_->setDisplayRequest({}); }

void PexImageWidget::resizeEvent(QResizeEvent*) {
    view_->setFrame({view_->frame().origin, {static_cast<double>(width()), static_cast<double>(height())}});
}

void PexImageWidget::paintEvent(QPaintEvent*) {
    const double scale = devicePixelRatioF();
    const auto context = CGContext::make(static_cast<int>(std::lround(width() * scale)),
                                         static_cast<int>(std::lround(height() * scale)),
                                         PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    if (!context) return;
    context->scaleBy(scale, scale);
    view_->drawInto(context);
    const std::optional<CGImage> drawn = context->makeImage();
    if (drawn) QPainter(this).drawImage(0, 0, toQImage(*drawn, scale));
}

} // namespace pex
