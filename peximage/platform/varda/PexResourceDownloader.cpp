#include "peximage/platform/varda/PexResourceDownloader.h"

#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/Queue.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace pex {
namespace {

using Time = std::chrono::system_clock::time_point;

std::optional<URL> copiesFolder() {
    const std::optional<URL> caches = fu_getCacheFolderUrl(true);
    return caches ? std::optional(caches->appendingPathComponent("PexResourceDownloader")) : std::nullopt;
}

/// Absent when no copies can be kept.
std::optional<URL> copyOf(const URL& url) {
    const std::optional<URL> folder = copiesFolder();
    const std::optional<std::string> name = folder ? PexId::md5(url.absoluteString()) : std::nullopt;
    return name ? std::optional(folder->appendingPathComponent(*name)) : std::nullopt;
}

std::optional<Data> freshBytes(const URL& copy) {
    const std::optional<Time> made = fu_modificationDate(copy);
    const std::chrono::hours freshFor{24 * PexResourceDownloader::freshDays};
    if (!made || std::chrono::system_clock::now() - *made > freshFor) return std::nullopt;
    return Data::contentsOf(copy, NetworkLimits::current().maxBytes);
}

struct Copy {
    Time made;
    std::size_t bytes;
    URL url;
};

std::vector<Copy> copiesOldestFirst(const URL& folder) {
    std::vector<Copy> copies;
    for (const URL& file : fu_filesInFolder(folder)) {
        std::error_code error;
        const auto bytes = std::filesystem::file_size(file.path(), error);
        const std::optional<Time> made = fu_modificationDate(file);
        if (!error && made) copies.push_back({*made, bytes, file});
    }
    std::sort(copies.begin(), copies.end(), [](const Copy& a, const Copy& b) { return a.made < b.made; });
    return copies;
}

void trimCopies(const URL& folder) {
    const std::vector<Copy> copies = copiesOldestFirst(folder);
    std::size_t total = 0;
    for (const Copy& copy : copies)
        total += copy.bytes;
    for (auto copy = copies.begin(); copy != copies.end() && total > PexResourceDownloader::maxDiskBytes;
         ++copy) {
        fu_deleteFile(copy->url);
        total -= copy->bytes;
    }
}

void keepCopy(const URL& copy, const Data& bytes) {
    const URL folder = copy.deletingLastPathComponent();
    if (fu_createFolder(folder) && bytes.write(copy, Data::Writing::atomically)) trimCopies(folder);
}

void download(const PexResourceDownloader::Request& request) {
    const bool local = request.url.isFileURL();
    const std::optional<URL> copy = request.useDiskCache && !local ? copyOf(request.url) : std::nullopt;
    if (const std::optional<Data> kept = copy ? freshBytes(*copy) : std::nullopt)
        return request.completion(*kept);
    const double timeOut = request.timeOut.value_or(PexResourceDownloader::defaultTimeOut);
    const NetworkReply reply = readAddress(request.url, timeOut);
    if (reply.data && copy) keepCopy(*copy, *reply.data);
    request.completion(reply.data.value_or(Data()));
}

} // namespace

void PexResourceDownloader::asyncDownload(Request request) {
    if (!request.completion) return;
    Queue::execute(false, [request = std::move(request)] { download(request); });
}

void PexResourceDownloader::forget(const URL& url) {
    if (const std::optional<URL> copy = copyOf(url)) fu_deleteFile(*copy);
}

} // namespace pex
