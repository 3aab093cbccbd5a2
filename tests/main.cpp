#include <gtest/gtest.h>

/// Memory that cannot be had is a case that the tests try; the sanitizer would end the program instead.
extern "C" const char* __asan_default_options(); // NOLINT: the sanitizer's name for it
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
