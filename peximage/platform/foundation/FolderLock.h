#pragma once

#include <string>

namespace pex {

/// A lock on a folder, held while the object lives, against all threads and processes that lock the same
/// folder. It ends with a killed process, and leaves no file in the folder.
class FolderLock {
  public:
    /// Makes the folder if need be, and waits for a few seconds while others hold the lock.
    explicit FolderLock(const std::string& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// False, with a reason, when the folder cannot be made or locked in time. True even without a
    /// lock if the file system has none for folders, as some network file systems.
    explicit operator bool() const { return descriptor_ >= 0; }

  private:
    int descriptor_ = -1;
};

} // namespace pex
