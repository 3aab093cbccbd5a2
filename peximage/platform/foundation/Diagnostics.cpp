#include "peximage/platform/foundation/Diagnostics.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace pex::diagnostics {
namespace {

void printToStandardOutput(std::string_view line) {
    const std::string whole = std::string(line) + '\n';
    std::fwrite(whole.data(), 1, whole.size(), stdout);
}

struct Sink {
    LongHeldMutex mutex; // held during the call
    std::function<void(std::string_view)> call = printToStandardOutput;
};

std::atomic<bool> hasSink{true};

Sink& sink() {
    static auto& instance = *new Sink; // never freed: work goes on while the process ends
    return instance;
}

} // namespace

void print(std::string_view line) {
    const std::lock_guard lock(sink().mutex);
    if (sink().call) sink().call(line);
}

bool enabled() { return hasSink.load(std::memory_order_relaxed); }

void setSink(std::function<void(std::string_view)> call) {
    const std::lock_guard lock(sink().mutex);
    const ForkPass pass;
    hasSink = static_cast<bool>(call);
    sink().call.swap(call);
}

void resetSink() { setSink(printToStandardOutput); }

} // namespace pex::diagnostics
