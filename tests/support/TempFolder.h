#pragma once

#include "peximage/platform/foundation/URL.h"

#include <filesystem>
#include <string>

/// A folder of its own for one test, removed with everything in it.
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    pex::URL url(const std::string& name) const { return pex::URL::fromPath((path_ / name).string()); }
    /// How many things lie in it.
    long count() const;

  private:
    std::filesystem::path path_;
};
