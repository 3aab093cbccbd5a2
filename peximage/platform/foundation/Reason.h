#pragma once

#include "peximage/platform/Export.h"

#include <string>
#include <string_view>

namespace pex {

/// Why an operation gave nothing. Numbers never change their meaning, and new ones are added at the end.
enum class ReasonCode {
    none = 0,
    noSuchFile = 1,
    isFolder = 2,
    notRegularFile = 3, // a device, a pipe, a socket
    noPermission = 4,
    tooManyOpenFiles = 5,
    cannotRead = 6, // any other answer of the file system
    emptyFile = 7,
    notAnImage = 8,
    missingModule = 9, // the format is known, but what reads or writes it is not installed
    needsPassword = 10,
    damaged = 11, // a known format of which nothing can be shown
    overLimit = 12,
    outOfMemory = 13,
    noThread = 14,
    diskFull = 15,
    cannotWrite = 16,    // any other answer of the file system
    cannotEncode = 17,   // the format cannot hold the picture, or its encoder gave up
    budgetTooSmall = 18, // no size of the picture fits into so few bytes
    networkFailed = 19,
    timedOut = 20,
    cancelled = 21,
    badArgument = 22,
    changedElsewhere = 23, // what is stored is not what was read from there
};

/// A code for programs, and one line for people, without the file's name before it and without a full stop
/// after it ("larger than the limit of 2 000 pixels a side").
struct Reason {
    /// What happened, for programs.
    ReasonCode code = ReasonCode::none;
    /// What happened, for people.
    std::string message;

    /// True when there is a reason: something failed.
    explicit operator bool() const { return code != ReasonCode::none; }
};

/// Why the latest operation on this thread that gave nothing (null, an empty optional, false) did so. It
/// stays until another one gives nothing: ask right after an absent result. What an operation's own worker
/// threads and tasks met is told on the thread that gets the result, and to a callback on its own.
PEX_EXPORT const Reason& lastReason();

/// Leaves the reason of an absent result for `lastReason`; for those who write operations. Costs nothing
/// where all goes well, and never throws: without memory for the message the code stands alone.
PEX_EXPORT void giveReason(ReasonCode code, std::string_view message) noexcept;
/// The same again, as it was taken from `lastReason` of another thread.
PEX_EXPORT void giveReason(const Reason& reason) noexcept;

/// For an answer of the system (a value of errno) to reading or to writing a file.
/// @{
PEX_EXPORT void giveReadingReason(int systemError) noexcept;
PEX_EXPORT void giveWritingReason(int systemError) noexcept;
/// @}

} // namespace pex
