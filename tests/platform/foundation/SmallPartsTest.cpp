#include "peximage/platform/foundation/ChangePublisher.h"
#include "peximage/platform/foundation/TextSearch.h"
#include "peximage/platform/foundation/URL.h"

#include <gtest/gtest.h>

#include <string>

namespace pex {
namespace {

using Subscription = ChangePublisher::Subscription;

TEST(ChangePublisher, CallsObserversInOrderWhileTheySubscribe) {
    ChangePublisher publisher;
    std::string calls;
    Subscription a = publisher.subscribe([&] { calls += 'a'; });
    Subscription b = publisher.subscribe([&] { calls += 'b'; });
    publisher.send();
    a.unsubscribe();
    a.unsubscribe();
    publisher.send();
    {
        const Subscription moved = std::move(b);
        publisher.send();
    }
    publisher.send();
    EXPECT_EQ(calls, "abbb");
}

TEST(ChangePublisher, AnObserverMayChangeTheSubscriptions) {
    ChangePublisher publisher;
    std::string calls;
    Subscription late;
    Subscription victim;
    const Subscription first = publisher.subscribe([&] {
        calls += '1';
        victim.unsubscribe(); // not called any more, not even by this send
        late = publisher.subscribe([&] { calls += 'L'; });
    });
    victim = publisher.subscribe([&] { calls += 'v'; });
    publisher.send();
    EXPECT_EQ(calls, "1");
    publisher.send(); // the old late one is replaced by a new one, which comes with the next send
    EXPECT_EQ(calls, "11");
}

TEST(ChangePublisher, WeakObserversEndWithTheirOwner) {
    ChangePublisher publisher;
    auto owner = std::make_shared<int>(0);
    publisher.subscribe(owner, [number = owner.get()] { ++*number; });
    publisher.send();
    EXPECT_EQ(*owner, 1);
    EXPECT_EQ(owner.use_count(), 1);
    owner.reset();
    publisher.send(); // would write to freed memory
}

TEST(ChangePublisher, MayGoBeforeItsSubscriptionsAndDuringASend) {
    Subscription subscription;
    auto publisher = std::make_unique<ChangePublisher>();
    int after = 0;
    subscription = publisher->subscribe([&] { publisher.reset(); });
    const Subscription second = publisher->subscribe([&] { ++after; });
    publisher->send();
    EXPECT_EQ(after, 1);
    subscription.unsubscribe();
}

TEST(TextSearch, ReplacesEveryOccurrenceWhateverItsCase) {
    const struct {
        const char *text, *search, *replacement, *result;
    } cases[] = {
        {"Cat and CAT", "cat", "dog", "dog and dog"},
        {"cat", "", "dog", "cat"},
        {"", "cat", "dog", ""},
        {"aaaa", "aa", "a", "aa"},      // what was put in is not searched again
        {"aaa", "aa", "b", "ba"},       // from the left, without overlap
        {"ababac", "ABAC", "x", "abx"}, // a match that begins inside a failed one
        {"ÉCOLE école", "École", "x", "x x"},
        {"ΟΔΟΣ οδος", "οδοσ", "x", "x x"}, // both small sigmas
        {"Straße STRASSE", "strasse", "x", "x x"},
        {"MASSE", "ß", "x", "MAxE"},
        {"Straße", "s", "x", "xtraße"}, // no match ends inside a letter
        {"ﬁsch FISCH", "fisch", "x", "x x"},
        {"e\u0301cole", "É", "x", "xcole"}, // a letter and an accent written apart …
        {"É", "e\u0301", "x", "x"},         // … and together
        {"e\u0301", "e", "x", "e\u0301"},   // an accented letter is another letter
        {"각", "\u1100\u1161\u11A8", "x", "x"},
        {"😀Cat😀", "cat", "🐶", "😀🐶😀"},
    };
    for (const auto& [text, search, replacement, result] : cases)
        EXPECT_EQ(TextSearch(search).replacingAll(text, replacement), result) << text << " / " << search;
}

TEST(TextSearch, LeavesBytesThatAreNoTextAlone) {
    const std::string byte = "\xff";
    EXPECT_EQ(TextSearch("cat").replacingAll(byte + "CAT\xc3", "dog"), byte + "dog\xc3");
    EXPECT_EQ(TextSearch(byte).replacingAll('a' + byte + "b\xfe", "-"), "a-b\xfe");
    const std::string zero("a\0B", 3);
    EXPECT_EQ(TextSearch(std::string("\0b", 2)).replacingAll(zero, "-"), "a-");
}

// Takes long when a failed match is begun anew from its second letter.
TEST(TextSearch, IsLinearInTheText) {
    const std::string text(400'000, 'a');
    const std::string search = std::string(200'000, 'A') + 'b';
    EXPECT_EQ(TextSearch(search).replacingAll(text, "x"), text);
}

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
} // namespace pex
