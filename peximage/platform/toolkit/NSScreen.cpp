#include "peximage/platform/toolkit/NSScreen.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <cmath>
#include <mutex>
#include <utility>

namespace pex {
namespace {

ForkSafeMutex screensMutex;

std::vector<NSScreen>& declaredScreens() {
    static auto& screens = *new std::vector<NSScreen>; // never freed: work goes on while the process ends
    return screens;
}

} // namespace

std::vector<NSScreen> NSScreen::screens() {
    const std::lock_guard lock(screensMutex);
    return declaredScreens();
}

void NSScreen::setScreens(std::vector<NSScreen> screens) {
    const std::lock_guard lock(screensMutex);
    declaredScreens() = std::move(screens);
}

double NSScreen::largestBackingScaleFactor() {
    const std::lock_guard lock(screensMutex);
    double largest = 1;
    for (const NSScreen& screen : declaredScreens()) {
        if (std::isfinite(screen.backingScaleFactor) && screen.backingScaleFactor > largest)
            largest = screen.backingScaleFactor;
    }
    return largest;
}

} // namespace pex
