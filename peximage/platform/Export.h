#pragma once

// Marks what the shared library exports; everything else stays hidden in it.
#if defined(PEX_BUILDING)
#define PEX_EXPORT __attribute__((visibility("default")))
#else
#define PEX_EXPORT
#endif
