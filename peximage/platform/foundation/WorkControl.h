#pragma once

#include "peximage/platform/Export.h"

#include <memory>
#include <stop_token>

namespace pex {

struct WorkState;

/// While it lives, what its thread asks of the library can be stopped by another:
///
///     std::stop_source stop; // whoever has it calls stop.request_stop()
///     const WorkControl control(stop.get_token());
///     const auto image = PexImage::make(url);
///
/// A call that is stopped gives what it gives without memory, mostly nothing, and `lastReason` says
/// `cancelled`. Files are whole or as they were; edits in place are finished. Calls of other threads go on,
/// but tasks on background threads and downloads that began within that time are stopped, too. What an
/// outside library does in one piece (compressing a PNG, an AVIF or HEIC picture, a page) ends first.
///
/// It belongs to the thread that made it and is destroyed there. Of two the younger one counts until it ends.
class PEX_EXPORT WorkControl {
  public:
    /// A token that nobody can stop takes no time.
    explicit WorkControl(std::stop_token stop);
    ~WorkControl();
    /// @cond
    WorkControl(const WorkControl&) = delete;
    WorkControl& operator=(const WorkControl&) = delete;
    /// @endcond

  private:
    std::shared_ptr<const WorkState> before_;
};

} // namespace pex
