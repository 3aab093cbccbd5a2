#include "bench/worker/Caches.h"

#include "bench/worker/Picture.h"
#include "bench/worker/PlainCodecs.h"
#include "peximage/cache/PexImageCache.h"
#include "peximage/cache/PexImageStoredCache.h"
#include "peximage/platform/foundation/UserFolders.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <unordered_map>
#include <vector>

namespace {

std::atomic<std::size_t> allocations{0};

} // namespace

// All of this program's, so that those of a hit can be counted.
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace bench {
namespace {

using JobMap = std::map<std::string, Prepare>;
using Image = std::shared_ptr<pex::PexImage>;

constexpr int entries = 10'000, hits = 200, files = 40;

std::string idOf(int index) { return fmt::format("image/of/an/album/number-{:05}", index); }

/// In no order that a cache or a branch predictor could know.
std::vector<std::string> askedFor() {
    std::vector<std::string> ids;
    unsigned random = 1;
    for (int i = 0; i < hits; ++i)
        ids.push_back(idOf(static_cast<int>((random = random * 1664525 + 1013904223) >> 8) % entries));
    return ids;
}

Image smallImage() { return pex::PexImage::make({.notBakedNormalizedSize = {1, 1}}); }

void require(const Image& image) {
    if (!image) throw std::runtime_error("no image");
}

/// The run gives the number of allocations.
Run counting(std::function<void()> work) {
    return [work = std::move(work)] {
        const std::size_t before = allocations;
        work();
        return allocations - before;
    };
}

void addMemory(JobMap& jobs) {
    jobs["memory-cache/ours"] = [] {
        const auto cache = pex::PexImageCache::make({});
        for (int i = 0; i < entries; ++i)
            cache->getImageOrCalc({.withId = idOf(i), .calcClosure = smallImage});
        return counting([cache, ids = askedFor()] {
            for (const std::string& id : ids)
                require(cache->getImageOrCalc({.withId = id, .calcClosure = {}}));
        });
    };
    // What the list must cost: the same entries looked through, and nothing else.
    jobs["memory-cache/scan"] = [] {
        using Entry = pex::PexImageCache::CachedImage;
        const auto list = std::make_shared<std::vector<std::shared_ptr<Entry>>>();
        for (int i = 0; i < entries; ++i)
            list->push_back(std::make_shared<Entry>(Entry{idOf(i), {}, smallImage()}));
        return counting([list, ids = askedFor()] {
            for (const std::string& id : ids)
                require((*std::find_if(list->begin(), list->end(), [&](const auto& e) {
                            return e->id == id;
                        }))->image);
        });
    };
    jobs["memory-cache/index"] = [] {
        const auto index = std::make_shared<std::unordered_map<std::string, Image>>();
        for (int i = 0; i < entries; ++i)
            index->emplace(idOf(i), smallImage());
        return counting([index, ids = askedFor()] {
            for (const std::string& id : ids)
                pex::PexImageCache::workQueue().sync([&] { require(index->find(id)->second); });
        });
    };
}

void addStored(JobMap& jobs, const std::string& folder) {
    const auto open = [=] {
        pex::setUserCachesFolder(pex::URL::fromPath(folder + "/caches"));
        return pex::PexImageStoredCache::make(
            {.name = "Thumbs", .removeItemsAfterDays = 1000, .mode = pex::PexImageStoredCache::Mode::heif});
    };
    const auto store = [=] {
        const auto photo = pex::PexImage::make({.fastUrl = pex::URL::fromPath(folder + "/photo.jpg")});
        if (!open()->storeNow(photo->resize({.to = {450, 300}}), "photo"))
            throw std::runtime_error("not stored");
    };
    jobs["stored-cache/ours"] = [=]() -> Run {
        store();
        return [cache = open()]() -> std::size_t {
            for (int i = 0; i < files; ++i) {
                const Image image = cache->retrieveImage("photo");
                if (!image->cgImage->pixels()) throw std::runtime_error("not decoded");
            }
            return 0;
        };
    };
    jobs["stored-cache/turbo"] = [=]() -> Run {
        store();
        return [file = open()->imageUrl("photo")->path()]() -> std::size_t {
            for (int i = 0; i < files; ++i)
                decodeJpeg(readFile(file), 8, 4);
            return 0;
        };
    };
}

} // namespace

void addCaches(JobMap& jobs, const std::string& folder) {
    addMemory(jobs);
    addStored(jobs, folder);
}

} // namespace bench
