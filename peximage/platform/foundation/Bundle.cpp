#include "peximage/platform/foundation/Bundle.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace pex {
namespace {

std::mutex namedMutex;
std::optional<URL> named;

} // namespace

std::optional<URL> Bundle::main() {
    {
        const std::lock_guard lock(namedMutex);
        if (named) return named;
    }
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::nullopt : std::optional(URL::fromPath(program.parent_path().string()));
}

void Bundle::setMain(std::optional<URL> folder) {
    const std::lock_guard lock(namedMutex);
    named = std::move(folder);
}

} // namespace pex
