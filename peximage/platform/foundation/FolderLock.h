#pragma once

#include <string>

namespace pex {

/// Keeps all others who lock the same folder out of it, threads and processes, until it goes. The lock of a
/// process that is killed goes with it. Nothing is left in the folder.
class FolderLock {
  public:
    /// Makes the folder if need be, and waits for a few seconds while others hold the lock.
    explicit FolderLock(const std::string& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// False when the folder cannot be had; the reason is given. True without a lock where the file system
    /// knows none for folders, as when another machine keeps the files.
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_ = -1;
};

} // namespace pex
