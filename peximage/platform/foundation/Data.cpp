#include "peximage/platform/foundation/Data.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/foundation/WriteAll.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pex {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;

/// Memory that is not zeroed, in huge pages where it is large: a file fills it at once, and touching fresh
/// small pages costs as much as reading.
std::shared_ptr<std::uint8_t> allocate(std::size_t bytes) {
    if (bytes < hugePage)
        return {static_cast<std::uint8_t*>(std::malloc(std::max<std::size_t>(bytes, 1))), std::free};
    const std::size_t whole = (bytes + hugePage - 1) / hugePage * hugePage;
    void* block = std::aligned_alloc(hugePage, whole);
    if (block) ::madvise(block, whole, MADV_HUGEPAGE);
    return {static_cast<std::uint8_t*>(block), std::free};
}

/// The bytes read, which are fewer than asked for at the end of the file; absent on an error.
std::optional<std::size_t> readAll(int descriptor, std::span<std::uint8_t> into) {
    std::size_t filled = 0;
    while (filled < into.size()) {
        const ssize_t got = ::read(descriptor, into.data() + filled, into.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

/// The size of a regular file of at most that many bytes.
std::optional<std::size_t> sizeOf(int descriptor, std::size_t limit) {
    struct stat info {};
    if (::fstat(descriptor, &info) != 0)
        giveReadingReason(errno);
    else if (S_ISDIR(info.st_mode))
        giveReason(ReasonCode::isFolder, "is a folder");
    else if (!S_ISREG(info.st_mode))
        giveReason(ReasonCode::notRegularFile, "is no regular file");
    else if (static_cast<std::size_t>(info.st_size) > limit)
        giveReason(ReasonCode::overLimit, "is larger than " + std::to_string(limit) + " bytes");
    else
        return static_cast<std::size_t>(info.st_size);
    return std::nullopt;
}

bool writeInPlace(const std::string& path, std::span<const std::uint8_t> bytes) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) return false;
    struct stat info {};
    const bool regular = ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    bool good = writeAll(descriptor, bytes);
    good = ::close(descriptor) == 0 && good;
    if (!good && regular) ::unlink(path.c_str());
    return good;
}

} // namespace

Data::Data(std::vector<std::uint8_t> bytes) : size_(bytes.size()) {
    const auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    bytes_ = {owner, owner->data()};
}

Data::Data(std::string_view text) : Data(std::vector<std::uint8_t>(text.begin(), text.end())) {}

std::optional<Data> Data::contentsOf(const URL& url, std::size_t limit) {
    if (!url.isFileURL()) {
        giveReason(ReasonCode::badArgument, "is no address of a file");
        return std::nullopt;
    }
    const int descriptor = ::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        giveReadingReason(errno);
        return std::nullopt;
    }
    std::optional<Data> data;
    if (const auto size = sizeOf(descriptor, limit)) {
        const std::shared_ptr<std::uint8_t> bytes = allocate(*size);
        errno = ENOMEM;
        const auto got = bytes ? readAll(descriptor, {bytes.get(), *size}) : std::nullopt;
        if (got)
            data = Data(bytes, *got);
        else
            giveReadingReason(errno);
    }
    ::close(descriptor);
    return data;
}

std::string_view Data::text() const { return {reinterpret_cast<const char*>(data()), size()}; }

bool Data::write(const URL& url, Writing writing) const {
    if (!url.isFileURL()) return false;
    if (writing == Writing::inPlace) return writeInPlace(url.path(), bytes());
    return AtomicFile::save(url.path(), bytes(), AtomicFile::Flush::no);
}

bool operator==(const Data& a, const Data& b) {
    return std::equal(a.bytes().begin(), a.bytes().end(), b.bytes().begin(), b.bytes().end());
}

} // namespace pex
