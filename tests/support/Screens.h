#pragma once

#include "peximage/platform/toolkit/NSScreen.h"

/// Runs `check(scale)` on a screen of one pixel a point and on one of two.
template <class Check>
void onScreensOfOneAndTwo(Check check) {
    for (const double scale : {1., 2.}) {
        pex::NSScreen::setScreens({{scale}});
        check(scale);
    }
    pex::NSScreen::setScreens({});
}
