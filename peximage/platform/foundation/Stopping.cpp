#include "peximage/platform/foundation/Stopping.h"

namespace pex {
namespace {

const std::stop_token never;
thread_local const std::stop_token* innermost = &never;

} // namespace

StopScope::StopScope(const std::stop_token& token) : before_(innermost) { innermost = &token; }
StopScope::~StopScope() { innermost = before_; }

const std::stop_token& StopScope::current() { return *innermost; }

} // namespace pex
