#pragma once

#include <cstddef>

/// What `ImageLimits` says of pixels, for those who stand below it. Safe from any thread.
namespace pex::decodingLimits {

/// Bytes that all buffers of pixels may take together; 0: half of the memory that the machine, or the
/// process's container, has.
void setMemory(std::size_t bytes) noexcept;

/// Counts bytes that a new buffer takes. False, with a reason, when all would go over the limit with them;
/// they do not count then.
bool claimMemory(std::size_t bytes) noexcept;
void giveBackMemory(std::size_t bytes) noexcept;

/// How long one picture may be decoded.
/// @{
void setSeconds(double seconds) noexcept;
double seconds() noexcept;
/// @}

} // namespace pex::decodingLimits
