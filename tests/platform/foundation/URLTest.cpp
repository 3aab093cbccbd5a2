#include "peximage/platform/foundation/URL.h"

#include <gtest/gtest.h>

using pex::URL;

namespace {

TEST(URL, FileAddressesKeepTheirPath) {
    for (const char* path : {"/a/b c.jpg", "/a%20b/ü#?.jpg", "/", "/weird\xff\n.png", "/100%.png"}) {
        const URL url = URL::fromPath(path);
        EXPECT_EQ(url.path(), path);
        const auto again = URL::parse(url.absoluteString());
        ASSERT_TRUE(again) << url.absoluteString();
        EXPECT_EQ(again->path(), path);
        EXPECT_TRUE(again->isFileURL());
    }
    EXPECT_EQ(URL::fromPath("/a/b c.jpg").absoluteString(), "file:///a/b%20c.jpg");
    EXPECT_EQ(URL::fromPath("x.jpg").path().front(), '/');
}

TEST(URL, FilesOfOtherComputersHaveNoPathHere) {
    for (const auto& [text, path] : {std::pair("file://localhost/a", "/a"), std::pair("file:/a", "/a"),
                                     std::pair("file://other/etc/passwd", ""), std::pair("file://other", "")})
        EXPECT_EQ(URL::parse(text)->path(), path) << text;
    const URL other = *URL::parse("file://other/a");
    EXPECT_EQ(other.absoluteString(), "file://other/a");
    EXPECT_EQ(other.appendingPathComponent("b").path(), "");
}

TEST(URL, TellsPartsOfThePath) {
    const URL url = URL::fromPath("/photos/day.one/a.tar.gz");
    EXPECT_EQ(url.lastPathComponent(), "a.tar.gz");
    EXPECT_EQ(url.pathExtension(), "gz");
    EXPECT_EQ(url.deletingPathExtension().path(), "/photos/day.one/a.tar");
    EXPECT_EQ(url.deletingLastPathComponent().path(), "/photos/day.one");
    EXPECT_EQ(URL::fromPath("/a").deletingLastPathComponent().path(), "/");
    EXPECT_EQ(URL::fromPath("/d.x/.hidden").pathExtension(), "");
    EXPECT_EQ(URL::fromPath("/d").appendingPathComponent("/e/f.png").path(), "/d/e/f.png");
}

TEST(URL, ParsesNetworkAddresses) {
    const auto url = URL::parse("HTTPS://host:8080/a%2Fb/c.jpg?size=1#top");
    ASSERT_TRUE(url);
    EXPECT_EQ(url->scheme(), "https");
    EXPECT_FALSE(url->isFileURL());
    EXPECT_EQ(url->path(), "/a/b/c.jpg");
    EXPECT_EQ(url->absoluteString(), "HTTPS://host:8080/a%2Fb/c.jpg?size=1#top");
    EXPECT_EQ(url->deletingLastPathComponent().absoluteString(), "https://host:8080/a/b");
    for (const char* none : {"", "no scheme", "/a/b", ":x", "1http://x", "ht tp://x"})
        EXPECT_FALSE(URL::parse(none)) << none;
}

} // namespace
