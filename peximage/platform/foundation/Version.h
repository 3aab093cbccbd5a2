#pragma once

#include "peximage/platform/Export.h"

/// The version of these headers; the build takes the library's from here. While the first number is 0 a new
/// second one may change interfaces, and the library's file has another name for programs to ask for
/// (libpeximage.so.0.1); a new third one never does.
/// @{
#define PEX_VERSION_MAJOR 0
#define PEX_VERSION_MINOR 1
#define PEX_VERSION_PATCH 0
/// @}

/// A version as one number that grows with it, for `#if PEX_VERSION >= PEX_VERSION_OF(0, 2, 0)`.
#define PEX_VERSION_OF(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/// The version of these headers as such a number.
#define PEX_VERSION PEX_VERSION_OF(PEX_VERSION_MAJOR, PEX_VERSION_MINOR, PEX_VERSION_PATCH)

#define PEX_QUOTED(text) #text
#define PEX_VERSION_TEXT(major, minor, patch) PEX_QUOTED(major) "." PEX_QUOTED(minor) "." PEX_QUOTED(patch)
/// The version of these headers as text: "0.1.0".
#define PEX_VERSION_STRING PEX_VERSION_TEXT(PEX_VERSION_MAJOR, PEX_VERSION_MINOR, PEX_VERSION_PATCH)

/// Marks a declaration that a later version takes away; the text says since when and what to use instead. It
/// stays for at least one minor version. Programs that define `PEX_NO_DEPRECATED` are not warned.
#if defined(PEX_NO_DEPRECATED)
#define PEX_DEPRECATED(text)
#else
#define PEX_DEPRECATED(text) [[deprecated(text)]]
#endif

namespace pex {

/// The version of the library that the program runs with, which may be newer than the headers that it was
/// compiled with: as the number `PEX_VERSION`, and as text. Any thread.
/// @{
PEX_EXPORT int version();
PEX_EXPORT const char* versionString();
/// @}

} // namespace pex
