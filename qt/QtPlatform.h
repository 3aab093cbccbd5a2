#pragma once

#include "peximage/platform/Export.h"

class QGuiApplication;

namespace pex {

/// Hooks the library to a Qt program, once, on the thread that runs its event loop: that thread becomes the
/// main thread, what is queued for it (`XMain`) runs from the loop, and the screens are declared to
/// `NSScreen` whenever they change. The hook lasts as long as the application object.
PEX_EXPORT void connectToQt(QGuiApplication& application);

} // namespace pex
