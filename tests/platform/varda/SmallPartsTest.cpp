#include "peximage/platform/varda/Draw.h"
#include "peximage/platform/varda/PexCache.h"
#include "peximage/platform/varda/PexColor.h"
#include "peximage/platform/varda/PexFont.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/PexShareApp.h"
#include "peximage/platform/varda/PexThreadSafeDictionary.h"
#include "peximage/platform/varda/Shell.h"
#include "peximage/platform/varda/XMain.h"
#include "tests/support/Pictures.h"
#include "tests/support/Surroundings.h"
#include "tests/support/TempFolder.h"

#include <atomic>
#include <csignal>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace pex {
namespace {

TEST(Draw, CopiesPartsIntoTheInnermostTarget) {
    const Pixel red{255, 0, 0, 255}, blue{0, 0, 255, 255}, clear{0, 0, 0, 0};
    const auto sides = [&](int x, int) { return x < 4 ? red : blue; };
    const auto halves = NSImage::make(makePicture(8, 4, PixelLayout::skipLast, sides), {8, 4});
    onScreensOfOneAndTwo([&](double scale) {
        const auto outer = NSImage::make(CGSize{8, 6}), inner = NSImage::make(CGSize{8, 6});
        ASSERT_TRUE(Draw::start(outer));
        ASSERT_TRUE(Draw::start(inner));
        EXPECT_FALSE(Draw::start(inner)); // is a target already
        EXPECT_FALSE(Draw::start(NSImage::make(CGSize{0, 6})));
        EXPECT_FALSE(Draw::start(nullptr));
        Draw::copybits({.srcImage = halves, .dstPoint = CGPoint{0, 2}});
        Draw::end();
        Draw::copybits({.srcImage = halves,
                        .srcRect = CGRect{4, 0, 4, 4},
                        .dstRect = CGRect{0, 0, 2, 2},
                        .dstPoint = CGPoint{5, 5}}); // the rectangle wins
        Draw::copybits({});
        Draw::end();
        Draw::end();
        Draw::copybits({.srcImage = halves});

        const auto at = [&](const std::shared_ptr<NSImage>& image, double x, double y) {
            return pixelAt(*image->cgImageForProposedRect(), int(x * scale), int(y * scale));
        };
        EXPECT_EQ(at(inner, 0, 0), red);
        EXPECT_EQ(at(inner, 7.5, 3.5), blue);
        EXPECT_EQ(at(inner, 0, 4.5), clear);
        EXPECT_EQ(at(outer, 0, 5.5), blue);
        EXPECT_EQ(at(outer, 1.5, 4), blue);
        EXPECT_EQ(at(outer, 2.5, 5.5), clear);
        EXPECT_EQ(at(outer, 6, 0.5), clear);
    });
}

TEST(PexColor, ConvertsToAndFromBytes) {
    for (int byte = 0; byte <= 255; ++byte) {
        const PexColor color({.intRed = byte, .green = 255 - byte, .blue = 7, .alpha = byte});
        EXPECT_EQ(color.redB255(), byte);
        EXPECT_EQ(color.greenB255(), 255 - byte);
        EXPECT_EQ(color.blueB255(), 7);
        EXPECT_EQ(color.alphaB255(), byte);
    }
    EXPECT_EQ(PexColor(0.5, 1.5, -1).redB255(), 128);
    EXPECT_EQ(PexColor(0.5, 1.5, -1).greenB255(), 255);
    EXPECT_EQ(PexColor(0.5, 1.5, -1).blueB255(), 0);
    EXPECT_EQ(PexColor(std::numeric_limits<double>::quiet_NaN(), 0, 0).redB255(), 0);
}

TEST(PexColor, ColoursAndFontsHaveDocuments) {
    EXPECT_EQ(encode(PexColor::pureWhite), R"({"red":1,"green":1,"blue":1,"alpha":1})");
    EXPECT_EQ(decode<PexColor>(R"({"alpha":0.25,"blue":0.1,"green":2,"red":-1})"),
              PexColor(-1, 2, 0.1, 0.25));
    EXPECT_FALSE(decode<PexColor>(R"({"red":1,"green":1,"blue":1})"));
    EXPECT_EQ(encode(PexFont::Font::courier(64)), R"({"name":"Courier","size":64})");
    EXPECT_EQ(decode<PexFont::Font>(R"({"name":"Courier","size":64})"), PexFont::Font::courier(64));
}

TEST(PexIdTest, DigestsAreThoseOfMd5) {
    EXPECT_EQ(PexId::md5(""), "d41d8cd98f00b204e9800998ecf8427e"); // RFC 1321
    EXPECT_EQ(PexId::md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(PexId::md5("h\xC3\xA9llo"), "be50e8478cf24ff3595bc7307fb91b50"); // md5sum
}

TEST(ShellTest, RunsProgramsAndReadsWhatTheyPrint) {
    EXPECT_EQ(shell2({"/bin/echo", {"a  b", "$HOME", "*"}}), "a  b $HOME *\n");
    EXPECT_EQ(shell2({"/bin/cat", {}}), ""); // nothing on its standard input
    EXPECT_EQ(shell2({"/bin/false", {}}), "");
    EXPECT_FALSE(shell2({"/no/such/program", {}}));
    EXPECT_FALSE(shell2({"echo", {}})); // no search for it
}

TEST(ShellTest, LongOutputNeitherBlocksNorGrowsWithoutBound) {
    const auto output = shell2({"/usr/bin/head", {"-c", "50000000", "/dev/zero"}});
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), std::size_t{16} << 20);
}

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

