#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>

/// Memory that cannot be had is a case that the tests try; the sanitizer would end the program instead.
extern "C" const char* __asan_default_options(); // NOLINT: the sanitizer's name for it
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

// Leaks that are another library's own.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n" // its encoder keeps about a kilobyte of each picture
                               // Where memory runs out within them:
           "leak:heif_context_alloc\n"
           "leak:libdav1d.so\n";
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Nothing of the user's own is read or written; some libraries ask for the folder only once.
    const TempFolder data;
    ::setenv("XDG_DATA_HOME", data.path().c_str(), 1);
    return RUN_ALL_TESTS();
}
