#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the program, with the condition's text, where that does not hold.
#define CHECK(condition)                                                                                     \
    if (!(condition)) std::printf("line %d: %s\n", __LINE__, #condition), std::exit(1)
