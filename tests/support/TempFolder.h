#pragma once

#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/foundation/UserFolders.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

/// A folder of its own for one test, removed with everything in it.
class TempFolder {
  public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "peximage-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
        path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    pex::URL url(const std::string& name) const { return pex::URL::fromPath((path_ / name).string()); }
    /// How many things lie in it.
    long count() const { return std::distance(std::filesystem::directory_iterator(path_), {}); }

  private:
    std::filesystem::path path_;
};

/// A user's caches folder of the test's own.
class CachesFolder : public TempFolder {
  public:
    CachesFolder() { pex::setUserCachesFolder(pex::URL::fromPath(path().string())); }
    ~CachesFolder() { pex::setUserCachesFolder({}); }
};

/// A user's data folder of the test's own.
class DataFolder : public TempFolder {
  public:
    DataFolder() { ::setenv("XDG_DATA_HOME", path().c_str(), 1); }
    ~DataFolder() { ::setenv("XDG_DATA_HOME", before_.c_str(), 1); }

  private:
    std::string before_ = std::getenv("XDG_DATA_HOME"); // the test program's
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}
