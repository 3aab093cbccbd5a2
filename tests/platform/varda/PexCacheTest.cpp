#include "peximage/platform/varda/PexCache.h"

#include "peximage/platform/varda/PexThreadSafeDictionary.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>

namespace pex {
namespace {

int numberIn(PexCache& cache, const std::string& key) {
    const std::any object = cache.getCached(key);
    return object.has_value() ? std::any_cast<int>(object) : 0;
}

TEST(PexCache, DropsWhatWasUsedLeastRecently) {
    PexCache cache(100);
    cache.setCached("a", 1, 40);
    cache.setCached("b", 2, 40);
    EXPECT_EQ(numberIn(cache, "a"), 1);
    cache.setCached("c", 3, 40);
    EXPECT_EQ(numberIn(cache, "b"), 0);
    EXPECT_EQ(numberIn(cache, "a"), 1);
    EXPECT_EQ(cache.bytes(), 80U);
    cache.setCached("d", 4, 100); // just fits, alone
    EXPECT_EQ(numberIn(cache, "a") + numberIn(cache, "c"), 0);
    EXPECT_EQ(numberIn(cache, "d"), 4);
    cache.setCached("d", 5, 101); // cannot be kept, and the old one is not what was stored last
    EXPECT_EQ(numberIn(cache, "d"), 0);
    EXPECT_EQ(cache.bytes(), 0U);
    cache.setCached("e", 6, 30);
    cache.setCached("e", 7, 50);
    EXPECT_EQ(cache.bytes(), 50U);
    cache.setMaxBytes(49);
    EXPECT_EQ(numberIn(cache, "e"), 0);
    cache.setCached("f", 8, 0);
    cache.removeAll();
    EXPECT_FALSE(cache.getCached("f").has_value());
}

/// Uses the cache while it is dropped.
struct Reentrant {
    PexCache& cache;
    explicit Reentrant(PexCache& c) : cache(c) {}
    ~Reentrant() { cache.getCached("other"); }
};

TEST(PexCache, DroppedObjectsMayUseTheCache) {
    PexCache cache(10);
    for (int i = 0; i < 3; ++i)
        cache.setCached("key", std::make_shared<Reentrant>(cache), 10);
    cache.setCached("other", 1, 10);
    cache.setCached("key", std::make_shared<Reentrant>(cache), 10);
    cache.removeAll();
    EXPECT_EQ(cache.bytes(), 0U);
}

TEST(PexCache, ManyThreadsKeepTheBound) {
    PexCache cache(1000);
    std::atomic<int> wrong{0};
    onThreads(8, [&](unsigned thread) {
        std::mt19937 random(thread);
        for (int i = 0; i < 2000; ++i) {
            const int number = static_cast<int>(random() % 50) + 1;
            const std::string key = std::to_string(number);
            if (i % 2 == 0) cache.setCached(key, number, static_cast<std::size_t>(number) * 3);
            const int found = numberIn(cache, key);
            wrong += (found != 0 && found != number) || cache.bytes() > 1000;
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(PexThreadSafeDictionary, TellsOfChangesAtOnceOrInTheBackground) {
    Gathered background;
    int changes = 0;
    PexThreadSafeDictionary<std::string, int>* self = nullptr;
    PexThreadSafeDictionary<std::string, int> dictionary([&] { changes += self->value("a").value_or(0); });
    self = &dictionary;
    EXPECT_FALSE(dictionary.value("a"));
    dictionary.set("a", 1, false);
    EXPECT_EQ(changes, 1);
    dictionary.set("a", 10, true);
    EXPECT_EQ(dictionary.value("a"), 10);
    EXPECT_EQ(changes, 1);
    background.run();
    EXPECT_EQ(changes, 11);
}

} // namespace
} // namespace pex
