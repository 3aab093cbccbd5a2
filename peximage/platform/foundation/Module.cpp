#include "peximage/platform/foundation/Module.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <dlfcn.h>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <system_error>

namespace pex {
namespace {

namespace fs = std::filesystem;

/// Where the object that holds this very code was loaded from; empty when that is not known.
fs::path ownFolder() {
    static const int anchor = 0;
    Dl_info info{};
    if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
    std::error_code error;
    const fs::path object = fs::canonical(info.dli_fname, error);
    return error ? fs::path{} : object.parent_path();
}

/// Empty when there is none.
fs::path find(std::string_view name) {
    static const fs::path& here = *new fs::path(ownFolder()); // never destroyed: threads may outlive statics
    const fs::path above = here.parent_path();
    if (here.empty()) return {};
    for (const fs::path& folder : {here, above / PEX_LIBDIR, above / "lib"}) {
        fs::path object = folder / "peximage" / (std::string(name) + ".so");
        std::error_code ignored;
        if (fs::exists(object, ignored)) return object;
    }
    return {};
}

const ModuleEntry* open(std::string_view name) {
    const fs::path object = find(name);
    void* handle = object.empty() ? nullptr : dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle != nullptr ? static_cast<const ModuleEntry*>(dlsym(handle, "pexModule")) : nullptr;
}

} // namespace

bool hasModule(std::string_view name) { return !find(name).empty(); }

const void* moduleInterface(std::string_view name, int version) {
    static ForkSafeMutex mutex; // a fork in the middle of loading would leave half a module
    static auto& loaded =
        *new std::map<std::string, const ModuleEntry*, std::less<>>; // never freed, as above
    const std::lock_guard lock(mutex);
    auto found = loaded.find(name);
    if (found == loaded.end()) found = loaded.emplace(name, open(name)).first;
    const ModuleEntry* entry = found->second;
    return entry != nullptr && entry->version == version ? entry->interface : nullptr;
}

} // namespace pex
