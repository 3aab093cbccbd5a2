#include "peximage/platform/foundation/KeyedDocument.h"

#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace pex {
namespace {

enum class Mood { calm, wild };

struct Pair {
    double x = 1;
    double y = 2;
    static constexpr auto documentKeys() {
        return std::tuple(keyed::required("x", &Pair::x), keyed::required("y", &Pair::y));
    }
};

struct Sample {
    std::string name{};
    std::uint8_t level = 0;
    bool on = false;
    Mood mood = Mood::calm;
    CGPoint place{};
    std::optional<URL> url{};
    std::vector<Pair> pairs{};
    Pair soft{7, 8};
    double amount = 3;
    std::optional<double> lat{};

    static constexpr auto documentKeys() {
        using namespace keyed;
        return std::tuple(
            required("name", &Sample::name), required("level", &Sample::level), required("on", &Sample::on),
            required("mood", &Sample::mood), required("place", &Sample::place), optional("url", &Sample::url),
            required("pairs", &Sample::pairs), lenient("soft", &Sample::soft),
            lenient("amount", &Sample::amount, [] { return 5.0; }), lenient("lat", &Sample::lat));
    }
};

} // namespace

template <>
struct Enumeration<Mood> {
    static constexpr bool capitalized = false;
    static constexpr EnumerationCase<Mood> cases[] = {{Mood::calm, "calm"}, {Mood::wild, "very wild"}};
};

