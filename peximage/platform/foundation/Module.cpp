#include "peximage/platform/foundation/Module.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <unistd.h>

namespace pex {
namespace {

namespace fs = std::filesystem;

/// The file behind a line of the system's list of mappings ("5f00-5f80 r-xp 0000 08:01 42   /usr/lib/a.so"),
/// if the address lies in that mapping; else empty.
std::string fileMappedAt(std::uintptr_t address, const std::string& line) {
    std::uintptr_t begin = 0, end = 0;
    const char* const last = line.data() + line.size();
    const char* const dash = std::from_chars(line.data(), last, begin, 16).ptr;
    if (dash == last || std::from_chars(dash + 1, last, end, 16).ec != std::errc()) return {};
    const std::size_t path = line.find('/');
    const bool holds = begin <= address && address < end && path != std::string::npos;
    return holds ? line.substr(path) : std::string();
}

/// The folder of the library or program that contains this code; empty, with a reason, when it cannot be
/// found. The loader is not asked, since for a program it only knows the name that it was called by.
fs::path folderOfThisCode() {
    static const int anchor = 0;
    std::ifstream mappings("/proc/self/maps");
    if (!mappings) giveReadingReason(errno);
    for (std::string line; std::getline(mappings, line);) {
        const fs::path object = fileMappedAt(reinterpret_cast<std::uintptr_t>(&anchor), line);
        if (!object.empty()) return object.parent_path();
    }
    return {};
}

/// The same, learned once.
fs::path ownFolder() {
    static ForkSafeMutex mutex;
    static fs::path& known = *new fs::path; // never destroyed: threads may outlive statics
    const std::lock_guard lock(mutex);
    if (known.empty()) known = folderOfThisCode();
    return known;
}

/// Empty, with the reason, when there is none.
fs::path find(std::string_view name) {
    const fs::path here = ownFolder(), above = here.parent_path();
    if (here.empty()) return {};
    for (const fs::path& folder : {here, above / PEX_LIBDIR, above / "lib"}) {
        fs::path object = folder / "peximage" / (std::string(name) + ".so");
        std::error_code ignored;
        if (fs::exists(object, ignored)) return object;
    }
    giveReason(ReasonCode::missingModule, "built without " + std::string(name));
    return {};
}

/// Gives the reason why loading failed. The loader itself explains it only in words.
void giveLoadingReason(const fs::path& object) {
    const char* const words = ::dlerror();
    const int descriptor = ::open(object.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return giveReadingReason(errno);
    ::close(descriptor);
    giveReason(ReasonCode::missingModule, words ? words : object.string() + " is no module");
}

const ModuleEntry* open(std::string_view name) {
    const fs::path object = find(name);
    if (object.empty()) return nullptr;
    constexpr std::size_t takenByLoading = std::size_t{4} << 20;
    expectMemory(takenByLoading);
    void* const handle = ::dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const entry = handle ? ::dlsym(handle, "pexModule") : nullptr;
    if (!entry) giveLoadingReason(object);
    return static_cast<const ModuleEntry*>(entry);
}

const void* loadedInterface(std::string_view name, int version) {
    static ForkSafeMutex mutex; // a fork in the middle of loading would leave half a module
    static auto& loaded =
        *new std::map<std::string, const ModuleEntry*, std::less<>>; // never freed, as above
    const std::lock_guard lock(mutex);
    auto found = loaded.find(name);
    if (found == loaded.end()) {
        const ModuleEntry* const entry = open(name);
        if (!entry) return nullptr; // the next call may find the descriptors that this one lacked
        found = loaded.emplace(name, entry).first;
    }
    if (found->second->version == version) return found->second->interface;
    giveReason(ReasonCode::missingModule, std::string(name) + " is of another version");
    return nullptr;
}

} // namespace

bool hasModule(std::string_view name) { return !find(name).empty(); }

const void* moduleInterface(std::string_view name, int version) {
    return absentWithoutMemory([&] { return loadedInterface(name, version); });
}

} // namespace pex
