#include "peximage/platform/foundation/Data.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/OpenFile.h"
#include "peximage/platform/foundation/OutOfMemory.h"
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

/// Memory for a whole file. It is not zeroed, and large blocks use huge pages: touching fresh small pages
/// costs as much as reading the file.
std::shared_ptr<std::uint8_t> allocate(std::size_t bytes) {
    if (bytes < hugePage)
        return {static_cast<std::uint8_t*>(std::malloc(std::max<std::size_t>(bytes, 1))), std::free};
    const std::size_t whole = (bytes + hugePage - 1) / hugePage * hugePage;
    void* block = std::aligned_alloc(hugePage, whole);
    if (block) ::madvise(block, whole, MADV_HUGEPAGE);
    return {static_cast<std::uint8_t*>(block), std::free};
}

bool writeInPlace(const std::string& path, std::span<const std::uint8_t> bytes) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    struct stat info {};
    const bool regular = descriptor >= 0 && ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    bool good = descriptor >= 0 && writeAll(descriptor, bytes);
    if (!good) giveWritingReason(errno);
    if (descriptor >= 0 && ::close(descriptor) != 0) {
        giveWritingReason(errno);
        good = false;
    }
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
    return absentWithoutMemory([&]() -> std::optional<Data> {
        const std::optional<OpenFile> file = OpenFile::toRead(url);
        if (!file) return std::nullopt;
        if (file->size() > limit) {
            giveReason(ReasonCode::overLimit, "has " + std::to_string(file->size()) +
                                                  " bytes, more than the limit of " + std::to_string(limit));
            return std::nullopt;
        }
        const std::shared_ptr<std::uint8_t> bytes = allocate(file->size());
        if (!bytes) giveReadingReason(ENOMEM);
        const auto got = bytes ? file->read(0, {bytes.get(), file->size()}) : std::nullopt;
        return got ? std::optional(Data(bytes, *got)) : std::nullopt;
    });
}

std::string_view Data::text() const { return {reinterpret_cast<const char*>(data()), size()}; }

bool Data::write(const URL& url, Writing writing) const {
    if (!url.isFileURL()) {
        giveReason(ReasonCode::badArgument, "is no address of a file");
        return false;
    }
    if (writing == Writing::inPlace) return writeInPlace(url.path(), bytes());
    return absentWithoutMemory([&] { return AtomicFile::save(url.path(), bytes(), AtomicFile::Flush::no); });
}

bool operator==(const Data& a, const Data& b) {
    return std::equal(a.bytes().begin(), a.bytes().end(), b.bytes().begin(), b.bytes().end());
}

} // namespace pex
