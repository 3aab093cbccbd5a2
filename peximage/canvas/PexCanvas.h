#pragma once

#include "peximage/canvas/PexCanvasLayer.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/varda/PexShareApp.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace pex {

/// A list of image layers on a canvas of a given size in pixels, drawn into one image. A value; copies share
/// their images.
///
/// A canvas that was read from a document, or built from addresses, has to load its layers with
/// `loadAllLayers()` before it gives its image. Reading is lenient: a missing or malformed "size" becomes
/// 512 × 512, and such a "layerList" empty. Only a value that is no object fails.
class PEX_EXPORT PexCanvas {
  public:
    /// A size in whole pixels.
    struct PEX_EXPORT Size {
        /// Pixels from left to right.
        std::int64_t width = 0;
        /// Pixels from top to bottom.
        std::int64_t height = 0;

        constexpr Size() = default;
        /// So many pixels.
        constexpr Size(std::int64_t w, std::int64_t h) : width(w), height(h) {}
        /// Truncated toward zero.
        explicit Size(CGSize size);

        /// The same in real numbers.
        CGSize cg() const { return {static_cast<double>(width), static_cast<double>(height)}; }

        friend constexpr bool operator==(const Size&, const Size&) = default;

        static constexpr auto documentKeys() {
            return std::tuple(keyed::required("width", &Size::width),
                              keyed::required("height", &Size::height));
        }
    };

    /// A canvas without layers; its image is transparent.
    explicit PexCanvas(Size canvasSize, std::optional<PexShareApp> sharing = {});
    /// A square canvas as wide as the image's longer side, with the image in the middle as its only layer.
    /// The ratio has no effect.
    PexCanvas(const std::shared_ptr<PexImage>& withImage, double fitInRatio);

    /// The image of such a square canvas, transparent beside the picture. Null for null.
    static std::shared_ptr<PexImage> fit(const std::shared_ptr<PexImage>& image, double inRatio);

    /// The canvas, in pixels.
    Size size;
    /// The layers; the first one is drawn lowest.
    std::vector<PexCanvasLayer> layerList;
    /// Finds the files of layers whose source is a shared file. Never written into documents.
    std::optional<PexShareApp> shareApp;

    /// Loads the image of every layer that has none yet. A layer whose source leads to no image is not drawn.
    /// Runs on a background thread, on which the awaiting coroutine goes on. Until the task has ended, the
    /// canvas must not be moved, changed or destroyed.
    Task<void> loadAllLayers();

    /// Draws every layer that has an image. A second call draws them again over the result of the first.
    void drawLayers();
    /// Draws the layers and gives the image, transparent where nothing was drawn.
    std::shared_ptr<PexImage> getImage();

  private:
    friend class DocumentAccess;
    friend struct DocumentCodec<PexCanvas>;
    PexCanvas() : PexCanvas(Size()) {}

    struct Document;

    std::shared_ptr<PexImage> image_;
};

template <>
struct PEX_EXPORT DocumentCodec<PexCanvas> {
    static void write(DocumentWriter& writer, const PexCanvas& canvas);
    static bool read(DocumentValue value, PexCanvas& target, DocumentError* error);
};

} // namespace pex
