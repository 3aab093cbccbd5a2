#include "peximage/platform/foundation/UserFolders.h"

#include <array>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <unistd.h>

namespace pex {
namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string homeFolder() {
    if (std::string home = environment("HOME"); home.starts_with('/')) return home;
    std::array<char, 16384> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    const int failed = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    return failed || !found || !found->pw_dir ? "" : found->pw_dir;
}

} // namespace

std::optional<URL> userDataFolder() {
    if (const std::string data = environment("XDG_DATA_HOME"); data.starts_with('/'))
        return URL::fromPath(data);
    const std::string home = homeFolder();
    if (!home.starts_with('/')) return std::nullopt;
    return URL::fromPath(home).appendingPathComponent(".local/share");
}

} // namespace pex