std::optional<std::string> ingest(const PexShareApp& store, const URL& file) {
    return store.ingestAndGetId({.fileAtUrl = file, .upload = false}).get();
}

std::optional<URL> lookUp(const PexShareApp& store, const std::string& id) {
    return store.url({.forId = id, .downloadRemote = false}).get();
}

TEST(PexShareApp, FindsTheCopyByItsIdentifier) {
    const DataFolder data;
    const std::string bytes = std::string(1'000'000, 'x') + '\0' + "end";
    writeFile(data.path() / "photo one.JPG", bytes);
    const auto first = ingest(PexShareApp(), data.url("photo one.JPG"));
    const auto second = ingest(PexShareApp(), data.url("photo one.JPG"));
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    std::filesystem::remove(data.path() / "photo one.JPG");
    const auto copy = lookUp(PexShareApp(), *first);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->pathExtension(), "JPG");
    EXPECT_EQ(readFile(copy->path()), bytes);
    EXPECT_FALSE(lookUp(PexShareApp(data.url("another store")), *first));
}

TEST(PexShareApp, StoresOnlyFilesThatCanBeRead) {
    const DataFolder data;
    const PexShareApp store(data.url("store"));
    ASSERT_EQ(::mkfifo((data.path() / "pipe").c_str(), 0600), 0);
    writeFile(data.path() / "plain", "x");
    writeFile(data.path() / "odd.j pg;", "x");
    EXPECT_FALSE(ingest(store, data.url("missing")));
    EXPECT_FALSE(ingest(store, data.url("pipe"))) << "and it must not wait for a writer";
    EXPECT_FALSE(ingest(store, URL::fromPath(data.path().string())));
    EXPECT_FALSE(ingest(store, *URL::parse("https://host/a.jpg")));
    EXPECT_FALSE(ingest(PexShareApp(data.url("plain/store")), data.url("plain")));
    writeFile(data.path() / "store/.pex-left.tmp", "by a killed process");
    std::filesystem::last_write_time(data.path() / "store/.pex-left.tmp", {});
    EXPECT_FALSE(ingest(store, data.url("missing")));
    EXPECT_EQ(std::filesystem::is_empty(data.path() / "store"), true);
    for (const char* name : {"plain", "odd.j pg;"}) {
        const auto id = ingest(store, data.url(name));
        ASSERT_TRUE(id);
        EXPECT_TRUE(lookUp(store, *id)) << *id;
    }
}

TEST(PexShareApp, NoIdentifierLeadsOutOfTheStore) {
    const DataFolder data;
    writeFile(data.path() / "secret", "x");
    writeFile(data.path() / "store/.hidden", "x");
    writeFile(data.path() / "store/sub/file", "x");
    const PexShareApp store(data.url("store"));
    for (const std::string& id :
         {std::string(), std::string("../secret"), (data.path() / "secret").string(), std::string("sub/file"),
          std::string("sub"), std::string("."), std::string(".."), std::string(".hidden"),
          std::string("a\0b", 3), std::string(5000, 'a')})
        EXPECT_FALSE(lookUp(store, id)) << id;
}

class XMainTest : public testing::Test {
  protected:
    void SetUp() override { XMain::becomeMain(); }
    void TearDown() override { XMain::setWakeUp({}); }
};

TEST_F(XMainTest, QueuesFromOtherThreadsInOrder) {
    std::string order;
    std::atomic<int> wakeUps{0};
    XMain::setWakeUp([&] { ++wakeUps; });
    std::thread([&] {
        EXPECT_FALSE(XMain::isMain());
        XMain::execute([&] { order += XMain::isMain() ? 'a' : 'x'; });
        XMain::execute([&] {
            order += 'b';
            EXPECT_EQ(XMain::drain(), 1U); // a block that drains lets the next one run within it
            order += 'd';
        });
        XMain::execute([&] { order += 'c'; });
        EXPECT_EQ(XMain::drain(), 0U);
    }).join();
    EXPECT_EQ(order, "");
    XMain::drain();
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(wakeUps, 3);
}

TEST_F(XMainTest, WhatABlockThrowsReachesWhoWaitsForIt) {
    std::atomic<bool> isDone{false};
    std::thread other([&] {
        XMain::execute([] { throw std::runtime_error("which is dropped"); });
        EXPECT_THROW(XMain::sync([] { throw std::runtime_error("which comes back"); }), std::runtime_error);
        XMain::sync({});
        XMain::execute({});
        isDone = true;
    });
    while (!isDone) {
        XMain::drain();
        std::this_thread::yield();
    }
    other.join();
}

} // namespace
} // namespace pex
