#include "peximage/platform/foundation/OpenFile.h"

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/URL.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace pex {

std::optional<OpenFile> OpenFile::toRead(const URL& url) {
    if (!url.isFileURL()) {
        giveReason(ReasonCode::badArgument, "is no address of a file");
        return std::nullopt;
    }
    OpenFile file(::open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK), 0);
    struct stat info {};
    if (file.descriptor_ < 0 || ::fstat(file.descriptor_, &info) != 0) {
        giveReadingReason(errno);
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) {
        if (S_ISDIR(info.st_mode))
            giveReason(ReasonCode::isFolder, "is a folder");
        else
            giveReason(ReasonCode::notRegularFile, "is no regular file");
        return std::nullopt;
    }
    file.size_ = static_cast<std::size_t>(info.st_size);
    return file;
}

OpenFile::OpenFile(OpenFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), size_(other.size_) {}

OpenFile::~OpenFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<std::size_t> OpenFile::read(std::size_t offset, std::span<std::uint8_t> into) const {
    std::size_t filled = 0;
    while (filled < into.size()) {
        const ssize_t got = ::pread(descriptor_, into.data() + filled, into.size() - filled,
                                    static_cast<off_t>(offset + filled));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            giveReadingReason(errno);
            return std::nullopt;
        }
        if (got == 0) break;
        filled += static_cast<std::size_t>(got);
    }
    return filled;
}

} // namespace pex
