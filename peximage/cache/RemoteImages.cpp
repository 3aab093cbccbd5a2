#include "peximage/cache/RemoteImages.h"

#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/Queue.h"

#include <utility>

namespace pex {
namespace {

using WhyNot = std::function<void(const std::string& why)>;

/// Null when there is none; then `whyNot`, where it is set, was told the reason.
std::shared_ptr<PexImage> imageAt(const URL& url, const WhyNot& whyNot = {}) {
    const NetworkReply reply = readAddress(url);
    const auto image = reply.data ? NSImage::make(*reply.data) : nullptr;
    if (!image && whyNot) whyNot(reply.data ? "not an image" : reply.problem);
    return image ? PexImage::make(image, PexImage::DontCreateAuxiliaryVars{}) : nullptr;
}

/// The same folder for as long as the process runs. Absent when the user has none for caches.
const std::optional<URL>& downloadCacheFolder() {
    static const std::optional<URL> folder = [] {
        const std::optional<URL> caches = fu_getCacheFolderUrl(true);
        return caches ? std::optional(caches->appendingPathComponent("PexImageCache")) : std::nullopt;
    }();
    return folder;
}

/// Absent when nothing can be kept.
std::optional<URL> downloadCacheFile(const URL& url) {
    const std::optional<URL>& folder = downloadCacheFolder();
    const std::optional<std::string> name = folder ? PexId::md5(url.path()) : std::nullopt;
    if (!name || !fu_createFolder(*folder)) return std::nullopt;
    return folder->appendingPathComponent(*name + ".jpg");
}

void loadOrFetch(const PexImage::CachedImageRequest& request, const std::optional<URL>& file) {
    if (const auto kept = file ? PexImage::make(*file, PexImage::NoTimeOut{}) : nullptr)
        return request.callback(kept);
    const std::shared_ptr<PexImage> image = imageAt(request.url, request.failed);
    // An object of its own for saving: the callback's receiver may use the other one at the same time.
    const auto kept = image && image->cgImage && file ? PexImage::make(*image->cgImage) : nullptr;
    request.callback(image);
    if (kept) PexImageHelper::saveToJpeg(kept, {.quality = 0.75, .url = *file});
}

Task<std::shared_ptr<PexImage>> loadInBackground(URL file) {
    co_await onBackground();
    co_return PexImage::make(file, PexImage::NoTimeOut{});
}

std::shared_ptr<PexImage> decoded(const Data& bytes) {
    return PexImage::make(bytes, PexImage::DontCreateAuxiliaryVars{});
}

} // namespace

std::shared_ptr<PexImage> PexImage::make(const HttpUrl& source) { return imageAt(source.httpUrl); }

std::shared_ptr<PexImage> PexImage::make(const HttpUrlText& source) {
    const std::optional<URL> url = URL::parse(source.httpUrl);
    return url ? imageAt(*url) : nullptr;
}

void PexImage::getCachedImage(CachedImageRequest request) {
    if (!request.callback) return;
    std::optional<URL> file = downloadCacheFile(request.url);
    Queue::execute(false,
                   [file = std::move(file), request = std::move(request)] { loadOrFetch(request, file); });
}

Task<std::shared_ptr<PexImage>> PexImage::download(From source) {
    return loadInBackground(std::move(source.from));
}

Task<std::shared_ptr<PexImage>> PexImage::make(InSubFiles source) {
    return getImage(std::move(source.subFiles), SubFileWithId{std::move(source.id)});
}

void asyncDownload(const std::shared_ptr<PexResourceDownloader>& downloader, ImageDownload request) {
    if (!request.completion) return;
    const auto finish = [downloader, url = request.url,
                         completion = std::move(request.completion)](const Data& bytes) {
        auto image = decoded(bytes);
        if (!image && !bytes.empty()) downloader->forget(url);
        completion(std::move(image));
    };
    downloader->asyncDownload({request.url, request.timeOut, request.useDiskCache, finish});
}

Task<std::shared_ptr<PexImage>> getImage(QuarnData store, QuarnData::WithId item) {
    Task<std::optional<QuarnData::Result>> asked = store.getData(std::move(item));
    const std::optional<QuarnData::Result> result = co_await asked;
    co_return result ? decoded(result->data) : nullptr;
}

Task<std::shared_ptr<PexImage>> getImage(PexSubFiles store, SubFileWithId item) {
    Task<std::optional<Data>> asked = store.data({.forId = std::move(item.withId)});
    const std::optional<Data> bytes = co_await asked;
    co_return bytes ? decoded(*bytes) : nullptr;
}

} // namespace pex
