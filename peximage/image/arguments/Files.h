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
    struct PngSize {
        /// In points; the platform image's own size when absent. Pixels over points × 72 is the resolution
        /// that the file records.
        std::optional<CGSize> size = {};
        ImageMetadata metadata = {};
    };

    /// JPEG at a quality.
    struct QualityToUrl {
        double quality;
        std::optional<int> dpi = {};
        std::optional<URL> url = {}, toUrl = {}, to = {};
        ImageMetadata metadata = {};
    };

    /// JPEG within a budget.
    struct ToUrlOfMaxSize {
        std::optional<URL> toUrl = {}, to = {}, url = {};
        std::optional<int> dpi = {};
        /// The most bytes.
        long long maxSize;
        ImageMetadata metadata = {};
    };

    struct UploadTarget {
        /// Absent: "quarn/filePost.php" on the application's server (`PexNet::setServer`).
        std::optional<URL> to = {};
        /// The file's name, without extension.
        std::string withName;
        double quality;
    };

    struct HeifQuality {
        double quality;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };

    struct ToUrlAtHeifQuality {
        std::optional<URL> to = {}, toUrl = {}, url = {};
        double quality;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };

    struct HeifWithin {
        /// The most bytes.
        long long desiredSize;
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };

    struct DesiredHeifSize {
        /// The most bytes.
        long long desiredSize;
        std::optional<URL> to = {}, toUrl = {}, url = {};
        bool useAlpha = true;
        ImageMetadata metadata = {};
    };

    struct PdfDocumentUrl {
        URL pdfDocumentUrl;
        int dpi;
    };

    struct PdfDocumentCallbacks {
        URL pdfDocumentUrl;
        int dpi;
        /// Called on the caller's thread for each page that was drawn, in order: its index from 0, how many
        /// pages the document has, and the image. While it runs some more pages may lie drawn: one for each
        /// core, or fewer where they are large (256 MB together, or a single one).
        std::function<void(int page, int count, std::shared_ptr<PexImage> image)> callback;
        /// Called once, last: false when the file cannot be read or is no PDF document.
        std::function<void(bool success)> finalCallback;
    };

    struct PdfDocumentPage {
        URL pdfDocumentUrl;
        /// From 0.
        int pageN;
        int dpi;
    };
};

} // namespace arguments
} // namespace pex
