#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGPoint.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/varda/PexColor.h"
#include "peximage/platform/varda/PexFont.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace pex {

/// A layered composition: a canvas of a given shape and colour, layers of images, shapes and texts, and
/// guides that the user placed. A plain value that carries no pixels and draws nothing. New ones are made by
/// the manager (PexComposerManager.h) or read from a document.
///
/// Coordinates are normalized: one unit is the width of the canvas as displayed, on both axes, and the origin
/// is the canvas centre. The canvas spans x from -0.5 to 0.5 and y from -0.5 / ratio to 0.5 / ratio. Which
/// way y grows is up to the application that draws.
class PEX_EXPORT PexComposer {
  public:
    /// How near on screen a position must come to a guide to snap to it.
    static constexpr double kGuideSnapDistanceInPixels = 10.0;

    /// One layer. It carries all three payloads; `layerType` says which one is in use.
    class PEX_EXPORT Layer {
      public:
        /// What a layer shows.
        enum class LayerType { image, text, shape };

        /// An image and where to find it.
        struct Image {
            /// Which field of `resourceAccess` names the picture.
            enum class ImageType { url, shareApp, ingested };

            /// Where the picture is; which field counts is told by `type`.
            struct ResourceAccess {
                /// The address of an image file.
                std::optional<URL> url{};
                /// Of a file shared between applications (PexShareApp.h).
                std::optional<std::string> shareAppId{};
                /// Kept for the application; the library does not read it.
                std::optional<std::string> ingestedId{};

                friend bool operator==(const ResourceAccess&, const ResourceAccess&) = default;

                static constexpr auto documentKeys();
            };

            /// Where the picture comes from.
            ImageType type = ImageType::shareApp;
            /// The image's width divided by its height, in pixels; 1 until known.
            double ratio = 1;
            /// Where the picture is.
            ResourceAccess resourceAccess{};

            friend bool operator==(const Image&, const Image&) = default;

            static constexpr auto documentKeys();
        };

        /// A filled or outlined shape.
        struct Shape {
            /// Its outline.
            enum class ShapeType { rectangle, circle };

            /// How a shape is drawn.
            struct Style {
                /// What a shape is filled with. There is one kind.
                enum class FillStyle { color };

                /// The width of the outline, in the application's unit; 0: none.
                double strokeWidth = 0;
                /// Whether the inside is filled.
                bool fill = true;
                /// What it is filled with.
                FillStyle fillStyle = FillStyle::color;
                /// The colour that it is filled with.
                PexColor fillColor{0.5, 0.5, 0.5, 1};

                friend bool operator==(const Style&, const Style&) = default;

                static constexpr auto documentKeys();
            };

            /// Its outline.
            ShapeType type = ShapeType::rectangle;
            /// How it is drawn.
            Style style{};

            friend bool operator==(const Shape&, const Shape&) = default;

            static constexpr auto documentKeys();
        };

        /// A block of text. Reading one never fails on a field: what is missing or malformed becomes an empty
        /// text, courier at 12 points, left, pure white.
        struct Text {
            /// How lines lie beside each other.
            enum class Alignment { left, center, right };

            /// The text itself, in UTF-8.
            std::string text{};
            /// Its font, and its size in points.
            PexFont::Font font = PexFont::Font::courier(64);
            /// How its lines lie beside each other.
            Alignment alignment = Alignment::left;
            /// Its colour.
            PexColor color = PexColor::pureWhite;

            friend bool operator==(const Text&, const Text&) = default;

            static constexpr auto documentKeys();
        };

        /// Where, how large and how opaque the layer is.
        struct Transform {
            /// Factors along both axes.
            struct Scale {
                /// Along the width.
                double x = 1;
                /// Along the height.
                double y = 1;

                friend bool operator==(const Scale&, const Scale&) = default;

                static constexpr auto documentKeys();
            };

            /// The layer's centre, normalized.
            CGPoint location{};
            /// Factors on the layer's size.
            Scale scale{};
            /// Nothing in the library reads it; its unit is the application's.
            double rotation = 0;
            /// From 0, invisible, to 1, opaque.
            double opacity = 1;

            friend bool operator==(const Transform&, const Transform&) = default;

            static constexpr auto documentKeys();
        };

        /// The layer's own identifier.
        std::string id;
        /// Which of the following three is in use.
        LayerType layerType = LayerType::image;
        /// The image of an image layer.
        Image image;
        /// The shape of a shape layer.
        Shape shape;
        /// The text of a text layer.
        Text text;
        /// Where, how large and how opaque the layer is.
        Transform transform;

        friend bool operator==(const Layer&, const Layer&) = default;

