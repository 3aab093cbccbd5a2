#include "peximage/platform/varda/PerfAn.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <algorithm>
#include <chrono>
#include <mutex>

namespace pex {
namespace {

using Clock = std::chrono::steady_clock;

struct Stretch {
    std::string label;
    Clock::time_point begin;
};

thread_local std::vector<Stretch> openStretches;

ForkSafeMutex measuresMutex;

std::vector<PerfAn::Measure>& allMeasures() {
    static auto& measures =
        *new std::vector<PerfAn::Measure>; // never freed: work goes on while the process ends
    return measures;
}

} // namespace

void PerfAn::start(std::string_view label) { openStretches.push_back({std::string(label), Clock::now()}); }

void PerfAn::end() {
    if (openStretches.empty()) return;
    const Stretch stretch = std::move(openStretches.back());
    openStretches.pop_back();
    const double seconds = std::chrono::duration<double>(Clock::now() - stretch.begin).count();

    const std::lock_guard lock(measuresMutex);
    auto& all = allMeasures();
    auto known =
        std::find_if(all.begin(), all.end(), [&](const Measure& m) { return m.label == stretch.label; });
    if (known == all.end()) known = all.insert(all.end(), {stretch.label, 0, 0});
    ++known->calls;
    known->seconds += seconds;
}

std::vector<PerfAn::Measure> PerfAn::measures() {
    const std::lock_guard lock(measuresMutex);
    return allMeasures();
}

void PerfAn::reset() {
    const std::lock_guard lock(measuresMutex);
    allMeasures().clear();
}

} // namespace pex
