#include "peximage/cache/RemoteImages.h"

#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/Queue.h"

#include <utility>

namespace pex {
namespace {

/// Null when there is none.
std::shared_ptr<PexImage> imageIn(const NetworkReply& reply) {
    if (!reply.data) giveReason(reply.reason);
    const auto image = reply.data ? NSImage::make(*reply.data) : nullptr;
    if (reply.data && !image) giveReason(ReasonCode::notAnImage, "not an image");
    return image ? PexImage::make(image, PexImage::DontCreateAuxiliaryVars{}) : nullptr;
}

template <class Origin>
bool isWhole(const Origin& fileOrBytes) {
    std::optional<CGImageSource> source = CGImageSource::make(fileOrBytes);
    return source && !source->isIncomplete();
}

/// The folder of the cache, asked for once per process. Absent when the user has no caches folder.
const std::optional<URL>& downloadCacheFolder() {
    static const auto& folder = *new auto([] { // never freed: background work may outlast the end of main
        const std::optional<URL> caches = fu_getCacheFolderUrl(true);
        return caches ? std::optional(caches->appendingPathComponent("PexImageCache")) : std::nullopt;
    }());
    return folder;
}

/// The file that keeps the image of an address; absent when nothing can be kept.
std::optional<URL> downloadCacheFile(const URL& url) {
    const std::optional<URL>& folder = downloadCacheFolder();
    const std::optional<std::string> name = folder ? PexId::md5(url.path()) : std::nullopt;
    if (!name || !fu_createFolder(*folder)) return std::nullopt;
    return folder->appendingPathComponent(*name + ".jpg");
}

void handOver(const PexImage::CachedImageRequest& request, const std::shared_ptr<PexImage>& image) {
    if (!image && request.failed) request.failed(Reason(lastReason()).message);
    request.callback(image);
}

void arrive(const PexImage::CachedImageRequest& request, const std::optional<URL>& file,
            const NetworkReply& reply) {
    const std::shared_ptr<PexImage> image = imageIn(reply);
    // Saved through an object of its own, since the receiver may use the other one at the same time.
    const bool isKept = image && image->cgImage && file && isWhole(*reply.data);
    const auto kept = isKept ? PexImage::make(*image->cgImage) : nullptr;
    handOver(request, image);
    if (kept) PexImageHelper::saveToJpeg(kept, {.quality = 0.75, .url = *file});
}

void loadOrFetch(const PexImage::CachedImageRequest& request, const std::optional<URL>& file) {
    if (const auto kept = file && isWhole(*file) ? PexImage::make(*file, PexImage::NoTimeOut{}) : nullptr)
        return request.callback(kept);
    readAddressInBackground(
        request.url, {.stop = request.stop}, [request, file, held = Queue::hold()](NetworkReply reply) {
            Queue::execute(false, [=, reply = std::move(reply)] { arrive(request, file, reply); });
        });
}

Task<std::shared_ptr<PexImage>> loadInBackground(URL file) {
    co_await onBackground();
    co_return PexImage::make(file, PexImage::NoTimeOut{});
}

std::shared_ptr<PexImage> decoded(const Data& bytes) {
    auto image = PexImage::make(bytes, PexImage::DontCreateAuxiliaryVars{});
    if (!image) giveReason(ReasonCode::notAnImage, "not an image");
    return image;
}

} // namespace

std::shared_ptr<PexImage> PexImage::make(const HttpUrl& source) {
    return imageIn(readAddress(source.httpUrl));
}

std::shared_ptr<PexImage> PexImage::make(const HttpUrlText& source) {
    const std::optional<URL> url = URL::parse(source.httpUrl);
    return url ? make({.httpUrl = *url}) : nullptr;
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
    if (!downloader)
        return Queue::execute(false, [completion = std::move(request.completion)] {
            giveReason(ReasonCode::badArgument, "no downloader");
            completion(nullptr);
        });
    const auto finish = [downloader, url = request.url,
                         completion = std::move(request.completion)](const Data& bytes) {
        auto image = bytes.empty() ? nullptr : decoded(bytes);
        if (!bytes.empty() && !(image && isWhole(bytes))) downloader->forget(url);
        completion(std::move(image));
    };
    downloader->asyncDownload({request.url, request.timeOut, request.useDiskCache, finish, request.stop});
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
