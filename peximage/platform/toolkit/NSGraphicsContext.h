#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/raster/CGContext.h"

#include <memory>

namespace pex {

/// Where the toolkit's drawing calls go. Every thread has a current context of its own.
class PEX_EXPORT NSGraphicsContext {
  public:
    /// Drawing goes to that context, which must not be null.
    explicit NSGraphicsContext(std::shared_ptr<CGContext> context) : context_(std::move(context)) {}

    /// Null when this thread has none.
    static std::shared_ptr<NSGraphicsContext> current();
    /// Directs this thread's drawing to another context; null: to none.
    static void setCurrent(std::shared_ptr<NSGraphicsContext> context);

    /// What is drawn into.
    const std::shared_ptr<CGContext>& cgContext() const { return context_; }
    /// How pictures drawn from now on are brought to another size.
    void setImageInterpolation(CGInterpolationQuality quality) { context_->setInterpolationQuality(quality); }

  private:
    std::shared_ptr<CGContext> context_;
};

} // namespace pex
