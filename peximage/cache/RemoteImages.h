#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/varda/PexResourceDownloader.h"
#include "peximage/platform/varda/PexSubFiles.h"
#include "peximage/platform/varda/QuarnData.h"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

namespace pex {

/// What `asyncDownload` fetches.
struct ImageDownload {
    /// Where the image is: an http, https or file address.
    URL url;
    /// In seconds; absent: the downloader's own.
    std::optional<double> timeOut = {};
    /// Whether a copy on disk may stand in, and is kept of what was fetched.
    bool useDiskCache = true;
    /// Called once, later, on a background thread. The image is null when there is none; then `lastReason()`
    /// on that thread tells why.
    std::function<void(std::shared_ptr<PexImage> image)> completion;
    /// Ends the transfer, soon, when it is asked to stop.
    std::stop_token stop = {};
};
/// Fetches an image through a downloader; through null there is none. A copy on disk that is no image, or is
/// cut short, is deleted.
PEX_EXPORT void asyncDownload(const std::shared_ptr<PexResourceDownloader>& downloader,
                              ImageDownload request);

/// The image that a remote store has for an identifier; null when there is none.
PEX_EXPORT Task<std::shared_ptr<PexImage>> getImage(QuarnData store, QuarnData::WithId item);

/// Options of `getImage`.
struct SubFileWithId {
    /// The identifier of the bytes in the store.
    std::string withId;
};
/// The image that a folder's store has for an identifier; null when there is none.
PEX_EXPORT Task<std::shared_ptr<PexImage>> getImage(PexSubFiles store, SubFileWithId item);

} // namespace pex
