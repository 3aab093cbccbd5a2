#pragma once

#include "Album.h"
#include "qt/PexImageWidget.h"

#include <QElapsedTimer>
#include <QTimer>
#include <optional>
#include <string>

/// Shows one picture of an album at a time: arrow keys go through them, plus and minus (or the wheel) zoom,
/// the mouse (or shift and the arrows) moves a picture that is larger than the window.
class ViewerWindow : public pex::PexImageWidget {
    Q_OBJECT

  public:
    struct Options {
        double radius = 0, border = 0;
        pex::NSColor borderColor{0.5, 0.5, 0.5};
        /// Tells on standard error when things were shown.
        bool verbose = false;
    };
    ViewerWindow(std::shared_ptr<Album> album, const Options& options);

    /// As large as the first picture, within the screen.
    QSize sizeHint() const override;
    void showItem(std::size_t index);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;

  private:
    void load();
    void receive(std::size_t index, const Album::Ready& ready);
    void receiveWhole(std::size_t index, const Album::Ready& ready);
    void prefetchNeighbours();
    void go(std::ptrdiff_t step);
    /// So that the point stays where it is; from the widget's middle, y upward.
    void zoomTo(double magnification, QPointF around);
    void zoomToActualSize();
    void fit();
    void pan(QPointF by);
    void loadPixelsForZoom();
    void updateTitle();
    void drawMessage(QPainter& painter) const;
    void drawSpinner(QPainter& painter) const;
    pex::CGSize pixelsOfWindow() const;
    pex::CGPoint limited(pex::CGPoint offset) const;

    std::shared_ptr<Album> album_;
    Options options_;
    std::size_t index_ = 0;
    bool loading_ = false, whole_ = false;
    std::string problem_;
    std::optional<pex::CGSize> pictureSize_; // in pixels
    QPointF lastMouse_;
    QTimer spinner_, resized_;
    QElapsedTimer sinceStart_;
    bool firstShown_ = false;
};
