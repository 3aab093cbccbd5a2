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
/// One read from a document, or built from addresses, first loads its layers with `loadAllLayers()`, then
/// gives its image. Reading is lenient: "size" becomes 512 × 512 and "layerList" empty where they are missing
/// or malformed; only a value that is no object fails.
class PEX_EXPORT PexCanvas {
  public:
    struct PEX_EXPORT Size {
        std::int64_t width = 0;
        std::int64_t height = 0;

        constexpr Size() = default;
        constexpr Size(std::int64_t w, std::int64_t h) : width(w), height(h) {}
        /// Truncated toward zero.
        explicit Size(CGSize size);

        CGSize cg() const { return {static_cast<double>(width), static_cast<double>(height)}; }

        friend constexpr bool operator==(const Size&, const Size&) = default;

        static constexpr auto documentKeys() {
            return std::tuple(keyed::required("width", &Size::width),
                              keyed::required("height", &Size::height));
        }
    };

    /// Without layers, its image blank.
    explicit PexCanvas(Size canvasSize, std::optional<PexShareApp> sharing = {});
    /// A square of the image's longer side with the image, at its own size, as the one layer in the middle.
    /// The ratio makes no difference.
    PexCanvas(const std::shared_ptr<PexImage>& withImage, double fitInRatio);

    /// The image of such a square: transparent beside the picture. Null for null.
    static std::shared_ptr<PexImage> fit(const std::shared_ptr<PexImage>& image, double inRatio);

    Size size;
    /// Drawn first to last.
    std::vector<PexCanvasLayer> layerList;
    /// Finds the files of layers that name a shared one; never written into documents.
    std::optional<PexShareApp> shareApp;

    /// Gives every layer without an image the one that its source names. A layer whose source leads to none
    /// stays without and is not drawn. Runs on a background thread, on which the awaiting coroutine goes on;
    /// the canvas must stay where it is, and be left alone, until the task has ended.
    Task<void> loadAllLayers();

    /// Draws every layer that has an image over what was drawn before: a second pass draws all again over the
    /// result of the first.
    void drawLayers();
    /// Draws the layers and gives the image: transparent where there is nothing.
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
