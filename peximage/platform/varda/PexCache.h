#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/ForkSafe.h"

#include <any>
#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>

namespace pex {

/// Objects kept in memory by a text, bounded by the bytes they are said to take: when there are too many, the
/// least recently used ones are dropped. Safe from any thread.
class PEX_EXPORT PexCache {
  public:
    /// The bound of a new cache: 256 MB.
    static constexpr std::size_t defaultMaxBytes = std::size_t{256} << 20;

    /// An empty cache with that bound, in bytes.
    explicit PexCache(std::size_t maxBytes = defaultMaxBytes) : maxBytes_(maxBytes) {}

    /// The object stored under the key, which counts as used now; without value when there is none.
    std::any getCached(const std::string& key);
    /// Stores an object that takes so many bytes, in place of an earlier one. One that takes more than the
    /// bound allows is not kept.
    void setCached(const std::string& key, std::any object, std::size_t bytes);

    /// Drops what is too much for the new bound at once.
    void setMaxBytes(std::size_t maxBytes);
    /// What the stored objects take together.
    std::size_t bytes() const;
    /// Drops all objects.
    void removeAll();

  private:
    struct Entry {
        std::string key;
        std::any object;
        std::size_t bytes;
    };
    using Entries = std::list<Entry>;

    void moveToDropped(Entries::iterator entry, Entries& dropped);
    void trim(Entries& dropped);

    mutable ForkSafeMutex mutex_;
    std::size_t maxBytes_;
    std::size_t bytes_ = 0;
    Entries entries_; // the one used last comes first
    std::unordered_map<std::string, Entries::iterator> byKey_;
};

} // namespace pex
