#include "peximage/platform/foundation/Data.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/URL.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pex {
namespace {

/// Reads until the end or until `limit` is passed; the size that the file claims is only a hint.
bool readAll(int descriptor, std::vector<std::uint8_t>& bytes, std::size_t limit) {
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) bytes.resize(std::max<std::size_t>(bytes.size() * 2, 65536));
        const ssize_t got = ::read(descriptor, bytes.data() + filled, bytes.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
        if (filled > limit) return false;
    }
    bytes.resize(filled);
    return true;
}

bool writeInPlace(const std::string& path, std::span<const std::uint8_t> bytes) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) return false;
    struct stat info {};
    const bool regular = ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    bool good = true;
    while (good && !bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        good = written > 0;
        if (good) bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    good = ::close(descriptor) == 0 && good;
    if (!good && regular) ::unlink(path.c_str());
    return good;
}

} // namespace

Data::Data(std::vector<std::uint8_t> bytes)
    : bytes_(std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))) {}

Data::Data(std::string_view text) : Data(std::vector<std::uint8_t>(text.begin(), text.end())) {}

std::optional<Data> Data::contentsOf(const URL& url, std::size_t limit) {
    if (!url.isFileURL()) return std::nullopt;
    const int descriptor = ::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return std::nullopt;
    struct stat info {};
    std::optional<Data> data;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) &&
        static_cast<std::size_t>(info.st_size) <= limit) {
        // One byte more than the file claims, so that the usual file is read in one call and its end seen in
        // the next.
        std::vector<std::uint8_t> bytes(static_cast<std::size_t>(info.st_size) + 1);
        if (readAll(descriptor, bytes, limit)) data = Data(std::move(bytes));
    }
    ::close(descriptor);
    return data;
}

std::string_view Data::text() const { return {reinterpret_cast<const char*>(data()), size()}; }

bool Data::write(const URL& url, Writing writing) const {
    if (!url.isFileURL()) return false;
    if (writing == Writing::inPlace) return writeInPlace(url.path(), bytes());
    AtomicFile file(url.path());
    return file.write(bytes()) && file.commit();
}

bool operator==(const Data& a, const Data& b) {
    return std::equal(a.bytes().begin(), a.bytes().end(), b.bytes().begin(), b.bytes().end());
}

} // namespace pex
