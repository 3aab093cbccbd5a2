#include "peximage/platform/toolkit/NSGraphicsContext.h"

#include <utility>

namespace pex {
namespace {

thread_local std::shared_ptr<NSGraphicsContext> currentContext;

} // namespace

std::shared_ptr<NSGraphicsContext> NSGraphicsContext::current() { return currentContext; }

void NSGraphicsContext::setCurrent(std::shared_ptr<NSGraphicsContext> context) {
    currentContext = std::move(context);
}

} // namespace pex
