#include "peximage/platform/varda/PexCache.h"

#include <mutex>
#include <utility>

namespace pex {

// Dropped objects are freed after the lock is: what they hold may use the cache.

std::any PexCache::getCached(const std::string& key) {
    const std::lock_guard lock(mutex_);
    const auto found = byKey_.find(key);
    if (found == byKey_.end()) return {};
    entries_.splice(entries_.begin(), entries_, found->second);
    return found->second->object;
}

void PexCache::setCached(const std::string& key, std::any object, std::size_t bytes) {
    Entries dropped;
    const std::lock_guard lock(mutex_);
    if (const auto old = byKey_.find(key); old != byKey_.end()) moveToDropped(old->second, dropped);
    if (bytes > maxBytes_) return;
    entries_.push_front({key, std::move(object), bytes});
    byKey_[key] = entries_.begin();
    bytes_ += bytes;
    trim(dropped);
}

void PexCache::setMaxBytes(std::size_t maxBytes) {
    Entries dropped;
    const std::lock_guard lock(mutex_);
    maxBytes_ = maxBytes;
    trim(dropped);
}

std::size_t PexCache::bytes() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

void PexCache::removeAll() {
    Entries dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(entries_);
    byKey_.clear();
    bytes_ = 0;
}

void PexCache::moveToDropped(Entries::iterator entry, Entries& dropped) {
    bytes_ -= entry->bytes;
    byKey_.erase(entry->key);
    dropped.splice(dropped.end(), entries_, entry);
}

void PexCache::trim(Entries& dropped) {
    while (bytes_ > maxBytes_)
        moveToDropped(std::prev(entries_.end()), dropped);
}

} // namespace pex
