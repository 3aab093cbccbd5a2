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

struct ImageDownload {
    URL url;
    /// In seconds; absent: the downloader's own.
    std::optional<double> timeOut = {};
    bool useDiskCache = true;
    /// Called once, later, on a background thread; null when there is no image, and then `lastReason()` there
    /// tells why.
    std::function<void(std::shared_ptr<PexImage> image)> completion;
    /// Ends the transfer, soon, when it is asked to stop.
    std::stop_token stop = {};
};
/// Fetches an image through a downloader; without one there is none. A copy on disk that is no image, or ends
/// before the picture does, is dropped.
PEX_EXPORT void asyncDownload(const std::shared_ptr<PexResourceDownloader>& downloader,
                              ImageDownload request);

/// The image that a remote store has for an identifier; null when there is none.
PEX_EXPORT Task<std::shared_ptr<PexImage>> getImage(QuarnData store, QuarnData::WithId item);

struct SubFileWithId {
    std::string withId;
};
/// The image that a folder's store has for an identifier; null when there is none.
PEX_EXPORT Task<std::shared_ptr<PexImage>> getImage(PexSubFiles store, SubFileWithId item);

} // namespace pex
