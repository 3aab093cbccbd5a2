#pragma once

#include "peximage/platform/filters/CIImage.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/geometry/CGSize.h"
#include "peximage/platform/varda/PexSubFiles.h"

#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

namespace pex {

class PexImage;

namespace arguments {

/// What an image can be made of: arguments of `PexImage::make` and its like, under whose name they are found
/// ("PexImage::FastUrl").
struct Making {
    /// An image in the folders that were registered with `NSImage::registerImageFolder`.
    struct Named {
        /// The file's name, with its extension or without.
        std::string_view named;
    };

    /// Options of a file.
    struct NoTimeOut {
        /// Makes no difference: a local file is never waited for.
        bool noTimeOut = false;
    };

    /// A file that is read whole into memory, and decoded from there when its pixels are first needed.
    struct FastUrl {
        /// A local file.
        URL fastUrl;
    };

    /// Options of encoded bytes and desktop images.
    struct DontCreateAuxiliaryVars {
        /// Leaves `cgImage` absent and `size` (0, 0) until `setSize()`.
        bool dontCreateAuxiliaryVars = false;
    };

    /// A filter graph's picture, rendered now.
    struct FromCIImage {
        /// The picture to render.
        CIImage ciImage;
    };

    /// A blank image of so many pixels: its platform image has `size` divided by
    /// `PexImageHelper::bakingScaleFactor()` points.
    struct OfSize {
        /// In pixels.
        CGSize size;
    };

    /// A blank image whose platform image has this size in points.
    struct NotBakedNormalizedSize {
        /// In points.
        CGSize notBakedNormalizedSize;
    };

    /// The icon of an application, as `NSWorkspace` gives it: 1024 pixels a side or as large as it comes.
    struct BundleUrl {
        /// The application's folder.
        URL bundleUrl;
    };

    /// The icon of any file.
    struct ForFile {
        /// A file or folder; nothing need be there.
        URL forFile;
    };

    /// Of an icon, in pixels; at least one.
    struct IconSize {
        /// An icon of that size.
        explicit IconSize(CGSize side) : size(side) {}
        /// In pixels.
        CGSize size;
    };

    /// What is at an address, read on this thread however long it takes: `readAddress` tells which addresses
    /// there are.
    struct HttpUrl {
        /// An http, https or file address.
        URL httpUrl;
    };
    /// The same; null when the text is no address.
    struct HttpUrlText {
        /// An address as text.
        std::string_view httpUrl;
    };

    /// What `getCachedImage` fetches.
    struct CachedImageRequest {
        /// The address of the image.
        URL url;
        /// Called once, later, on a background thread; null when there is no image, and then `lastReason()`
        /// on that thread tells why.
        std::function<void(std::shared_ptr<PexImage> image)> callback;
        /// Where there is none, called just before with the reason in words: "the server answered 404".
        std::function<void(const std::string& why)> failed = {};
        /// Ends the transfer, soon, when it is asked to stop; there is no image then.
        std::stop_token stop = {};
    };

    /// A local file.
    struct From {
        /// The file's address.
        URL from;
    };

    /// What a store has for an identifier.
    struct InSubFiles {
        /// The store.
        PexSubFiles subFiles;
        /// The identifier of the bytes in it.
        std::string id;
    };
};

} // namespace arguments
} // namespace pex
