#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Reason.h"

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace pex {

/// A file that appears whole or not at all: bytes go to a temporary file in the destination's folder, and
/// only `commit` renames it over the destination. What was not committed is removed with the object.
///
/// Folders on the way are made. A destination that is a link keeps being one: the file it leads to is
/// replaced. The new file has the owner, group and permissions of the one it replaces, from the start, as far
/// as the system lets the caller give them. Nothing but a regular file is ever replaced. What fails gives its
/// reason (`lastReason`). One object belongs to one thread.
class PEX_EXPORT AtomicFile {
  public:
    /// A save to a path; nothing is written before `write`.
    explicit AtomicFile(std::string path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// False when the temporary file could not be made or written; later calls then do nothing.
    bool write(std::span<const std::uint8_t> bytes);
    /// Whether a crash of the whole machine, too, leaves the old file or the new one. Waiting for the disk
    /// costs milliseconds; it is worth them for documents, and not for pictures that can be made again.
    enum class Flush { yes, no };
    /// Renames, after flushing to disk where that is asked for. False when any step failed; the destination
    /// is then as it was.
    bool commit(Flush flush);

    /// Writes and commits in one call.
    static bool save(const std::string& path, std::span<const std::uint8_t> bytes, Flush flush);

    /// Whether the name is that of a temporary file of a save.
    static bool isTemporary(std::string_view name);
    /// A temporary file older than this was left behind by a process that was killed.
    static constexpr std::chrono::hours longestSave{1};
    /// Deletes temporary files that old from a folder, but not from folders inside it.
    static void removeStale(const std::string& folder);

    /// Deletes all temporary files of this process, for a process that ends while other threads may be
    /// saving. From then on a thread that begins or commits a save waits forever, so the caller has to end
    /// the process.
    static void endAllSaves();

    /// The steps of a save, in order.
    enum class Step { created, written, flushed, renamed };
    /// What `setObserver` calls.
    using Observer = void (*)(Step);
    /// Called at each step of every save, on the saving thread; null calls nothing. For tests that stop a
    /// save half-way.
    static void setObserver(Observer observer);

  private:
    void open();
    bool create(unsigned mode);
    void fail();
    void discard();

    std::string path_;
    std::string temporary_;
    int descriptor_ = -1;
    Reason failure_;
};

} // namespace pex
