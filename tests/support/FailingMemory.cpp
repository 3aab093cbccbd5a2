#include "tests/support/FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t nothingFails = std::numeric_limits<std::size_t>::max();
std::atomic<std::size_t> failsFrom = nothingFails;
std::atomic<long> failed = 0;

void* allocate(std::size_t bytes) noexcept {
    if (bytes >= failsFrom) {
        ++failed;
        return nullptr;
    }
    return std::malloc(bytes > 0 ? bytes : 1);
}

void* allocateOrThrow(std::size_t bytes) {
    void* const memory = allocate(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

} // namespace

FailingMemory::FailingMemory(std::size_t bytes) {
    failed = 0;
    failsFrom = bytes;
}
FailingMemory::~FailingMemory() { failsFrom = nothingFails; }
long FailingMemory::failures() { return failed; }

void* operator new(std::size_t bytes) { return allocateOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return allocateOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
