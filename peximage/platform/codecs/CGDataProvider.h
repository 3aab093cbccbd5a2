#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Data.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace pex {

class URL;

/// Random access to bytes in memory or of a file. Files are read piece by piece, so that reading a header
/// does not read the rest. Copies share the file. One thread at a time.
class PEX_EXPORT CGDataProvider {
  public:
    /// Bytes in memory, which are shared.
    explicit CGDataProvider(Data data);
    /// Keeps the file open for the provider's life. Absent when it is no regular file or cannot be opened.
    static std::optional<CGDataProvider> open(const URL& url);

    /// How many bytes there are.
    std::size_t size() const;
    /// Copies bytes from `offset` on; fewer than asked for at the end, 0 behind it or when reading fails.
    std::size_t read(std::size_t offset, std::span<std::uint8_t> into) const;
    /// The bytes in memory; empty for a file.
    const Data& data() const;
    /// How many bytes `read` has handed out of the file so far.
    std::size_t bytesRead() const;

  private:
    struct State;
    explicit CGDataProvider(std::shared_ptr<State> state) : state_(std::move(state)) {}

    std::shared_ptr<State> state_;
};

} // namespace pex
