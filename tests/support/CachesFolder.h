#pragma once

#include "peximage/platform/foundation/UserFolders.h"
#include "tests/support/TempFolder.h"

/// A user's caches folder of the test's own.
class CachesFolder : public TempFolder {
  public:
    CachesFolder() { pex::setUserCachesFolder(pex::URL::fromPath(path().string())); }
    ~CachesFolder() { pex::setUserCachesFolder({}); }
};