namespace {

const std::string whole = R"({"name":"a","level":9,"on":true,"mood":"very wild","place":[0.5,-2],)"
                          R"("url":"file:///b%20c.jpg","pairs":[{"x":1,"y":0.1}],"soft":{"x":7,"y":8},)"
                          R"("amount":1e+300,"lat":48.25})";

TEST(KeyedDocument, WritesKeysInOrderAndReadsThemBack) {
    Sample sample{.name = "a", .level = 9, .on = true, .mood = Mood::wild, .place = {0.5, -2}};
    sample.url = URL::parse("file:///b%20c.jpg");
    sample.pairs = {{1, 0.1}};
    sample.amount = 1e300;
    sample.lat = 48.25;
    EXPECT_EQ(encode(sample), whole);
    const auto read = decode<Sample>(whole);
    ASSERT_TRUE(read);
    EXPECT_EQ(encode(*read), whole);
    EXPECT_EQ(read->url->path(), "/b c.jpg");
    EXPECT_EQ(read->place, (CGPoint{0.5, -2}));

    sample.url.reset();
    sample.lat.reset();
    EXPECT_EQ(encode(sample),
              replaced(replaced(whole, R"("url":"file:///b%20c.jpg",)", ""), R"(,"lat":48.25)", ""));
}

TEST(KeyedDocument, TellsWhereAndWhyReadingFailed) {
    const struct {
        const char *from, *to, *message;
    } cases[] = {
        {R"("name":"a",)", "", "name: expected a text, found nothing"},
        {R"("level":9)", R"("level":256)", "level: expected a whole number from 0 to 255"},
        {R"("level":9)", R"("level":9.5)", "level: expected a whole number from 0 to 255"},
        {R"("on":true)", R"("on":1)", "on: expected true or false"},
        {"very wild", "Very Wild", R"(mood: expected one of "calm", "very wild")"},
        {"[0.5,-2]", R"([0.5,"nan"])", "place: expected a list of two numbers"},
        {"[0.5,-2]", "[0.5,-2,3]", "place: expected a list of two numbers"},
        {"file:///b%20c.jpg", "no address", "url: expected an address"},
        {R"([{"x":1,"y":0.1}])", R"([{"x":1,"y":1},{"x":"1","y":2}])", "pairs[1].x: expected a number"},
        {R"([{"x":1,"y":0.1}])", R"([{"x":1,"y":1},3])", "pairs[1]: expected an object"},
        {R"([{"x":1,"y":0.1}])", R"({})", "pairs: expected a list"},
    };
    for (const auto& [from, to, message] : cases) {
        DocumentError error;
        EXPECT_FALSE(decode<Sample>(replaced(whole, from, to), &error)) << to;
        EXPECT_EQ(error.message(), message);
    }
}

TEST(KeyedDocument, LenientKeysTakeTheirFallback) {
    const std::string base = R"({"name":"a","level":9,"on":true,"mood":"calm","place":[0,0],"pairs":[])";
    for (const char* rest :
         {"}", R"(,"soft":null,"amount":null,"lat":null})", R"(,"soft":{"x":1},"amount":"3","lat":[]})",
          R"(,"soft":3,"amount":{},"lat":"x"})", R"(,"soft":[],"amount":"nan","lat":"inf"})"}) {
        const auto read = decode<Sample>(base + rest);
        ASSERT_TRUE(read) << rest;
        EXPECT_EQ(read->soft.x, 7) << "a half-read object must not stay: " << rest;
        EXPECT_EQ(read->amount, 5);
        EXPECT_FALSE(read->lat);
    }
}

TEST(KeyedDocument, AcceptsWhatJsonAllows) {
    const auto reading = [](const std::string& from, const std::string& to) {
        return decode<Sample>(replaced(whole, from, to)).value();
    };
    const std::string level = R"("level":9)";
    EXPECT_EQ(reading(level, " \n\t\"level\" : 9.0 ").level, 9);
    EXPECT_EQ(reading(level, level + R"(,"level":3)").level, 3);
    EXPECT_EQ(reading(level, R"("unknown":{"level":[1,{}]},)" + level).level, 9);
    EXPECT_EQ(reading(R"("a")", R"("\u00e9\ud83d\ude00\n\"\\")").name, "é😀\n\"\\");
    EXPECT_FALSE(reading(R"("file:///b%20c.jpg")", "null").url);
    EXPECT_TRUE(std::signbit(*reading("48.25", "-0.0").lat));
    EXPECT_EQ(reading("48.25", "18446744073709551615").lat, 18446744073709551616.0);
}

TEST(KeyedDocument, EveryTextAndNumberComesBack) {
    Sample sample;
    for (const std::string& name :
         {std::string("\"\\/\b\f\n\r\t"), std::string("\0\x1f\x7f", 3), std::string("éß😀\u2028")}) {
        sample.name = name;
        EXPECT_EQ(decode<Sample>(encode(sample))->name, name);
    }
    sample.name = "a\xff\xc0z";
    EXPECT_EQ(decode<Sample>(encode(sample))->name, "a\uFFFD\uFFFDz");

    using Limits = std::numeric_limits<double>;
    for (const double number : {0.1, -0.0, 1e22, 9007199254740993.0, Limits::denorm_min(), Limits::max(),
                                -Limits::infinity(), Limits::quiet_NaN(), 9223372036854775808.0}) {
        sample.amount = number;
        const double again = decode<Sample>(encode(sample))->amount;
        EXPECT_TRUE(std::isnan(number) ? std::isnan(again) : again == number) << number;
        EXPECT_EQ(std::signbit(again), std::signbit(number)) << number;
    }
}

TEST(KeyedDocument, RefusesWhatIsNoDocument) {
    const std::string deep(1'000'000, '[');
    std::string deepObjects;
    for (int i = 0; i < 100'000; ++i)
        deepObjects += "{\"a\":";
    for (const std::string& text :
         {std::string(), std::string("nul"), std::string("{\"a\":NaN}"), std::string("{\"a\":1e999}"),
          std::string("{\"a\":\"\xff\"}"), std::string("{\"a\":01}"), std::string("{\"a\":1,}"),
          std::string("{} {}"), std::string("{}\0\0", 4), deep, deepObjects, "{\"name\":" + deep}) {
        DocumentError error;
        EXPECT_FALSE(decode<Sample>(text, &error)) << text.substr(0, 40);
        EXPECT_FALSE(error.problem.empty());
        EXPECT_LT(error.message().size(), 300U);
    }
    DocumentError error;
    EXPECT_FALSE(decode<Sample>("{\n  \"name\": tru }", &error));
    EXPECT_EQ(error.message().substr(0, 31), "parse error at line 2, column 1") << error.message();
}

TEST(KeyedDocument, HoldsItsLimits) {
    const DocumentLimits limits{.bytes = 100, .values = 10, .depth = 3};
    for (const auto& [text, fits] : {std::pair<std::string, bool>{"[[[]]]", true},
                                     {"[[[[]]]]", false},
                                     {"[1,2,3,4,5,6,7,8,9]", true},
                                     {"[1,2,3,4,5,6,7,8,9,10]", false},
                                     {'"' + std::string(98, 'a') + '"', true},
                                     {'"' + std::string(99, 'a') + '"', false}})
        EXPECT_EQ(DocumentTree::parse(text, nullptr, limits).has_value(), fits) << text;
}

TEST(KeyedDocument, NoPrefixOfADocumentIsOne) {
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(decode<Sample>(whole.substr(0, length))) << length;
}

TEST(Enumeration, CapitalizesOnlyWhereAsked) {
    EXPECT_EQ(rawValue(static_cast<Mood>(9)), "");
    EXPECT_EQ(displayName(Mood::wild), "very wild");
    EXPECT_EQ(capitalized("shareApp two-WORDS"), "Shareapp Two-Words");
}

} // namespace
} // namespace pex