        /// The normalized width and height of an image layer: as wide as the canvas, or where the image is
        /// narrower than the canvas so much wider that it is as high, times the layer's scale. Computed from
        /// the image payload whatever the layer's type. Prints two diagnostic lines.
        CGSize imageActualNormalizedSize(const PexComposer& in) const;
        /// Lower edge, centre and upper edge of an image layer. Prints what the size prints and one line
        /// more.
        std::vector<double> imageHGuides(const PexComposer& in) const;
        /// Left edge, centre and right edge of an image layer. Prints what the size prints.
        std::vector<double> imageVGuides(const PexComposer& in) const;
        /// The positions y at which other layers can align with this one: of an image layer edges and centre,
        /// of any other its centre.
        std::vector<double> horizontalGuides(const PexComposer& in) const;
        /// The positions x, likewise.
        std::vector<double> verticalGuides(const PexComposer& in) const;

      private:
        friend class PexComposerManager;
        friend class DocumentAccess;
        Layer() = default;
        static Layer fresh();

        static constexpr auto documentKeys();
    };

    /// A line across the canvas. Reading one never fails on a field: what is missing or malformed becomes a
    /// fresh identifier, horizontal, 0, not intrinsic.
    struct Guide {
        /// Which way a line runs.
        enum class Orientation { horizontal, vertical };

        /// The guide's own identifier.
        std::string id{};
        /// Which way it runs.
        Orientation orientation = Orientation::horizontal;
        /// x of a vertical guide, y of a horizontal one, normalized.
        double location = 0;
        /// True for guides that the composer itself defines, false for those taken from layers.
        bool intrinsic = false;

        static constexpr auto documentKeys();
    };

    /// A text to find and the text to put in its place.
    struct SearchAndReplace {
        /// The text to find.
        std::string search{};
        /// The text to put in its place.
        std::string replace{};

        static constexpr auto documentKeys();
    };

    /// The composer's own identifier.
    std::string id;
    /// Its name, for people.
    std::string name = "Composer";
    /// Canvas width divided by canvas height.
    double ratio = 16.0 / 9;
    /// The layers, in their order.
    std::vector<Layer> layerList;
    /// The guides that the user placed.
    std::vector<Guide> guideList_;
    /// The colour behind the layers.
    PexColor bgColor{0.5, 0.5, 0.5, 1};
    /// A mark kept with the composer; nothing in the library reads or changes it.
    bool shouldBeDeleted = false;
    /// May name a layer that is no longer there.
    std::optional<std::string> selectedLayerId;

    /// A copy in which the text of every layer, whatever its type, has each occurrence of the search text
    /// replaced, whatever its case in any script. What was put in is not searched again; an empty search text
    /// changes nothing.
    PexComposer composer(const SearchAndReplace& with) const;
    /// The same with several pairs, one after the other.
    PexComposer composer(std::span<const SearchAndReplace> with) const;

    // Guides and snapping. All of it is computed anew from the composer at each call.

    /// From pixels relative to the canvas centre to normalized coordinates and back. Both axes are divided or
    /// multiplied by the displayed canvas width.
    /// @{
    static CGPoint normalize(CGPoint point, CGSize to) { return point / to.width; }
    static double normalize(double length, CGSize to) { return length / to.width; }
    static CGPoint deNormalize(CGPoint point, CGSize to) { return point * to.width; }
    static double deNormalize(double length, CGSize to) { return length * to.width; }
    /// @}

    /// The layer's centre in pixels relative to the centre of a canvas displayed in that size.
    static CGPoint actualPosition(const Layer& of, CGSize in);
    /// The same while the layer is dragged by an offset in pixels.
    static CGPoint livePosition(const Layer& of, CGSize inSize, CGSize with);

    /// All guides: those of the user; the centre lines; for each margin, a fraction of the canvas width or
    /// height, the four lines so far inside the edges (right, left, then the two horizontal ones, positive
    /// first); the lines of every layer, horizontal ones first. Computed guides have fresh identifiers.
    std::vector<Guide> guideList(const std::vector<double>& including) const;
    /// The positions x that a layer can snap to, unsorted and with repetitions: the lines of the other
    /// layers, then all vertical guides with the margins 0 and 0.05, among them the layer's own stored lines.
    std::vector<double> verticalGuides(const Layer& forLayer) const;
    /// The positions y, likewise.
    std::vector<double> horizontalGuides(const Layer& forLayer) const;

    /// Where the layer's centre snaps when it is dragged to the normalized coordinate `at` on a canvas
    /// displayed in the size `in`, in pixels: the nearest position within the snap distance that puts the
    /// centre, or an edge of an image layer, on a guide. Of equally near ones the first in the order centre,
    /// lower edge, upper edge, each in the order of the guides. Absent when none is near enough.
    /// @{
    std::optional<double> nearestVerticalGuide(const Layer& forLayer, double at, CGSize in) const;
    std::optional<double> nearestHorizontalGuide(const Layer& forLayer, double at, CGSize in) const;
    /// @}

  private:
    friend class PexComposerManager;
    friend class DocumentAccess;
    PexComposer() = default;
    static PexComposer fresh();

    static constexpr auto documentKeys();
};

} // namespace pex

#include "peximage/composer/PexComposerDocument.h"
