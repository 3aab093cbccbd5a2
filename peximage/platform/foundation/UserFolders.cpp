#include "peximage/platform/foundation/UserFolders.h"

#include "peximage/platform/foundation/Guarded.h"

#include <array>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

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

/// The folder that an environment variable names, else the given one in the user's home.
std::optional<URL> baseFolder(const char* variable, std::string_view inHome) {
    if (const std::string folder = environment(variable); folder.starts_with('/'))
        return URL::fromPath(folder);
    const std::string home = homeFolder();
    if (!home.starts_with('/')) return std::nullopt;
    return URL::fromPath(home).appendingPathComponent(inHome);
}

Guarded<std::optional<URL>>& chosenCachesFolder() {
    // Never freed: background work may still ask while the process ends.
    static auto& instance = *new Guarded<std::optional<URL>>;
    return instance;
}

} // namespace

std::optional<URL> userDataFolder() { return baseFolder("XDG_DATA_HOME", ".local/share"); }

std::optional<URL> userCachesFolder() {
    if (auto folder = chosenCachesFolder().get()) return folder;
    return baseFolder("XDG_CACHE_HOME", ".cache");
}

void setUserCachesFolder(std::optional<URL> folder) { chosenCachesFolder().set(std::move(folder)); }

} // namespace pex
