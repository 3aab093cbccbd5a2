#include "peximage/platform/foundation/AtomicFile.h"

#include "peximage/platform/foundation/Folders.h"
#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/WriteAll.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <new>
#include <pthread.h>
#include <set>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace pex {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view temporaryStart = ".pex-", temporaryEnd = ".tmp";
constexpr mode_t permissionBits = 0777;

/// The temporary files that this process has right now.
struct Pending {
    LongHeldMutex mutex; // held while files are opened, renamed and removed
    std::set<std::string> names;

    Pending() { ::pthread_atfork(nullptr, nullptr, forgetThoseOfTheParent); }
    static void forgetThoseOfTheParent();

    void add(const std::string& name) {
        const ForkPass pass;
        names.insert(name);
    }
    /// Leaves errno as it is.
    void remove(const std::string& name) {
        const int error = errno;
        {
            const ForkPass pass;
            names.erase(name);
        }
        errno = error;
    }
};

Pending& pending() {
    static auto& instance = *new Pending; // never freed: threads may save while the process ends
    return instance;
}

void Pending::forgetThoseOfTheParent() { pending().names.clear(); }

/// A random name, so that nobody can put a file there in advance, and no two machines that share a folder
/// choose the same one. Empty when the system has no random numbers.
std::string temporaryName(const std::string& path) {
    static constexpr char digits[] = "0123456789abcdef";
    std::array<unsigned char, 12> random;
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) return {};
    std::string name = path.substr(0, path.rfind('/') + 1); // npos + 1 is 0
    name += temporaryStart;
    for (const unsigned char byte : random)
        name += {digits[byte >> 4], digits[byte & 15]};
    return name += temporaryEnd;
}

/// The path with all links resolved. What they lead to need not exist.
std::string withoutLinks(std::string path) {
    constexpr int mostLinks = 40; // as many as the system follows
    for (int i = 0; i < mostLinks; ++i) {
        std::error_code isNoLink;
        const fs::path target = fs::read_symlink(path, isNoLink);
        if (isNoLink) break;
        path = (fs::path(path).parent_path() / target).string();
    }
    return path;
}

/// Takes over owner, group and permissions of the file that is replaced. If the group cannot be kept, the
/// new group gets no more rights than everybody: its members had none in the old file.
void takeOver(const struct stat& replaced, int descriptor) {
    mode_t mode = replaced.st_mode & permissionBits;
    const bool keepsGroup = ::fchown(descriptor, replaced.st_uid, replaced.st_gid) == 0 ||
                            ::fchown(descriptor, static_cast<uid_t>(-1), replaced.st_gid) == 0;
    if (!keepsGroup) mode &= ~mode_t{S_IRWXG} | (mode & S_IRWXO) << 3;
    (void)::fchmod(descriptor, mode); // a file system without permissions has nothing to keep
}

std::atomic<AtomicFile::Observer> stepObserver{nullptr};

void reached(AtomicFile::Step step) {
    if (const AtomicFile::Observer observer = stepObserver.load(std::memory_order_relaxed)) observer(step);
}

} // namespace

void AtomicFile::setObserver(Observer observer) { stepObserver = observer; }

AtomicFile::AtomicFile(std::string path) : path_(std::move(path)) {
    try {
        open();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        fail();
    }
    if (descriptor_ >= 0) reached(Step::created);
}

AtomicFile::~AtomicFile() { discard(); }

void AtomicFile::open() {
    struct stat replaced {};
    const bool replaces = ::stat(path_.c_str(), &replaced) == 0;
    if (!replaces && errno != ENOENT) return fail();
    if (replaces && !S_ISREG(replaced.st_mode)) {
        const bool isFolder = S_ISDIR(replaced.st_mode);
        failure_ = {isFolder ? ReasonCode::isFolder : ReasonCode::notRegularFile,
                    isFolder ? "is a folder" : "is no regular file"};
        return;
    }
    path_ = withoutLinks(std::move(path_));
    if (!create(replaces ? replaced.st_mode & S_IRWXU : 0666)) return fail();
    if (replaces) takeOver(replaced, descriptor_);
}

/// False with errno set.
bool AtomicFile::create(unsigned mode) {
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const std::string folder = fs::path(path_).parent_path().string();
    if (!folder.empty() && !makeFolders(folder)) return false;
    const std::lock_guard lock(pending().mutex);
    for (int attempt = 0; attempt < 16 && descriptor_ < 0; ++attempt) {
        std::string name = temporaryName(path_);
        if (name.empty()) return false;
        pending().add(name);
        descriptor_ = ::open(name.c_str(), flags, mode);
        if (descriptor_ >= 0)
            temporary_ = std::move(name);
        else
            pending().remove(name);
        if (descriptor_ < 0 && errno != EEXIST) return false;
    }
    return descriptor_ >= 0;
}

/// Keeps errno as the reason of this call and all later ones.
void AtomicFile::fail() {
    giveWritingReason(errno);
    failure_ = lastReason();
    discard();
}

bool AtomicFile::write(std::span<const std::uint8_t> bytes) {
    if (descriptor_ >= 0 && !writeAll(descriptor_, bytes)) fail();
    if (descriptor_ < 0) {
        giveReason(failure_);
        return false;
    }
    reached(Step::written);
    return true;
}

bool AtomicFile::commit(Flush flush) {
    if (descriptor_ < 0) {
        giveReason(failure_);
        return false;
    }
    const bool flushed = flush == Flush::no || ::fsync(descriptor_) == 0;
    if (flushed) reached(Step::flushed);
    std::unique_lock lock(pending().mutex);
    if (!flushed || ::close(std::exchange(descriptor_, -1)) != 0 ||
        std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        lock.unlock();
        fail();
        return false;
    }
    pending().remove(std::exchange(temporary_, {}));
    lock.unlock();
    reached(Step::renamed);
    return true;
}

void AtomicFile::discard() {
    if (temporary_.empty()) return;
    const std::lock_guard lock(pending().mutex);
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    ::unlink(temporary_.c_str());
    pending().remove(std::exchange(temporary_, {}));
}

bool AtomicFile::save(const std::string& path, std::span<const std::uint8_t> bytes, Flush flush) {
    AtomicFile file(path);
    return file.write(bytes) && file.commit(flush);
}

bool AtomicFile::isTemporary(std::string_view name) {
    return name.starts_with(temporaryStart) && name.ends_with(temporaryEnd);
}

void AtomicFile::removeStale(const std::string& folder) {
    std::error_code error, ignored;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        struct stat info {};
        if (!isTemporary(entry->path().filename().string()) || ::lstat(entry->path().c_str(), &info) != 0)
            continue;
        const auto age = std::chrono::seconds(std::time(nullptr) - info.st_mtim.tv_sec);
        // A date far in the future comes from a clock that was set back.
        if (S_ISREG(info.st_mode) && std::chrono::abs(age) > longestSave) fs::remove(entry->path(), ignored);
    }
}

void AtomicFile::endAllSaves() {
    pending().mutex.lock(); // for good
    for (const std::string& name : pending().names)
        ::unlink(name.c_str());
}

} // namespace pex
