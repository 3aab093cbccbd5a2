#pragma once

#include "peximage/platform/Export.h"

#include <cstdint>
#include <span>
#include <string>

namespace pex {

/// A file that appears whole or not at all: bytes go to a temporary file in the destination's folder, and
/// only `commit` renames it over the destination. What was not committed is removed with the object.
class PEX_EXPORT AtomicFile {
  public:
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
    bool commit(Flush flush = Flush::yes);

    /// Where a save can be interrupted, in order.
    enum class Step { created, written, flushed, renamed };
    using Observer = void (*)(Step);
    /// Called at each step of every save, on the saving thread; null calls nothing. For tests that stop a
    /// save half-way.
    static void setObserver(Observer observer);

  private:
    void discard();

    std::string path_;
    std::string temporary_;
    int descriptor_ = -1;
};

} // namespace pex
