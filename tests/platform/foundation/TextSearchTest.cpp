#include "peximage/platform/foundation/TextSearch.h"

#include <gtest/gtest.h>

namespace pex {
namespace {

TEST(TextSearch, ReplacesEveryOccurrenceWhateverItsCase) {
    const struct {
        const char* text;
        const char* search;
        const char* replacement;
        const char* result;
    } cases[] = {
        {"Cat and CAT", "cat", "dog", "dog and dog"},
        {"cat", "", "dog", "cat"},
        {"", "cat", "dog", ""},
        {"cat", "cat", "", ""},
        {"aaaa", "aa", "a", "aa"},      // what was put in is not searched again
        {"aaa", "aa", "b", "ba"},       // from the left, without overlap
        {"ababac", "ABAC", "x", "abx"}, // a match that begins inside a failed one
        {"concat", "CAT", "Cat", "conCat"},
        {"ÉCOLE école", "École", "x", "x x"},
        {"ΟΔΟΣ οδος", "οδοσ", "x", "x x"}, // both small sigmas
        {"Straße STRASSE", "strasse", "x", "x x"},
        {"MASSE", "ß", "x", "MAxE"},
        {"Straße", "s", "x", "xtraße"}, // no match ends inside a letter
        {"ПРИВЕТ мир", "привет", "x", "x мир"},
        {"ﬁsch FISCH", "fisch", "x", "x x"},
        {"e\u0301cole", "É", "x", "xcole"}, // a letter and an accent written apart …
        {"É", "e\u0301", "x", "x"},         // … and together
        {"e\u0301", "e", "x", "e\u0301"},   // an accented letter is another letter
        {"a\u0323\u0301", "a\u0301\u0323", "x", "x"},
        {"각", "\u1100\u1161\u11A8", "x", "x"},
        {"😀Cat😀", "cat", "🐶", "😀🐶😀"},
    };
    for (const auto& [text, search, replacement, result] : cases)
        EXPECT_EQ(TextSearch(search).replacingAll(text, replacement), result) << text << " / " << search;
}

TEST(TextSearch, LeavesBytesThatAreNoTextAlone) {
    EXPECT_EQ(TextSearch("cat").replacingAll("\xff"
                                             "CAT\xc3",
                                             "dog"),
              "\xff"
              "dog\xc3");
    EXPECT_EQ(TextSearch("\xff").replacingAll("a\xff"
                                              "b\xfe",
                                              "-"),
              "a-b\xfe");
    const std::string zero("a\0B", 3);
    EXPECT_EQ(TextSearch(std::string("\0b", 2)).replacingAll(zero, "-"), "a-");
}

// Takes long when a failed match is begun anew from its second letter.
TEST(TextSearch, IsLinearInTheText) {
    const std::string text(400'000, 'a');
    const std::string search = std::string(200'000, 'A') + 'b';
    EXPECT_EQ(TextSearch(search).replacingAll(text, "x"), text);
}

} // namespace
} // namespace pex
