#include "toolsmisc/Text.h"

#include <climits>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/RowName.h"
#include "tests/toolsmisc/Intercept.h"

namespace {

using testing::ElementsAre;
using toolsmisc::formatString;
using toolsmisc::joinStrings;
using toolsmisc::kWholeText;
using toolsmisc::makeString;
using toolsmisc::splitString;
using toolsmisc::startsWith;
using toolsmisc::subString;

using Strings = std::vector<std::string>;

TEST(FormatString, PrintsAsPrintfDoes) {
    EXPECT_EQ(formatString("%s %d 0x%02x %5.1f%%", "bus", -7, 10U, 2.25), "bus -7 0x0a   2.2%");
    EXPECT_EQ(formatString("plain"), "plain");
    EXPECT_EQ(formatString("%s", ""), "");
}

struct LengthRow {
    const char* why;
    std::size_t printed;
    std::size_t returned;
};
class FormattedLength : public testing::TestWithParam<LengthRow> {};
TEST_P(FormattedLength, IsThatOfTheOutputExceptAtTheLimit) {
    std::string whole(GetParam().printed, 'x');
    for (std::size_t i = 0; i < whole.size(); ++i) whole[i] = static_cast<char>('a' + i % 26);
    EXPECT_EQ(formatString("%s", whole.c_str()), whole.substr(0, GetParam().returned));
}
INSTANTIATE_TEST_SUITE_P(Rows, FormattedLength,
                         testing::Values(LengthRow{"one", 1, 1}, LengthRow{"belowTheLimit", 127, 127},
                                         LengthRow{"exactly128LosesItsLastCharacter", 128, 127},
                                         LengthRow{"beyondTheLimit", 129, 129},
                                         LengthRow{"grownLimitOfTheOneBefore", 132, 132},
                                         LengthRow{"thousand", 1000, 1000}, LengthRow{"large", 1'000'000, 1'000'000}),
                         RowName());

// The arguments are read anew for each attempt: a list that was used up would print anything.
TEST(FormatString, ReadsItsArgumentsAgainWhenTheTextIsLong) {
    const std::string filler(300, '-');
    EXPECT_EQ(formatString("%d %s %d %.1f %s", 11, filler.c_str(), 22, 0.5, "end"), "11 " + filler + " 22 0.5 end");
}

TEST(FormatString, AsksWithALimitOf128AndThenWithFourMoreThanTheOutputNeeds) {
    intercept::FormattedLengths script({});
    EXPECT_EQ(formatString("%0200d", 1).size(), 200U);
    EXPECT_THAT(script.limits, ElementsAre(128U, 204U));
}

// The output can only meet the grown limit when it grows between two attempts, as a text does that another thread
// appends to. The same rule holds there.
TEST(FormatString, AnOutputOfExactlyTheGrownLimitLosesItsLastCharacter) {
    const std::string whole = std::string(203, 'x') + "y";
    intercept::FormattedLengths script({200});
    EXPECT_EQ(formatString("%s", whole.c_str()), std::string(203, 'x'));
    EXPECT_THAT(script.limits, ElementsAre(128U, 204U));
}

TEST(FormatString, TriesAgainAsOftenAsTheOutputGrows) {
    const std::string whole(209, 'x');
    intercept::FormattedLengths script({200, 205});
    EXPECT_EQ(formatString("%s", whole.c_str()), std::string(208, 'x'));
    EXPECT_THAT(script.limits, ElementsAre(128U, 204U, 209U));
}

TEST(FormatString, IsEmptyWhenPrintfReportsAnError) {
    EXPECT_EQ(formatString("before %ls", L"\x20AC"), "") << "the C locale cannot show a euro sign";
    intercept::FormattedLengths script({-1});
    EXPECT_EQ(formatString("text"), "");
    EXPECT_TRUE(script.results.empty());
}

TEST(FormatString, IsEmptyWhenALaterAttemptReportsAnError) {
    intercept::FormattedLengths script({500, -1});
    EXPECT_EQ(formatString("text"), "");
    EXPECT_TRUE(script.results.empty());
}

TEST(FormatString, EndsAtTheFirstZeroByte) { EXPECT_EQ(formatString("ab%cde", 0), "ab"); }

TEST(FormatString, IsEmptyForANullFormat) {
    const char* const nothing = nullptr;
    EXPECT_EQ(formatString(nothing), "");
}

TEST(MakeString, TakesTheFirstCharactersOrTheWholeText) {
    EXPECT_EQ(makeString("payload", 3), "pay");
    EXPECT_EQ(makeString("payload", 7), "payload");
    EXPECT_EQ(makeString("payload", 0), "");
    EXPECT_EQ(makeString("payload", kWholeText), "payload");
    EXPECT_EQ(makeString("payload", SIZE_MAX), "payload");
    EXPECT_EQ(makeString("", SIZE_MAX), "");
}

TEST(MakeString, KeepsZeroBytesWithinTheLengthOnly) {
    EXPECT_EQ(makeString("a\0b", 3), std::string("a\0b", 3));
    EXPECT_EQ(makeString("a\0b", SIZE_MAX), "a");
}

TEST(MakeString, IsEmptyForANullText) {
    EXPECT_EQ(makeString(nullptr, SIZE_MAX), "");
    EXPECT_EQ(makeString(nullptr, 0), "");
    EXPECT_EQ(makeString(nullptr, 5), "");
}

struct SubStringRow {
    const char* why;
    const char* text;
    unsigned first;
    int last;
    const char* result;
};
class SubString : public testing::TestWithParam<SubStringRow> {};
TEST_P(SubString, TakesBothEndsAndCountsANegativeLastFromTheEnd) {
    EXPECT_EQ(subString(GetParam().text, GetParam().first, GetParam().last), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SubString,
    testing::Values(
        SubStringRow{"whole", "abc", 0, 2, "abc"}, SubStringRow{"firstOnly", "abc", 0, 0, "a"},
        SubStringRow{"lastOnly", "abc", 2, 2, "c"}, SubStringRow{"middle", "abcde", 1, 3, "bcd"},
        SubStringRow{"cutAtTheEnd", "abc", 1, 5, "bc"}, SubStringRow{"firstAtTheLength", "abc", 3, 3, ""},
        SubStringRow{"firstBeyondTheLength", "abc", 4, 9, ""}, SubStringRow{"lastBeforeFirst", "abc", 2, 1, ""},
        SubStringRow{"minusOneNamesTheSecondLast", "abc", 0, -1, "ab"}, SubStringRow{"minusTwo", "abc", 0, -2, "a"},
        SubStringRow{"minusThreeIsBeforeTheStart", "abc", 0, -3, ""},
        SubStringRow{"negativeLastEqualToFirst", "abc", 1, -1, "b"},
        SubStringRow{"negativeLastBeforeFirst", "abc", 2, -1, ""}, SubStringRow{"emptyText", "", 0, 0, ""},
        SubStringRow{"emptyTextMinusOne", "", 0, -1, ""}, SubStringRow{"oneCharacterMinusOne", "a", 0, -1, ""},
        SubStringRow{"largestLast", "abc", 0, INT_MAX, "abc"},
        SubStringRow{"largestLastFromOne", "abc", 1, INT_MAX, "bc"},
        SubStringRow{"smallestLast", "abc", 0, INT_MIN, ""}, SubStringRow{"largestFirst", "abc", UINT_MAX, INT_MAX, ""},
        SubStringRow{"largestFirstIsNotMinusOne", "abc", UINT_MAX, 1, ""},
        SubStringRow{"firstBeyondInt", "abc", 0x80000000U, -1, ""}),
    RowName());

/// Written from the meaning: a character belongs to the result when its position lies between the two ends.
std::string subStringOracle(const std::string& text, unsigned first, int last) {
    const auto size = static_cast<long double>(text.size());
    const long double end = last >= 0 ? last : size + last - 1;
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (static_cast<long double>(i) >= first && static_cast<long double>(i) <= end) result += text[i];
    }
    return result;
}

TEST(SubStringOracle, AgreesOnEveryShortCase) {
    const std::string whole = "abcdefgh";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const std::string text = whole.substr(0, length);
        for (unsigned first = 0; first <= 10; ++first) {
            for (int last = -12; last <= 12; ++last) {
                ASSERT_EQ(subString(text, first, last), subStringOracle(text, first, last))
                    << text << ' ' << first << ' ' << last;
            }
        }
    }
}

