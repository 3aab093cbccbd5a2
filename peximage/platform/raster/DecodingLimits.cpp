#include "peximage/platform/raster/DecodingLimits.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <limits>
#include <string>
#include <unistd.h>

namespace pex {
namespace {

std::atomic<std::size_t> memoryAsked{0}, memoryUsual{0}, memoryTaken{0};
std::atomic<double> secondsAllowed{60};

/// What the process's container may have; a file that is missing, or says "max", sets no bound.
std::size_t memoryOfContainer() {
    std::size_t least = std::numeric_limits<std::size_t>::max(), bytes = 0;
    for (const char* const file :
         {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory/memory.limit_in_bytes"}) {
        if (std::ifstream(file) >> bytes) least = std::min(least, bytes);
    }
    return least;
}

std::size_t halfOfAll() {
    const long pages = sysconf(_SC_PHYS_PAGES), bytes = sysconf(_SC_PAGESIZE);
    const std::size_t machine = pages > 0 && bytes > 0
                                    ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(bytes)
                                    : std::numeric_limits<std::size_t>::max();
    return std::min(machine, memoryOfContainer()) / 2;
}

/// Learned at first need; threads that do so at once learn the same.
std::size_t memoryAllowed() {
    if (const std::size_t asked = memoryAsked.load(std::memory_order_relaxed); asked > 0) return asked;
    std::size_t usual = memoryUsual.load(std::memory_order_relaxed);
    if (usual == 0) memoryUsual.store(usual = halfOfAll(), std::memory_order_relaxed);
    return usual;
}

} // namespace

void decodingLimits::setMemory(std::size_t bytes) noexcept {
    memoryAsked.store(bytes, std::memory_order_relaxed);
}

bool decodingLimits::claimMemory(std::size_t bytes) noexcept {
    return absentWithoutMemory([bytes] {
        const std::size_t allowed = memoryAllowed();
        const std::size_t before = memoryTaken.fetch_add(bytes, std::memory_order_relaxed);
        if (bytes <= allowed && before <= allowed - bytes) return true;
        giveBackMemory(bytes);
        giveReason(ReasonCode::outOfMemory, "all pictures together would take " +
                                                std::to_string(before + bytes) +
                                                " bytes, over the limit of " + std::to_string(allowed));
        return false;
    });
}

void decodingLimits::giveBackMemory(std::size_t bytes) noexcept {
    memoryTaken.fetch_sub(bytes, std::memory_order_relaxed);
}

void decodingLimits::setSeconds(double seconds) noexcept {
    secondsAllowed.store(seconds, std::memory_order_relaxed);
}

double decodingLimits::seconds() noexcept { return secondsAllowed.load(std::memory_order_relaxed); }

} // namespace pex
