#include "ViewerWindow.h"

#include "peximage/platform/toolkit/NSScreen.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

namespace {

constexpr double zoomStep = 1.25, mostZoom = 64;
constexpr double panStep = 60;
constexpr double placeholderSide = 160;
constexpr int spinnerMilliseconds = 80;
/// A window that is being resized asks for a sharper picture when it has come to rest.
constexpr int resizeMilliseconds = 120;

std::shared_ptr<pex::PexImageView> makeView(const ViewerWindow::Options& options) {
    auto view = pex::PexImageView::make({.frame = {0, 0, 1, 1}});
    view->setRadius(options.radius);
    view->setBorder(options.border);
    view->setBorderColor(options.borderColor);
    return view;
}

} // namespace

ViewerWindow::ViewerWindow(std::shared_ptr<Album> album, const Options& options)
    : PexImageWidget(makeView(options)), album_(std::move(album)), options_(options) {
    sinceStart_.start();
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(38, 40, 44));
    setPalette(dark);
    setMinimumSize(160, 120);
    resize(ViewerWindow::sizeHint()); // known before the window is, so that loading can begin
    spinner_.setInterval(spinnerMilliseconds);
    connect(&spinner_, &QTimer::timeout, this, [this] { update(); });
    resized_.setSingleShot(true);
    resized_.setInterval(resizeMilliseconds);
    connect(&resized_, &QTimer::timeout, this, [this] { load(); });
}

QSize ViewerWindow::sizeHint() const {
    const QSize screen = QGuiApplication::primaryScreen()->availableSize() * 0.8;
    const auto picture = album_->sizeFromHeader(0);
    if (!picture) return QSize(900, 600).boundedTo(screen);
    const double scale = QGuiApplication::primaryScreen()->devicePixelRatio();
    const QSize whole(static_cast<int>(std::lround(picture->width / scale)),
                      static_cast<int>(std::lround(picture->height / scale)));
    return whole.boundedTo(screen) == whole ? whole : whole.scaled(screen, Qt::KeepAspectRatio);
}

pex::CGSize ViewerWindow::pixelsOfWindow() const {
    return pex::CGSize{static_cast<double>(width()), static_cast<double>(height())} * devicePixelRatioF();
}

// MARK: going through the pictures

void ViewerWindow::showItem(std::size_t index) {
    index_ = index;
    album_->setWanted(index);
    pictureSize_.reset();
    problem_.clear();
    view()->setImage(std::shared_ptr<pex::NSImage>());
    view()->imageScaling = pex::NSImageView::ImageScaling::proportionallyDown;
    if (album_->isRemote(index_)) view()->setPlaceholder(album_->placeholder(index_, placeholderSide));
    fit();
    load();
}

void ViewerWindow::load() {
    loading_ = !pictureSize_ && problem_.empty();
    whole_ = false;
    if (loading_) spinner_.start();
    updateTitle();
    album_->load(index_, pixelsOfWindow(), [window = QPointer(this)](std::size_t index, const auto& ready) {
        if (window) window->receive(index, ready);
    });
}

void ViewerWindow::receive(std::size_t index, const Album::Ready& ready) {
    if (index != index_) return;
    loading_ = false;
    spinner_.stop();
    problem_ = ready.problem;
    const bool first = !pictureSize_;
    if (ready.image) {
        pictureSize_ = ready.size;
        if (!whole_) view()->setImage(ready.image);
    } else {
        view()->setImage(std::shared_ptr<pex::NSImage>());
    }
    updateTitle();
    update();
    if (options_.verbose && first)
        std::cerr << "picture " << index_ << " ready after " << sinceStart_.elapsed() << " ms ("
                  << std::lround(ready.milliseconds) << " ms for loading)\n";
    prefetchNeighbours();
}

void ViewerWindow::prefetchNeighbours() {
    const auto ignore = [](std::size_t, const Album::Ready&) {};
    if (index_ + 1 < album_->count() && !album_->isRemote(index_ + 1))
        album_->load(index_ + 1, pixelsOfWindow(), ignore);
}

void ViewerWindow::go(std::ptrdiff_t step) {
    const auto last = static_cast<std::ptrdiff_t>(album_->count()) - 1;
    const auto next = std::clamp(static_cast<std::ptrdiff_t>(index_) + step, std::ptrdiff_t{0}, last);
    if (next != static_cast<std::ptrdiff_t>(index_)) showItem(static_cast<std::size_t>(next));
}

void ViewerWindow::updateTitle() {
    QString title = QString::fromStdString(album_->name(index_));
    if (album_->count() > 1) title += QString(" (%1 of %2)").arg(index_ + 1).arg(album_->count());
    if (pictureSize_)
        title +=
            QString(" – %1×%2").arg(std::lround(pictureSize_->width)).arg(std::lround(pictureSize_->height));
    setWindowTitle(title);
}

// MARK: zooming and moving

void ViewerWindow::fit() {
    view()->magnification = 1;
    view()->imageOffset = {0, 0};
    update();
}

pex::CGPoint ViewerWindow::limited(pex::CGPoint offset) const {
    const auto rect = view()->imageRect();
    if (!rect) return {0, 0};
    const double farX = std::max(rect->size.width - width(), 0.0) / 2;
    const double farY = std::max(rect->size.height - height(), 0.0) / 2;
    return {std::clamp(offset.x, -farX, farX), std::clamp(offset.y, -farY, farY)};
}

