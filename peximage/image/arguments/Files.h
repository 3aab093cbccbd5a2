#pragma once

#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGSize.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace pex {

class PexImage;

namespace arguments {

/// Arguments of `PexImage`'s encoding, saving, uploading and document import, found under its name
/// ("PexImage::HeifWithin"). Qualities are 0 … 1, 1 best; budgets are bytes. A destination is said under
/// whichever of its names one likes: `url`, `toUrl` and `to` are one. `metadata` is what the file says about
/// the picture beside its pixels, such as `CGImageSource::metadata` of the one that it was made from; it
/// counts in a budget.
struct Files {
    /// PNG of the platform image.
    struct PngSize {
        /// In points; the platform image's own size when absent. Pixels over points × 72 is the resolution
        /// that the file records.
        std::optional<CGSize> size = {};
        /// What the file says about the picture.
        ImageMetadata metadata = {};
    };

    /// JPEG at a quality.
    struct QualityToUrl {
        /// 0 … 1, 1 best.
        double quality;
        /// Dots per inch written into the file; absent leaves what the encoder wrote.
        std::optional<int> dpi = {};
        /// The destination, a local file, under one of these names.
        /// @{
        std::optional<URL> url = {}, toUrl = {}, to = {};
        /// @}
        /// What the file says about the picture.
        ImageMetadata metadata = {};
    };

    /// JPEG within a budget.
    struct ToUrlOfMaxSize {
        /// The destination, a local file, under one of these names.
        /// @{
        std::optional<URL> toUrl = {}, to = {}, url = {};
        /// @}
        /// Dots per inch written into the file; absent leaves what the encoder wrote.
        std::optional<int> dpi = {};
        /// The most bytes.
        long long maxSize;
        /// What the file says about the picture; it counts in the budget.
        ImageMetadata metadata = {};
    };

    /// An upload as JPEG.
    struct UploadTarget {
        /// Absent: "quarn/filePost.php" on the application's server (`PexNet::setServer`).
        std::optional<URL> to = {};
        /// The file's name, without extension.
        std::string withName;
        /// 0 … 1, 1 best.
        double quality;
    };

    /// HEIF at a quality.
    struct HeifQuality {
        /// 0 … 1, 1 best.
        double quality;
        /// Whether the opacity is written; if not, there are 10 bits a component instead of 8.
        bool useAlpha = true;
        /// What the file says about the picture.
        ImageMetadata metadata = {};
    };

    /// A HEIF file at a quality.
    struct ToUrlAtHeifQuality {
        /// The destination, a local file, under one of these names.
        /// @{
        std::optional<URL> to = {}, toUrl = {}, url = {};
        /// @}
        /// 0 … 1, 1 best.
        double quality;
        /// Whether the opacity is written; if not, there are 10 bits a component instead of 8.
        bool useAlpha = true;
        /// What the file says about the picture.
        ImageMetadata metadata = {};
    };

    /// HEIF within a budget.
    struct HeifWithin {
        /// The most bytes.
        long long desiredSize;
        /// Whether the opacity is written; if not, there are 10 bits a component instead of 8.
        bool useAlpha = true;
        /// What the file says about the picture; it counts in the budget.
        ImageMetadata metadata = {};
    };

    /// A HEIF file within a budget.
    struct DesiredHeifSize {
        /// The most bytes.
        long long desiredSize;
        /// The destination, a local file, under one of these names.
        /// @{
        std::optional<URL> to = {}, toUrl = {}, url = {};
        /// @}
        /// Whether the opacity is written; if not, there are 10 bits a component instead of 8.
        bool useAlpha = true;
        /// What the file says about the picture; it counts in the budget.
        ImageMetadata metadata = {};
    };

    /// All pages of a document.
    struct PdfDocumentUrl {
        /// A local file.
        URL pdfDocumentUrl;
        /// Pixels per inch.
        int dpi;
    };

    /// All pages of a document, drawn one after another.
    struct PdfDocumentCallbacks {
        /// A local file.
        URL pdfDocumentUrl;
        /// Pixels per inch.
        int dpi;
        /// Called on the caller's thread for each page that was drawn, in order: its index from 0, how many
        /// pages the document has, and the image. While it runs some more pages may lie drawn: one for each
        /// core, or fewer where they are large (256 MB together, or a single one).
        std::function<void(int page, int count, std::shared_ptr<PexImage> image)> callback;
        /// Called once, last: false when the file cannot be read or is no PDF document.
        std::function<void(bool success)> finalCallback;
    };

    /// One page of a document.
    struct PdfDocumentPage {
        /// A local file.
        URL pdfDocumentUrl;
        /// From 0.
        int pageN;
        /// Pixels per inch.
        int dpi;
    };
};

} // namespace arguments
} // namespace pex
