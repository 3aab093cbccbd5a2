#pragma once

#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

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
