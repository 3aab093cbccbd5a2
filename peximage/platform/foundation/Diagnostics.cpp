#include "peximage/platform/foundation/Diagnostics.h"

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
    std::mutex mutex;
    std::function<void(std::string_view)> call = printToStandardOutput;
};

Sink& sink() {
    static Sink instance;
    return instance;
}

} // namespace

void print(std::string_view line) {
    const std::lock_guard lock(sink().mutex);
    if (sink().call) sink().call(line);
}

void setSink(std::function<void(std::string_view)> call) {
    const std::lock_guard lock(sink().mutex);
    sink().call = std::move(call);
}

void resetSink() { setSink(printToStandardOutput); }

} // namespace pex::diagnostics
