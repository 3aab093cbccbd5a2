#include "peximage/platform/raster/PixelBuffer.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/DecodingLimits.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <list>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <utility>

namespace pex {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t smallAlignment = 64;
/// Kernels may read (never use) up to this many bytes past the last pixel.
constexpr std::size_t slack = 64;

constexpr std::size_t roundUp(std::size_t bytes, std::size_t unit) {
    return (bytes + unit - 1) / unit * unit;
}

/// Freed large blocks by size, oldest first.
class Pool {
    using Blocks = std::list<std::pair<void*, std::size_t>>;

  public:
    void* take(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        for (auto it = blocks_.rbegin(); it != blocks_.rend(); ++it) {
            if (it->second < bytes || it->second > bytes + bytes / 4) continue;
            void* block = it->first;
            kept_ -= it->second;
            blocks_.erase(std::next(it).base());
            return block;
        }
        return nullptr;
    }

    void give(void* block, std::size_t bytes) noexcept {
        Blocks given, dropped;
        try {
            given.emplace_back(block, bytes);
        } catch (const std::bad_alloc&) {
            return std::free(block);
        }
        {
            const std::lock_guard lock(mutex_);
            blocks_.splice(blocks_.end(), given);
            kept_ += bytes;
            trim(bound_, dropped);
        }
        release(dropped);
    }

    void setBound(std::size_t bytes) {
        Blocks dropped;
        {
            const std::lock_guard lock(mutex_);
            bound_ = bytes;
            trim(bound_, dropped);
        }
        release(dropped);
    }

    void drain() {
        Blocks dropped;
        {
            const std::lock_guard lock(mutex_);
            trim(0, dropped);
        }
        release(dropped);
    }

    std::size_t kept() {
        const std::lock_guard lock(mutex_);
        return kept_;
    }

  private:
    void trim(std::size_t bound, Blocks& dropped) {
        while (kept_ > bound && !blocks_.empty()) {
            kept_ -= blocks_.front().second;
            dropped.splice(dropped.end(), blocks_, blocks_.begin());
        }
    }

    static void release(const Blocks& blocks) {
        for (const auto& block : blocks)
            std::free(block.first);
    }

    ForkSafeMutex mutex_;
    Blocks blocks_;
    std::size_t kept_ = 0;
    std::size_t bound_ = std::size_t{64} << 20;
};

/// Never destroyed: buffers held by static objects may be freed after everything else.
Pool& pool() {
    static Pool* const instance = [] {
        auto* const made = new Pool;
        Workers::whenIdle(std::chrono::seconds(2), [made] { made->drain(); });
        return made;
    }();
    return *instance;
}

/// Made while the library is loaded: a fork should not find a thread in the middle of making it.
[[maybe_unused]] const Pool& madeEarly = pool();

void* allocateLarge(std::size_t bytes) {
    if (void* recycled = pool().take(bytes)) return recycled;
    void* block = std::aligned_alloc(hugePage, bytes);
    if (block) madvise(block, bytes, MADV_HUGEPAGE);
    return block;
}

} // namespace

PixelBuffer PixelBuffer::make(std::size_t bytes) {
    const std::size_t counted = std::min(bytes, std::numeric_limits<std::size_t>::max() / 2);
    if (!decodingLimits::claimMemory(counted)) return {};
    return absentWithoutMemory([counted] { return tryToMake(counted); });
}

PixelBuffer PixelBuffer::tryToMake(std::size_t bytes) {
    const bool large = bytes + slack >= hugePage / 2;
    const std::size_t capacity = roundUp(bytes + slack, large ? hugePage : smallAlignment);
    void* block = large ? allocateLarge(capacity) : std::aligned_alloc(smallAlignment, capacity);
    if (!block) {
        decodingLimits::giveBackMemory(bytes);
        throw std::bad_alloc();
    }
    const auto drop = [bytes, large, capacity](std::uint8_t* data) {
        decodingLimits::giveBackMemory(bytes);
        large ? pool().give(data, capacity) : std::free(data);
    };
    return {std::shared_ptr<std::uint8_t>(static_cast<std::uint8_t*>(block), drop), bytes};
}

PixelBuffer PixelBuffer::makeZeroed(std::size_t bytes) {
    PixelBuffer buffer = make(bytes);
    if (buffer) std::memset(buffer.data(), 0, bytes);
    return buffer;
}

PixelBuffer PixelBuffer::adopt(const std::uint8_t* bytes, std::size_t size, std::function<void()> release) {
    auto* const data = const_cast<std::uint8_t*>(bytes); // never written: the buffer is not unique
    try {
        return {std::shared_ptr<std::uint8_t>(data, [release = std::move(release)](auto*) { release(); }),
                size, true};
    } catch (const std::bad_alloc&) { // the shared pointer has called `release`
        return {};
    }
}

bool PixelBuffer::isUnique() const {
    if (isForeign_) return false;
    const bool alone = bytes_.use_count() == 1;
    std::atomic_thread_fence(std::memory_order_acquire); // other threads' reads happened before this
    return alone;
}

void pixelPool::setBound(std::size_t bytes) { pool().setBound(bytes); }
std::size_t pixelPool::keptBytes() { return pool().kept(); }
void pixelPool::drain() { pool().drain(); }

} // namespace pex
