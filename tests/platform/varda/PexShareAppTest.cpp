#include "peximage/platform/varda/PexShareApp.h"

#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>

namespace pex {
namespace {

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

} // namespace
} // namespace pex
