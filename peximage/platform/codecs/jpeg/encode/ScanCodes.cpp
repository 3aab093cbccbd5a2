#include "peximage/platform/codecs/jpeg/encode/ScanCodes.h"

#include <cmath>
#include <numeric>

namespace pex::jpeg {
namespace {

/// Calls `each` with the same one of all four codes of several things.
template <class Each, class... Things>
void forEachCode(const Each& each, Things&... things) {
    for (std::size_t channel = 0; channel < 2; ++channel) {
        each(things.first[channel]...);
        each(things.others[channel]...);
    }
}

/// Entropy, in bits, and the values behind the codes.
double fewestBits(const SymbolCounts& counts) {
    const double all = std::accumulate(counts.begin(), counts.end(), 0.0);
    double bits = 0;
    for (std::size_t s = 0; s < counts.size(); ++s)
        if (counts[s] > 0) bits += counts[s] * (std::log2(all / counts[s]) + static_cast<double>(s & 15));
    return bits;
}

} // namespace

void add(ScanCounts& sum, const ScanCounts& more) {
    forEachCode(
        [](SymbolCounts& to, const SymbolCounts& from) {
            for (std::size_t s = 0; s < to.size(); ++s)
                to[s] += from[s];
        },
        sum, more);
}

ScanDescription optimalCodes(const ScanCounts& counts) {
    ScanDescription description;
    forEachCode([](CodeDescription& to, const SymbolCounts& from) { to = optimalCode(from); }, description,
                counts);
    return description;
}

ScanCodes codesOf(const ScanDescription& description) {
    ScanCodes codes;
    forEachCode([](SymbolCodes& to, const CodeDescription& from) { to = SymbolCodes(from); }, codes,
                description);
    return codes;
}

double bitsOf(const ScanCounts& counts, const ScanCodes& codes) {
    double bits = 0;
    forEachCode([&](const SymbolCounts& of,
                    const SymbolCodes& with) { bits += static_cast<double>(with.bitsOf(of)); },
                counts, codes);
    return bits;
}

double fewestBits(const ScanCounts& counts) {
    double bits = 0;
    forEachCode([&](const SymbolCounts& of) { bits += fewestBits(of); }, counts);
    return bits;
}

} // namespace pex::jpeg