TEST(SubStringOracle, AgreesOnRandomCases) {
    constexpr unsigned kFirsts[] = {0, 1, 39, 40, INT_MAX, 0x80000000U, UINT_MAX - 1, UINT_MAX};
    constexpr int kLasts[] = {INT_MIN, INT_MIN + 1, -41, -40, -1, 0, 39, 40, INT_MAX - 1, INT_MAX};
    std::mt19937 random(61);
    const auto upTo = [&random](unsigned most) { return static_cast<unsigned>(random() % (most + 1)); };
    for (int round = 0; round < 40'000; ++round) {
        std::string text(upTo(40), ' ');
        for (char& character : text) character = static_cast<char>(upTo(255));
        const unsigned first = upTo(3) == 0 ? kFirsts[upTo(7)] : upTo(45);
        const int last = upTo(3) == 0 ? kLasts[upTo(9)] : static_cast<int>(upTo(90)) - 45;
        ASSERT_EQ(subString(text, first, last), subStringOracle(text, first, last)) << first << ' ' << last;
    }
}

TEST(SubString, KeepsZeroBytes) { EXPECT_EQ(subString(std::string("a\0b\0c", 5), 1, 3), std::string("\0b\0", 3)); }

struct SplitRow {
    const char* why;
    const char* text;
    const char* delimiters;
    Strings fields;
};
class SplitString : public testing::TestWithParam<SplitRow> {};
TEST_P(SplitString, KeepsEmptyFields) {
    EXPECT_EQ(splitString(GetParam().text, GetParam().delimiters), GetParam().fields);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SplitString,
    testing::Values(SplitRow{"adjacentAndTrailing", "a//b/", "/", {"a", "", "b", ""}},
                    SplitRow{"emptyTextHasNoFields", "", "/", {}}, SplitRow{"noDelimiterFound", "abc", "/", {"abc"}},
                    SplitRow{"leading", "/a", "/", {"", "a"}}, SplitRow{"trailing", "a/", "/", {"a", ""}},
                    SplitRow{"onlyADelimiter", "/", "/", {"", ""}}, SplitRow{"twoDelimiters", "//", "/", {"", "", ""}},
                    SplitRow{"anyOfSeveral", "a,b;c d", ";, ", {"a", "b", "c", "d"}},
                    SplitRow{"severalAdjacent", "a,;b", ";,", {"a", "", "b"}},
                    SplitRow{"noDelimiters", "a/b", "", {"a/b"}}, SplitRow{"ordinary", "one two", " ", {"one", "two"}}),
    RowName());

