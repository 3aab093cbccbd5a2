#include "peximage/platform/foundation/Bundle.h"

#include "peximage/platform/foundation/Guarded.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace pex {
namespace {

Guarded<std::optional<URL>>& named() {
    // Never freed: background work may still ask while the process ends.
    static auto& instance = *new Guarded<std::optional<URL>>;
    return instance;
}

} // namespace

std::optional<URL> Bundle::main() {
    if (auto folder = named().get()) return folder;
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::nullopt : std::optional(URL::fromPath(program.parent_path().string()));
}

void Bundle::setMain(std::optional<URL> folder) { named().set(std::move(folder)); }

} // namespace pex
