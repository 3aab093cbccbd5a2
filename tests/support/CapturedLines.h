#pragma once

#include "peximage/platform/foundation/Diagnostics.h"

#include <string>
#include <vector>

/// Collects what the library prints while it lives.
class CapturedLines {
  public:
    CapturedLines() {
        pex::diagnostics::setSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~CapturedLines() { pex::diagnostics::resetSink(); }
    CapturedLines(const CapturedLines&) = delete;
    CapturedLines& operator=(const CapturedLines&) = delete;

    std::vector<std::string> lines;
};
