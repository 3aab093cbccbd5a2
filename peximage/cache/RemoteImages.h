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

namespace pex {

struct ImageDownload {
    URL url;
    /// In seconds; absent: the downloader's own.
    std::optional<double> timeOut = {};
    bool useDiskCache = true;
    /// Called once, later, on a background thread; null when there is no image.
    std::function<void(std::shared_ptr<PexImage> image)> completion;
};
/// Fetches an image through a downloader, which must not be null. A copy on disk that is no image is dropped.
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
