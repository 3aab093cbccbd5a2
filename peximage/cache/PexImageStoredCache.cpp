#include "peximage/cache/PexImageStoredCache.h"

#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/Queue.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

namespace pex {
namespace fs = std::filesystem;
namespace {

constexpr double storedQuality = 0.75;
constexpr double secondsADay = 86400;

std::string_view extensionOf(PexImageStoredCache::Mode mode) {
    return mode == PexImageStoredCache::Mode::png ? ".png" : ".jpg";
}

/// A file or folder inside `folder`. Absent when the relative path names the folder itself, leads out of it,
/// or is not accepted by the file system.
std::optional<URL> inside(const URL& folder, std::string_view relative) {
    constexpr std::size_t longestName = 255;
    if (relative.find('\0') != std::string_view::npos) return std::nullopt;
    const std::string root = fs::path(folder.path() + '/').lexically_normal().string();
    std::string path = fs::path(root + std::string(relative)).lexically_normal().string();
    if (path.ends_with('/')) path.pop_back();
    if (!path.starts_with(root)) return std::nullopt;
    for (const fs::path& part : fs::path(path))
        if (part.native().size() > longestName) return std::nullopt;
    return URL::fromPath(path);
}

/// A second object for the same image, for another thread: the caller may go on using the first.
std::shared_ptr<PexImage> twin(const PexImage& image) {
    const auto bitmap = image.image->cgImageForProposedRect();
    auto copy = PexImage::make(bitmap ? NSImage::make(*bitmap, image.image->size()) : image.image,
                               {.dontCreateAuxiliaryVars = true});
    copy->size = image.size;
    copy->cgImage = image.cgImage;
    if (image.bitmapRep_) copy->bitmapRep_ = std::make_shared<NSBitmapImageRep>(image.bitmapRep_->cgImage());
    return copy;
}

std::optional<Data> encoded(const std::shared_ptr<PexImage>& image, PexImageStoredCache::Mode mode) {
    if (mode == PexImageStoredCache::Mode::png) return image->pngData();
    return PexImageHelper::jpegData(image, {.quality = storedQuality, .dpi = {}});
}

/// The savers of the helper delete what is there before they write, and another process may be reading it.
bool save(const std::shared_ptr<PexImage>& image, PexImageStoredCache::Mode mode, const URL& url) {
    const std::optional<Data> bytes = encoded(image, mode);
    return bytes && bytes->write(url, Data::Writing::atomically);
}

std::shared_ptr<PexImage> readWhole(const URL& url) {
    auto image = PexImage::make({.fastUrl = url});
    const bool whole = image && image->cgImage && !image->cgImage->isIncomplete();
    return whole ? image : nullptr;
}

/// Whether the file is older than so many seconds. A file from the future (the clock was set back) gets the
/// present date, so that it can grow old.
bool isOlder(const URL& file, double seconds) {
    const auto date = fu_modificationDate(file);
    if (!date) return false;
    const double age = std::chrono::duration<double>(std::chrono::system_clock::now() - *date).count();
    std::error_code ignored;
    if (age < 0) fs::last_write_time(file.path(), fs::file_time_type::clock::now(), ignored);
    return age > seconds;
}

std::size_t removeOld(const std::vector<URL>& files, std::int64_t days) {
    const double life = static_cast<double>(days) * secondsADay;
    constexpr double longestSave = std::chrono::duration<double>(AtomicFile::longestSave).count();
    return static_cast<std::size_t>(std::count_if(files.begin(), files.end(), [&](const URL& file) {
        const bool isTemporary = AtomicFile::isTemporary(file.lastPathComponent());
        return isOlder(file, isTemporary ? longestSave : life) && fu_deleteFile(file);
    }));
}

} // namespace

PexImageStoredCache::PexImageStoredCache(Settings settings)
    : name(std::move(settings.name)),
      removeItemsAfterDays(settings.removeItemsAfterDays),
      mode(settings.mode),
      resizeMinSideToMax(settings.resizeMinSideToMax) {
    PexImageStoredCache::removeOldItems();
}

std::shared_ptr<PexImageStoredCache> PexImageStoredCache::make(Settings settings) {
    return std::shared_ptr<PexImageStoredCache>(new PexImageStoredCache(std::move(settings)));
}

std::optional<URL> PexImageStoredCache::folder() const {
    const std::optional<URL> caches = fu_getCacheFolderUrl(true);
    return caches && caches->isFileURL() ? inside(*caches, name) : std::nullopt;
}

std::optional<URL> PexImageStoredCache::fileFor(std::string_view id) const {
    const std::optional<URL> own = folder();
    return own ? inside(*own, std::string(id) + std::string(extensionOf(mode))) : std::nullopt;
}

std::vector<URL> PexImageStoredCache::files() const {
    const std::optional<URL> own = folder();
    return own ? fu_filesInFolder(*own) : std::vector<URL>();
}

std::optional<URL> PexImageStoredCache::imageUrl(std::string_view with) const {
    std::optional<URL> url = fileFor(with);
    if (url) fu_createFolder(url->deletingLastPathComponent());
    return url;
}

bool PexImageStoredCache::storeNow(const std::shared_ptr<PexImage>& image, const std::string& withId) {
    const std::optional<URL> url = imageUrl(withId);
    if (!image || !url) return false;
    std::shared_ptr<PexImage> stored = image;
    if (resizeMinSideToMax) {
        const auto resized =
            image->resize({.withMinSideBoundedTo = static_cast<double>(*resizeMinSideToMax)});
        if (resized) stored = resized;
    }
    return save(stored, mode, *url);
}

void PexImageStoredCache::store(const std::shared_ptr<PexImage>& image, const std::string& withId) {
    if (!image) return;
    Queue::execute(
        false, [self = shared_from_this(), copy = twin(*image), withId] { self->storeNow(copy, withId); });
}

std::shared_ptr<PexImage> PexImageStoredCache::retrieveImage(const std::string& withId) {
    const std::optional<URL> url = imageUrl(withId);
    return url && fu_fileExists(*url) ? readWhole(*url) : nullptr;
}

std::shared_ptr<PexImage> PexImageStoredCache::retrieveOrCalc(const ImageOrCalc& request) {
    if (const auto made = cache.value(request.imageWithId)) return *made;
    if (auto stored = retrieveImage(request.imageWithId)) return stored;
    auto image = request.calc ? request.calc() : nullptr;
    if (!image) return nullptr;
    store(image, request.imageWithId);
    cache.set(request.imageWithId, image, true);
    return image;
}

void PexImageStoredCache::removeOldItems() {
    Queue::execute(false, [files = files(), days = removeItemsAfterDays] { removeOld(files, days); });
}

std::size_t PexImageStoredCache::removeOldItemsNow() { return removeOld(files(), removeItemsAfterDays); }

std::vector<std::string> PexImageStoredCache::identifiers() const {
    std::vector<std::string> all;
    const std::optional<URL> own = folder();
    const std::string_view extension = extensionOf(mode);
    for (const URL& file : files()) {
        std::string id = file.path().substr(own->path().size() + 1);
        if (!id.ends_with(extension)) continue;
        id.resize(id.size() - extension.size());
        all.push_back(std::move(id));
    }
    return all;
}

} // namespace pex
