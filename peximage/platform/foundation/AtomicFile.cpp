#include "peximage/platform/foundation/AtomicFile.h"

#include "peximage/platform/foundation/WriteAll.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace pex {
namespace {

/// Unique among all threads and processes that write into the folder.
std::string temporaryName(const std::string& path) {
    static std::atomic<unsigned> counter{0};
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    return folder + ".pex-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".tmp";
}

std::atomic<AtomicFile::Observer> stepObserver{nullptr};

void reached(AtomicFile::Step step) {
    if (const AtomicFile::Observer observer = stepObserver.load(std::memory_order_relaxed)) observer(step);
}

} // namespace

void AtomicFile::setObserver(Observer observer) { stepObserver = observer; }

AtomicFile::AtomicFile(std::string path) : path_(std::move(path)) {
    struct stat existing {};
    const bool replaces = ::stat(path_.c_str(), &existing) == 0;
    if (replaces && !S_ISREG(existing.st_mode)) return; // a folder or a device is never renamed over
    for (int attempt = 0; attempt < 16 && descriptor_ < 0; ++attempt) {
        temporary_ = temporaryName(path_);
        descriptor_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ < 0 && errno != EEXIST) break;
    }
    if (descriptor_ < 0) temporary_.clear();
    // A save does not widen or narrow who may read the file.
    else if (replaces)
        (void)::fchmod(descriptor_, existing.st_mode & 07777);
    if (descriptor_ >= 0) reached(Step::created);
}

AtomicFile::~AtomicFile() { discard(); }

bool AtomicFile::write(std::span<const std::uint8_t> bytes) {
    if (descriptor_ >= 0 && !writeAll(descriptor_, bytes)) discard();
    if (descriptor_ >= 0) reached(Step::written);
    return descriptor_ >= 0;
}

bool AtomicFile::commit(Flush flush) {
    if (descriptor_ < 0) return false;
    const bool flushed = flush == Flush::no || ::fsync(descriptor_) == 0;
    const bool closed = ::close(std::exchange(descriptor_, -1)) == 0;
    if (flushed) reached(Step::flushed);
    if (flushed && closed && std::rename(temporary_.c_str(), path_.c_str()) == 0) {
        temporary_.clear();
        reached(Step::renamed);
        return true;
    }
    discard();
    return false;
}

void AtomicFile::discard() {
    if (descriptor_ >= 0)
        ::close(std::exchange(descriptor_, -1));
    else if (temporary_.empty())
        return;
    ::unlink(temporary_.c_str());
    temporary_.clear();
}

} // namespace pex
