#include "peximage/platform/foundation/Reason.h"

#include "peximage/platform/foundation/ReasonWatch.h"

#include <cerrno>
#include <cstddef>
#include <new>
#include <pthread.h>
#include <system_error>

namespace pex {
namespace {

constinit thread_local unsigned givenToThread = 0;

alignas(Reason) constinit thread_local std::byte memoryOfReason[sizeof(Reason)]{};
constinit thread_local bool hasReason = false;

void endReason(void*) {
    reinterpret_cast<Reason*>(memoryOfReason)->~Reason();
    hasReason = false;
}

/// A key of the thread library: it notes a destructor without memory, for lack of which `thread_local`
/// aborts.
void endWithThread() {
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        pthread_key_create(&made, endReason);
        return made;
    }();
    pthread_setspecific(key, memoryOfReason);
}

/// Also for what asks while the thread ends, or the process does, and other such objects are gone.
Reason& reasonOfThread() {
    if (!hasReason) {
        ::new (memoryOfReason) Reason;
        hasReason = true;
        endWithThread();
    }
    return *std::launder(reinterpret_cast<Reason*>(memoryOfReason));
}

/// What reading and writing have in common; the fallback for everything else.
ReasonCode codeOf(int systemError, ReasonCode fallback) {
    switch (systemError) {
    case ENOENT:
    case ENOTDIR:
        return ReasonCode::noSuchFile;
    case EISDIR:
        return ReasonCode::isFolder;
    case EACCES:
    case EPERM:
    case EROFS:
        return ReasonCode::noPermission;
    case EMFILE:
    case ENFILE:
        return ReasonCode::tooManyOpenFiles;
    case ENOMEM:
        return ReasonCode::outOfMemory;
    case ENOSPC:
    case EDQUOT:
        return ReasonCode::diskFull;
    default:
        return fallback;
    }
}

/// What people ask about often, in words that need no second reading; empty for what is rare.
std::string_view plainWords(ReasonCode code) {
    switch (code) {
    case ReasonCode::noSuchFile:
        return "no such file";
    case ReasonCode::isFolder:
        return "is a folder";
    case ReasonCode::noPermission:
        return "permission denied";
    case ReasonCode::tooManyOpenFiles:
        return "too many open files";
    case ReasonCode::outOfMemory:
        return "out of memory";
    case ReasonCode::diskFull:
        return "the disk is full";
    default:
        return {};
    }
}

void giveSystemReason(int systemError, ReasonCode fallback) noexcept {
    const ReasonCode code = codeOf(systemError, fallback);
    if (systemError != ENOTDIR && !plainWords(code).empty()) return giveReason(code, plainWords(code));
    try {
        giveReason(code, std::generic_category().message(systemError));
    } catch (const std::bad_alloc&) {
        giveReason(code, {});
    }
}

} // namespace

const Reason& lastReason() { return reasonOfThread(); }

void giveReason(ReasonCode code, std::string_view message) noexcept {
    Reason& reason = reasonOfThread();
    ++givenToThread;
    reason.code = code;
    try {
        reason.message = message;
    } catch (const std::bad_alloc&) {
        reason.message.clear();
    }
}

unsigned reasonsGiven() noexcept { return givenToThread; }

void copyReason(const Reason& from, Reason& to) noexcept {
    to.code = from.code;
    try {
        to.message = from.message;
    } catch (const std::bad_alloc&) {
        to.message.clear();
    }
}

void giveReason(const Reason& reason) noexcept { giveReason(reason.code, reason.message); }

void giveReadingReason(int systemError) noexcept { giveSystemReason(systemError, ReasonCode::cannotRead); }

void giveWritingReason(int systemError) noexcept { giveSystemReason(systemError, ReasonCode::cannotWrite); }

} // namespace pex
