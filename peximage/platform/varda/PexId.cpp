#include "peximage/platform/varda/PexId.h"

#include "peximage/platform/foundation/DigestModule.h"
#include "peximage/platform/foundation/Module.h"

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <pthread.h>
#include <unistd.h>

namespace pex {
namespace {

std::string hex(std::uint64_t value) {
    char digits[16];
    return {digits, std::to_chars(digits, digits + sizeof digits, value, 16).ptr};
}

std::uint64_t randomStart() {
    std::uint64_t start = 0;
    if (::getentropy(&start, sizeof start) == 0) return start;
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
           (static_cast<std::uint64_t>(::getpid()) << 32);
}

/// A forked child counts on from a place of its own.
std::atomic<std::uint64_t>& randomState() {
    static std::atomic<std::uint64_t> state{[] {
        ::pthread_atfork(nullptr, nullptr, [] { randomState() = randomStart(); });
        return randomStart();
    }()};
    return state;
}

/// SplitMix64 over a counter that starts at a random place: distinct values in one process, and without the
/// cost of asking the system for randomness each time.
std::uint64_t nextRandom() {
    std::uint64_t z = randomState().fetch_add(0x9E3779B97F4A7C15U, std::memory_order_relaxed);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31);
}

} // namespace

std::string PexId::newId(std::string_view prefix, std::string_view tag, bool useCounter) {
    static std::atomic<std::uint64_t> counter{0};
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    std::string id = std::string(prefix) + std::string(tag);
    if (!id.empty()) id += '-';
    id += hex(static_cast<std::uint64_t>(now)) + '-' + hex(nextRandom());
    if (useCounter) id += '-' + hex(++counter);
    return id;
}

std::optional<std::string> PexId::md5(std::string_view text) {
    const auto* module = loadModule<DigestModule>(DigestModule::name);
    std::array<std::uint8_t, 16> digest{};
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    if (module == nullptr || !module->md5(bytes, text.size(), digest.data())) return std::nullopt;
    static constexpr char digits[] = "0123456789abcdef";
    std::string name;
    for (const std::uint8_t byte : digest)
        name += {digits[byte >> 4], digits[byte & 15]};
    return name;
}

} // namespace pex
