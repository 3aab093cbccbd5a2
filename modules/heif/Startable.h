#pragma once

namespace pex::heif {

/// What decoders start, and what an encoder starts beside its pool.
constexpr int decodersThreads = 2, encodersOwnThreads = 2;

/// Whether so many threads can be had at once. The codec libraries wait for ever for one that did not start.
bool canStart(int threads);

} // namespace pex::heif
