#pragma once

#include "peximage/canvas/PexSpatialConforming.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/KeyedDocument.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGPoint.h"
#include "peximage/platform/varda/PexId.h"

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <tuple>

namespace pex {

/// One image of a canvas: where its pixels come from, and where, how large and how opaque it is drawn. A
/// value; the image itself is shared and never written into documents.
///
/// Reading a layer is lenient: a key that is missing or malformed takes its default, "source" and "transform"
/// as a whole. Only a value that is no object fails.
class PEX_EXPORT PexCanvasLayer {
  public:
    /// What a layer shows. There is one kind.
    enum class LayerType { image };

    /// Where the layer's pixels come from.
    struct Source {
        /// Which of the fields below names the image.
        enum class Identification { url, shareAppId, image };

        /// Which field counts.
        Identification identification = Identification::url;
        /// The address of an image file.
        std::optional<URL> url{};
        /// The identifier of a file shared between applications (PexShareApp.h).
        std::optional<std::string> shareAppId{};
        /// Held in memory; never written.
        std::shared_ptr<PexImage> image{};

        static constexpr auto documentKeys() {
            return std::tuple(keyed::required("identification", &Source::identification),
                              keyed::optional("url", &Source::url),
                              keyed::optional("shareAppId", &Source::shareAppId));
        }
    };

    /// Where, how large and how opaque the layer is drawn.
    struct Transform {
        /// A point of the layer's own unit square. Kept in documents; drawing does not use it.
        CGPoint anchor{0.5, 0.5};
        /// Where the layer's centre goes, in fractions of the canvas, origin at the bottom-left corner.
        CGPoint position{0.5, 0.5};
        /// A factor on the size after spatial conforming.
        double scale = 1;
        /// From 0, invisible, to 1, opaque.
        double opacity = 1;

        static constexpr auto documentKeys() {
            using keyed::required;
            return std::tuple(required("anchor", &Transform::anchor),
                              required("position", &Transform::position),
                              required("scale", &Transform::scale), required("opacity", &Transform::opacity));
        }
    };

    /// A layer of all its fields; `image` is that of the source, if it holds one.
    PexCanvasLayer(std::string layerId, LayerType layerType, Source from, PexSpatialConforming conforming,
                   Transform placement);

    /// A new identifier for a layer, with the tag "pexcl".
    static std::string newId() { return PexId::newId("", "pexcl", true); }

    /// The layer's own identifier.
    std::string id;
    /// What it shows.
    LayerType type = LayerType::image;
    /// Where the pixels come from.
    Source source{};
    /// How the image is brought to the canvas before it is scaled: `fill` covers the canvas.
    PexSpatialConforming spatialConforming = PexSpatialConforming::fill;
    /// Where it is drawn.
    Transform transform{};
    /// The pixels; null until loaded, and such a layer is not drawn.
    std::shared_ptr<PexImage> image{};

    /// A new image of the canvas with this layer over it; the canvas itself when the layer has no image or
    /// memory for the result cannot be had. What lies outside the canvas is cut. A layer of no size leaves
    /// the canvas as it is.
    std::shared_ptr<PexImage> draw(const std::shared_ptr<PexImage>& on) const;
    /// The same for several layers, the first one lowest.
    static std::shared_ptr<PexImage> draw(std::span<const PexCanvasLayer> layers,
                                          const std::shared_ptr<PexImage>& on);

    static constexpr auto documentKeys() {
        using keyed::lenient;
        return std::tuple(lenient("id", &PexCanvasLayer::id, [] { return newId(); }),
                          lenient("type", &PexCanvasLayer::type), lenient("source", &PexCanvasLayer::source),
                          lenient("spatialConforming", &PexCanvasLayer::spatialConforming),
                          lenient("transform", &PexCanvasLayer::transform));
    }

  private:
    friend class DocumentAccess;
    PexCanvasLayer() = default;

    CGRect placeOn(CGSize canvas) const;
};

template <>
struct Enumeration<PexCanvasLayer::LayerType> {
    using E = PexCanvasLayer::LayerType;
    static constexpr bool capitalized = false;
    static constexpr EnumerationCase<E> cases[] = {{E::image, "Image"}};
};

template <>
struct Enumeration<PexCanvasLayer::Source::Identification> {
    using E = PexCanvasLayer::Source::Identification;
    static constexpr bool capitalized = false;
    static constexpr EnumerationCase<E> cases[] = {
        {E::url, "url"}, {E::shareAppId, "shareAppId"}, {E::image, "image"}};
};

} // namespace pex
