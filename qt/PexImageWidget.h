#pragma once

#include "peximage/cache/PexImageView.h"

#include <QWidget>
#include <memory>

namespace pex {

/// A widget filled by a `PexImageView`, drawn in the pixels of the widget's screen. `connectToQt` has to
/// be called before.
class PEX_EXPORT PexImageWidget : public QWidget {
    Q_OBJECT

  public:
    /// The view's frame becomes that of the widget; null stands for an empty view.
    explicit PexImageWidget(std::shared_ptr<PexImageView> view, QWidget* parent = nullptr);
    ~PexImageWidget() override;

    const std::shared_ptr<PexImageView>& view() const { return view_; }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    std::shared_ptr<PexImageView> view_;
};

} // namespace pex
