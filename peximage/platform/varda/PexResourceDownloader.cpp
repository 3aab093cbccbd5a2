#include "peximage/platform/varda/PexResourceDownloader.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Network.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/Queue.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <span>
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

/// The end of a copy: a mark and a check sum of all bytes before it, which tells damaged copies.
struct Seal {
    std::array<char, 4> mark{'p', 'e', 'x', '1'};
    std::uint32_t checkSum = 0;

    friend bool operator==(const Seal&, const Seal&) = default;
};

Seal sealOf(std::span<const std::uint8_t> bytes) {
    return {.checkSum = libdeflate_crc32(0, bytes.data(), bytes.size())};
}

bool writeSealed(const Data& bytes, const URL& copy) {
    const Seal seal = sealOf(bytes.bytes());
    AtomicFile file(copy.path());
    return file.write(bytes.bytes()) &&
           file.write({reinterpret_cast<const std::uint8_t*>(&seal), sizeof seal}) &&
           file.commit(AtomicFile::Flush::no);
}

/// The content of a copy; absent when there is none or it is damaged.
std::optional<Data> readSealed(const URL& copy) {
    const std::size_t most = NetworkLimits::current().maxBytes;
    const std::optional<Data> file = Data::contentsOf(copy, std::max(most, most + sizeof(Seal)));
    if (!file || file->size() < sizeof(Seal)) return std::nullopt;
    const auto content = file->bytes().first(file->size() - sizeof(Seal));
    Seal seal;
    std::memcpy(&seal, content.data() + content.size(), sizeof seal);
    if (seal != sealOf(content)) return std::nullopt;
    return Data(std::vector(content.begin(), content.end()));
}

std::optional<Data> freshBytes(const URL& copy) {
    const std::optional<Time> made = fu_modificationDate(copy);
    const std::chrono::hours freshFor{24 * PexResourceDownloader::freshDays};
    if (!made || std::chrono::system_clock::now() - *made > freshFor) return std::nullopt;
    return readSealed(copy);
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
    if (fu_createFolder(folder) && writeSealed(bytes, copy)) trimCopies(folder);
}

void finish(const PexResourceDownloader::Request& request, const std::optional<URL>& copy,
            const NetworkReply& reply) {
    if (reply.data && copy) keepCopy(*copy, *reply.data);
    if (!reply.data) giveReason(reply.reason);
    request.completion(reply.data.value_or(Data()));
}

void download(const PexResourceDownloader::Request& request) {
    const bool local = request.url.isFileURL();
    const std::optional<URL> copy = request.useDiskCache && !local ? copyOf(request.url) : std::nullopt;
    if (const std::optional<Data> kept = copy ? freshBytes(*copy) : std::nullopt)
        return request.completion(*kept);
    const NetworkOptions options{request.timeOut.value_or(PexResourceDownloader::defaultTimeOut),
                                 request.stop};
    readAddressInBackground(request.url, options, [request, copy, held = Queue::hold()](NetworkReply reply) {
        Queue::execute(false, [=, reply = std::move(reply)] { finish(request, copy, reply); });
    });
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