TEST(SplitString, SplitsAtAndKeepsZeroBytes) {
    EXPECT_THAT(splitString(std::string("a\0b", 3), std::string("\0", 1)), ElementsAre("a", "b"));
    EXPECT_THAT(splitString(std::string("a\0b,c", 5), ","), ElementsAre(std::string("a\0b", 3), "c"));
}

TEST(JoinStrings, PutsTheSeparatorBetweenTheParts) {
    EXPECT_EQ(joinStrings({}, ", "), "");
    EXPECT_EQ(joinStrings({"a"}, ", "), "a");
    EXPECT_EQ(joinStrings({"a", "b", "c"}, ", "), "a, b, c");
    EXPECT_EQ(joinStrings({"a", "b"}, ""), "ab");
}

TEST(JoinStrings, KeepsEmptyParts) {
    EXPECT_EQ(joinStrings({""}, "/"), "");
    EXPECT_EQ(joinStrings({"", ""}, "/"), "/");
    EXPECT_EQ(joinStrings({"", "a", "", "b", ""}, "/"), "/a//b/");
    EXPECT_EQ(joinStrings({"a", "a", "a"}, "-"), "a-a-a");
}

struct PrefixRow {
    const char* why;
    const char* text;
    const char* prefix;
    bool result;
};
class StartsWith : public testing::TestWithParam<PrefixRow> {};
TEST_P(StartsWith, ComparesTheBeginning) {
    EXPECT_EQ(startsWith(GetParam().text, GetParam().prefix), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, StartsWith,
    testing::Values(PrefixRow{"ordinary", "Serial: 1", "Serial:", true}, PrefixRow{"whole", "abc", "abc", true},
                    PrefixRow{"oneCharacter", "abc", "a", true}, PrefixRow{"other", "abc", "abd", false},
                    PrefixRow{"longerThanTheText", "ab", "abc", false}, PrefixRow{"laterInTheText", "xab", "ab", false},
                    PrefixRow{"caseCounts", "abc", "A", false}, PrefixRow{"emptyText", "", "a", false},
                    PrefixRow{"emptyPrefixOfNothingIsKeptTrue", "", "", true},
                    PrefixRow{"emptyPrefixOfOneCharacterIsKeptTrue", "a", "", true},
                    PrefixRow{"emptyPrefixOfTwoCharactersIsKeptFalse", "ab", "", false},
                    PrefixRow{"emptyPrefixOfALongTextIsKeptFalse", "abcdef", "", false}),
    RowName());

TEST(StartsWith, ComparesZeroBytesToo) {
    EXPECT_TRUE(startsWith(std::string("a\0b", 3), std::string("a\0", 2)));
    EXPECT_FALSE(startsWith(std::string("a\0b", 3), std::string("a\0c", 3)));
}

}  // namespace
