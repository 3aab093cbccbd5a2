#pragma once

#include <string_view>

namespace pex {

/// A part of the library that stands in a shared object of its own, so that programs which never use it do
/// not load what it needs: `peximage/NAME.so` in the folder of the library, or in `../lib/peximage` beside
/// the folder of a program that has the library linked into it. It offers one interface, a struct of plain
/// functions over plain values, and calls nothing of the library itself.
///
/// Loads the module at the first call and keeps it; the interface, or null with the reason when the module is
/// missing, cannot be loaded, or was built for another version of its interface. Any thread.
const void* moduleInterface(std::string_view name, int version);

/// The same for an interface type, which has its version number in `Interface::version`.
template <class Interface>
const Interface* loadModule(std::string_view name) {
    return static_cast<const Interface*>(moduleInterface(name, Interface::version));
}

/// Whether the file of the module is there; it is not loaded.
bool hasModule(std::string_view name);

/// What a module exports, under the name `pexModule`.
struct ModuleEntry {
    int version;
    const void* interface;
};

} // namespace pex
