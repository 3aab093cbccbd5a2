#pragma once

#include <cstddef>
#include <cstdio>

// clang-format off: it needs what stands before it
#include <jpeglib.h>
// clang-format on
