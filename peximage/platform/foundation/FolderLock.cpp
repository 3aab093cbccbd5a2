#include "peximage/platform/foundation/FolderLock.h"

#include "peximage/platform/foundation/Folders.h"
#include "peximage/platform/foundation/Reason.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace pex {
namespace {

using Clock = std::chrono::steady_clock;

/// Long enough for any save. Not endless: a process that was stopped during a save keeps its lock.
constexpr std::chrono::seconds longestWait{10};
constexpr std::chrono::milliseconds betweenAttempts{2};

/// False when others held the lock all the time.
bool lock(int descriptor) {
    for (const auto end = Clock::now() + longestWait; Clock::now() < end;) {
        if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return true; // the file system has no locks
        std::this_thread::sleep_for(betweenAttempts);
    }
    return false;
}

} // namespace

FolderLock::FolderLock(const std::string& folder) {
    if (!makeFolders(folder)) return;
    descriptor_ = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor_ < 0) {
        giveWritingReason(errno);
    } else if (!lock(descriptor_)) {
        ::close(std::exchange(descriptor_, -1));
        giveReason(ReasonCode::timedOut, "another program does not let go of the folder");
    }
}

FolderLock::~FolderLock() {
    if (descriptor_ < 0) return;
    (void)::flock(descriptor_, LOCK_UN); // a process forked meanwhile has the descriptor, too
    ::close(descriptor_);
}

} // namespace pex