void ViewerWindow::zoomTo(double magnification, QPointF around) {
    if (!pictureSize_) return;
    const double before = view()->magnification;
    view()->magnification = std::clamp(magnification, 1.0, mostZoom);
    const double grown = view()->magnification / before;
    const pex::CGPoint offset = view()->imageOffset;
    view()->imageOffset =
        limited({around.x() - (around.x() - offset.x) * grown, around.y() - (around.y() - offset.y) * grown});
    update();
    loadPixelsForZoom();
}

void ViewerWindow::zoomToActualSize() {
    const auto rect = view()->imageRect();
    if (!rect || !pictureSize_) return;
    const double fitted = rect->size.width / view()->magnification * devicePixelRatioF();
    zoomTo(pictureSize_->width / fitted, {0, 0});
}

void ViewerWindow::pan(QPointF by) {
    const pex::CGPoint offset = view()->imageOffset;
    view()->imageOffset = limited({offset.x + by.x(), offset.y + by.y()});
    update();
}

/// A magnified picture needs more pixels than those that fit into the window.
void ViewerWindow::loadPixelsForZoom() {
    if (whole_ || view()->magnification <= 1) return;
    const pex::CGSize window = pixelsOfWindow();
    if (pictureSize_->width <= window.width && pictureSize_->height <= window.height) return;
    whole_ = true;
    album_->loadWhole(index_, [window = QPointer(this)](std::size_t index, const Album::Ready& ready) {
        if (window) window->receiveWhole(index, ready);
    });
}

void ViewerWindow::receiveWhole(std::size_t index, const Album::Ready& ready) {
    if (index == index_ && whole_ && ready.image) view()->setImage(ready.image);
}

// MARK: events

void ViewerWindow::keyPressEvent(QKeyEvent* event) {
    const bool moves = event->modifiers().testFlag(Qt::ShiftModifier);
    switch (event->key()) {
    case Qt::Key_Right:
        return moves ? pan({-panStep, 0}) : go(1);
    case Qt::Key_Left:
        return moves ? pan({panStep, 0}) : go(-1);
    case Qt::Key_Up:
        return moves ? pan({0, -panStep}) : go(-1);
    case Qt::Key_Down:
        return moves ? pan({0, panStep}) : go(1);
    case Qt::Key_Space:
    case Qt::Key_PageDown:
        return go(1);
    case Qt::Key_Backspace:
    case Qt::Key_PageUp:
        return go(-1);
    case Qt::Key_Home:
        return go(-static_cast<std::ptrdiff_t>(index_));
    case Qt::Key_End:
        return go(static_cast<std::ptrdiff_t>(album_->count()));
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        return zoomTo(view()->magnification * zoomStep, {0, 0});
    case Qt::Key_Minus:
        return zoomTo(view()->magnification / zoomStep, {0, 0});
    case Qt::Key_0:
        return fit();
    case Qt::Key_1:
        return zoomToActualSize();
    case Qt::Key_F:
        return setWindowState(windowState() ^ Qt::WindowFullScreen);
    case Qt::Key_Q:
    case Qt::Key_Escape:
        close();
        return;
    default:
        PexImageWidget::keyPressEvent(event);
    }
}

void ViewerWindow::wheelEvent(QWheelEvent* event) {
    const QPointF at = event->position();
    const double steps = event->angleDelta().y() / 120.0;
    zoomTo(view()->magnification * std::pow(zoomStep, steps),
           {at.x() - width() / 2.0, height() / 2.0 - at.y()});
}

void ViewerWindow::mousePressEvent(QMouseEvent* event) { lastMouse_ = event->position(); }

void ViewerWindow::mouseMoveEvent(QMouseEvent* event) {
    const QPointF by = event->position() - lastMouse_;
    lastMouse_ = event->position();
    pan({by.x(), -by.y()});
}

void ViewerWindow::resizeEvent(QResizeEvent* event) {
    PexImageWidget::resizeEvent(event);
    view()->imageOffset = limited(view()->imageOffset);
    if (pictureSize_ && !whole_) resized_.start();
}

void ViewerWindow::paintEvent(QPaintEvent* event) {
    PexImageWidget::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (loading_) drawSpinner(painter);
    if (!problem_.empty()) drawMessage(painter);
    if (options_.verbose && !firstShown_ && pictureSize_) {
        firstShown_ = true;
        std::cerr << "first picture drawn after " << sinceStart_.elapsed() << " ms\n";
    }
}

void ViewerWindow::drawSpinner(QPainter& painter) const {
    constexpr int blades = 12;
    const auto turn = static_cast<int>(sinceStart_.elapsed() / spinnerMilliseconds % blades);
    painter.translate(width() / 2.0, height() * 0.82);
    for (int i = 0; i < blades; ++i) {
        painter.setPen(QPen(QColor(255, 255, 255, 40 + 200 * ((i - turn + blades) % blades) / blades), 3,
                            Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(QPointF(0, 8), QPointF(0, 15));
        painter.rotate(360.0 / blades);
    }
    painter.resetTransform();
}

void ViewerWindow::drawMessage(QPainter& painter) const {
    const QRectF area = QRectF(rect()).adjusted(20, 20, -20, -20);
    painter.setPen(QColor(235, 235, 235));
    painter.drawText(area, Qt::AlignCenter | Qt::TextWordWrap,
                     QString::fromStdString(album_->item(index_) + "\n\n" + problem_));
}
