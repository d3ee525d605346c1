#include "AgApp/VersionFacts.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr const char* kUnstamped = "1901-01-01 00:00:00 UTC";

struct DateRow {
    const char* why;
    const char* marker;
    const char* date;
};
class BuildDate : public testing::TestWithParam<DateRow> {};

TEST_P(BuildDate, IsCharacters13To35) { EXPECT_EQ(AgApp::buildDateFrom(GetParam().marker), GetParam().date); }

INSTANTIATE_TEST_SUITE_P(
    Rows, BuildDate,
    testing::Values(DateRow{"unstamped", "!Build Date: 1901-01-01 00:00:00 UTC!", "1901-01-01 00:00:00 UTC"},
                    DateRow{"stamped", "!Build Date: 2024-02-29 23:59:58 UTC!", "2024-02-29 23:59:58 UTC"},
                    DateRow{"bothEndsIncluded", "0123456789abcA123456789012345678901234B!", "A1234567890123456789012"},
                    DateRow{"cutAtTheEnd", "!Build Date: 2024", "2024"}, DateRow{"tooShort", "!Build Date: ", ""},
                    DateRow{"empty", "", ""}),
    RowName());

struct TimeRow {
    const char* why;
    const char* date;
    std::uint64_t seconds;
};
class BuildTime : public testing::TestWithParam<TimeRow> {};

TEST_P(BuildTime, IsSecondsInUtcWithAZeroUpperWord) {
    EXPECT_EQ(AgApp::buildTimeFrom(GetParam().date), GetParam().seconds);
}

// The seconds come from `date --utc --date=... +%s`.
INSTANTIATE_TEST_SUITE_P(
    Rows, BuildTime,
    testing::Values(TimeRow{"epoch", "1970-01-01 00:00:00 UTC", 0}, TimeRow{"oneSecond", "1970-01-01 00:00:01 UTC", 1},
                    TimeRow{"everyFieldCounts", "2009-02-13 23:31:30 UTC", 1234567890},
                    TimeRow{"leapDay", "2024-02-29 12:34:56 UTC", 1709210096},
                    TimeRow{"summerIsUtcToo", "2024-07-01 00:00:00 UTC", 1719792000},
                    TimeRow{"last31BitSecond", "2038-01-19 03:14:07 UTC", 2147483647},
                    TimeRow{"firstSecondBeyond31Bits", "2038-01-19 03:14:08 UTC", 2147483648},
                    TimeRow{"last32BitSecond", "2106-02-07 06:28:15 UTC", 4294967295},
                    TimeRow{"upperWordStaysZero", "2106-02-07 06:28:16 UTC", 0},
                    TimeRow{"beforeTheEpochWraps", "1969-12-31 23:59:59 UTC", 4294967295},
                    TimeRow{"unstampedWraps", "1901-01-01 00:00:00 UTC", 2117514496},
                    TimeRow{"separatorsAreNotLookedAt", "2009x02x13x23x31x30", 1234567890},
                    TimeRow{"monthBeyondTheYearCarries", "2008-14-13 23:31:30 UTC", 1234567890},
                    TimeRow{"secondsCarry", "1970-01-01 00:00:99 UTC", 99},
                    TimeRow{"otherCharactersCountAsTheirDistanceFromZero", "1970-01-01 00:00:0: UTC", 10},
                    TimeRow{"highCharactersAreUnsigned", "1970-01-01 00:00:0\xFF UTC", 255 - 48},
                    TimeRow{"missingCharactersCountAsZero", "1970-01-01 00:00", 0},
                    TimeRow{"missingHalfOfAField", "1970-01-01 00:00:1", 10}),
    RowName());

TEST(BuildTime, IsTheSameInEveryTimeZone) {
    {
        const testsupport::ScopedEnvironment zone("TZ", "EST5EDT,M3.2.0,M11.1.0");
        tzset();
        EXPECT_EQ(AgApp::buildTimeFrom("2024-02-29 12:34:56 UTC"), 1709210096U);
        EXPECT_EQ(AgApp::buildTimeFrom("2024-07-01 00:00:00 UTC"), 1719792000U);
    }
    tzset();
}

TEST(BuildTime, AnswersForAnEmptyDateToo) { EXPECT_EQ(AgApp::buildTimeFrom("") >> 32U, 0U); }

struct KeywordRow {
    const char* why;
    const char* keyword;
    const char* path;
};
class RepositoryPath : public testing::TestWithParam<KeywordRow> {};

TEST_P(RepositoryPath, IsTakenFromTheKeyword) {
    EXPECT_EQ(AgApp::repositoryPathFrom(GetParam().keyword), GetParam().path);
}

#define REPOSITORY "$HeadURL: svn+ssh://repository.example/usr/local/Repository/"
INSTANTIATE_TEST_SUITE_P(
    Rows, RepositoryPath,
    testing::Values(KeywordRow{"trunkStoresNothing", REPOSITORY "trunk/src/AgApp/SuiteVersions.cpp $", ""},
                    KeywordRow{"branch", REPOSITORY "branches/newcan/src/AgApp/SuiteVersions.cpp $", "branches/newcan"},
                    KeywordRow{"tag", REPOSITORY "tags/DUNMALLOW-Ver-1_00/src/SuiteVersions.cpp $",
                               "tags/DUNMALLOW-Ver-1_00"},
                    KeywordRow{"oneFieldAfterTheTagIsEnough", REPOSITORY "tags/X-Ver-1_00/f.cpp $", "tags/X-Ver-1_00"},
                    KeywordRow{"noFieldAfterTheTagIsNoMatch", REPOSITORY "tags/X-Ver-1_00 $", ""},
                    KeywordRow{"anEmptyFieldAfterTheTagCounts", REPOSITORY "tags/X-Ver-1_00/", "tags/X-Ver-1_00"},
                    KeywordRow{"emptyTagName", REPOSITORY "tags//f.cpp $", "tags/"},
                    KeywordRow{"otherTree", REPOSITORY "vendor/newcan/src/f.cpp $", ""},
                    KeywordRow{"treeNamesAreCaseSensitive", REPOSITORY "Tags/X-Ver-1_00/f.cpp $", ""},
                    KeywordRow{"treeNamesAreWhole", REPOSITORY "tags2/X-Ver-1_00/f.cpp $", ""},
                    KeywordRow{"firstOfTwoRepositoriesCounts",
                               REPOSITORY "tags/A-Ver-1_00/usr/local/Repository/branches/b/f.cpp $", "tags/A-Ver-1_00"},
                    KeywordRow{"firstOfTwoRepositoriesCountsThoughItIsTrunk",
                               REPOSITORY "trunk/x/usr/local/Repository/tags/A-Ver-1_00/f.cpp $", ""},
                    KeywordRow{"repositoryAtTheStart", "usr/local/Repository/branches/b/f", "branches/b"},
                    KeywordRow{"anotherFolder",
                               "$HeadURL: svn+ssh://repository.example/usr/local/repos/tags/X-Ver-1_00/a/b/f $", ""},
                    KeywordRow{"firstNameDiffers", "x/usx/local/Repository/tags/X-Ver-1_00/f", ""},
                    KeywordRow{"secondNameDiffers", "x/usr/locax/Repository/tags/X-Ver-1_00/f", ""},
                    KeywordRow{"notExpanded", "$HeadURL$", ""}, KeywordRow{"empty", "", ""}),
    RowName());
#undef REPOSITORY

struct VersionRow {
    const char* why;
    const char* path;
    const char* label;
    const char* version;
    std::int32_t majorNumber;
    std::int32_t minorNumber;
    char letter;
};
class Version : public testing::TestWithParam<VersionRow> {};

TEST_P(Version, FollowsFromTheRepositoryPath) {
    const VersionRow& row = GetParam();
    EXPECT_EQ(AgApp::versionLabelFrom(row.path, kUnstamped), row.label);
    EXPECT_EQ(AgApp::versionStringFrom(row.path), row.version);
    EXPECT_EQ(AgApp::majorVersionFrom(row.path), row.majorNumber);
    EXPECT_EQ(AgApp::minorVersionFrom(row.path), row.minorNumber);
    EXPECT_EQ(AgApp::versionLetterFrom(row.path), row.letter);
}

#define UNKNOWN_TAG "Dev-unknown TAG 1901-01-01 00:00:00 UTC"
INSTANTIATE_TEST_SUITE_P(
    Untagged, Version,
    testing::Values(VersionRow{"trunk", "", "Dev-trunk 1901-01-01 00:00:00 UTC", "", 0, 0, 0},
                    VersionRow{"branch", "branches/newcan", "Dev-newcan 1901-01-01 00:00:00 UTC", "", 0, 0, 0},
                    VersionRow{"branchNamedLikeATag", "branches/X-Ver-1_00a", "Dev-X-Ver-1_00a 1901-01-01 00:00:00 UTC",
                               "", 0, 0, 0},
                    VersionRow{"emptyBranchName", "branches/", "Dev- 1901-01-01 00:00:00 UTC", "", 0, 0, 0},
                    VersionRow{"oneField", "branches", UNKNOWN_TAG, "", 0, 0, 0},
                    VersionRow{"tagsAlone", "tags", UNKNOWN_TAG, "", 0, 0, 0},
                    VersionRow{"anotherTree", "vendor/X-Ver-1_00", UNKNOWN_TAG, "", 0, 0, 0}),
    RowName());
INSTANTIATE_TEST_SUITE_P(
    Tagged, Version,
    testing::Values(VersionRow{"release", "tags/DUNMALLOW-Ver-1_00", "DUNMALLOW 1.00", "1.00", 1, 0, 0},
                    VersionRow{"letter", "tags/DUNMALLOW-Ver-2_05a", "DUNMALLOW 2.05a", "2.05a", 2, 5, 'a'},
                    VersionRow{"lastLetter", "tags/DUNMALLOW-Ver-2_05z", "DUNMALLOW 2.05z", "2.05z", 2, 5, 'z'},
                    VersionRow{"upperCaseIsNoLetter", "tags/DUNMALLOW-Ver-2_05A", "DUNMALLOW 2.05A", "2.05A", 2, 5, 0},
                    VersionRow{"beforeTheFirstLetter", "tags/DUNMALLOW-Ver-2_05`", "DUNMALLOW 2.05`", "2.05`", 2, 5, 0},
                    VersionRow{"afterTheLastLetter", "tags/DUNMALLOW-Ver-2_05{", "DUNMALLOW 2.05{", "2.05{", 2, 5, 0},
                    VersionRow{"letterInTheMiddleIsNone", "tags/DUNMALLOW-Ver-2_0b5", "DUNMALLOW 2.0b5", "2.0b5", 2, 0,
                               0},
                    VersionRow{"codeNameWithHyphen", "tags/A-B-Ver-1_10", "A-B 1.10", "1.10", 1, 10, 0},
                    VersionRow{"twoPartsWithoutVer", "tags/DUNMALLOW-1_00", UNKNOWN_TAG, "", 0, 0, 0},
                    VersionRow{"threePartsWithoutVer", "tags/DUNMALLOW-Rel-1_00", UNKNOWN_TAG, "1.00", 1, 0, 0},
                    VersionRow{"verIsCaseSensitive", "tags/DUNMALLOW-ver-1_00", UNKNOWN_TAG, "1.00", 1, 0, 0},
                    VersionRow{"verIsAWholePart", "tags/DUNMALLOW-Vers-1_00", UNKNOWN_TAG, "1.00", 1, 0, 0},
                    VersionRow{"verLast", "tags/X-Ver", UNKNOWN_TAG, "", 0, 0, 0},
                    VersionRow{"verLastOfThree", "tags/X-Y-Ver", UNKNOWN_TAG, "Ver", 0, 0, 'r'},
                    VersionRow{"verFirst", "tags/Ver-X-1_00", UNKNOWN_TAG, "1.00", 1, 0, 0},
                    VersionRow{"verFirstAndSecond", "tags/Ver-Ver-1_00", "Ver 1.00", "1.00", 1, 0, 0},
                    VersionRow{"verTwiceFirstCounts", "tags/X-Ver-Ver-1_00", "X 1.00", "1.00", 1, 0, 0},
                    VersionRow{"emptyCodeName", "tags/-Ver-1_00", UNKNOWN_TAG, "1.00", 1, 0, 0},
                    VersionRow{"partAfterTheVersion", "tags/X-Ver-1_00-rc", "X rc", "rc", 0, 0, 'c'},
                    VersionRow{"emptyVersion", "tags/X-Ver-", "X ", "", 0, 0, 0},
                    VersionRow{"emptyTag", "tags/", UNKNOWN_TAG, "", 0, 0, 0},
                    VersionRow{"noPoint", "tags/X-Ver-12", "X 12", "12", 0, 0, 0},
                    VersionRow{"everyUnderlineBecomesAPoint", "tags/X-Ver-1_02_03", "X 1.02.03", "1.02.03", 1, 2, 0},
                    VersionRow{"nothingBeforeThePoint", "tags/X-Ver-_07", "X .07", ".07", 0, 7, 0},
                    VersionRow{"nothingAfterThePoint", "tags/X-Ver-7_", "X 7.", "7.", 7, 0, 0},
                    VersionRow{"wordsAreZero", "tags/X-Ver-a_b", "X a.b", "a.b", 0, 0, 'b'},
                    VersionRow{"largestNumbers", "tags/X-Ver-2147483647_2147483648", "X 2147483647.2147483648",
                               "2147483647.2147483648", 2147483647, 2147483647, 0},
                    VersionRow{"numbersBeyond64Bits", "tags/X-Ver-99999999999999999999_00", "X 99999999999999999999.00",
                               "99999999999999999999.00", 2147483647, 0, 0}),
    RowName());
#undef UNKNOWN_TAG

TEST(Version, LabelOfATagShowsNoBuildDateAndOthersTheOneGiven) {
    EXPECT_EQ(AgApp::versionLabelFrom("tags/X-Ver-1_00", "2024-02-29 12:34:56 UTC"), "X 1.00");
    EXPECT_EQ(AgApp::versionLabelFrom("", "2024-02-29 12:34:56 UTC"), "Dev-trunk 2024-02-29 12:34:56 UTC");
    EXPECT_EQ(AgApp::versionLabelFrom("branches/b", "2024-02-29 12:34:56 UTC"), "Dev-b 2024-02-29 12:34:56 UTC");
    EXPECT_EQ(AgApp::versionLabelFrom("tags/x", "2024-02-29 12:34:56 UTC"), "Dev-unknown TAG 2024-02-29 12:34:56 UTC");
}

struct TaggedRow {
    const char* why;
    const char* path;
    bool tagged;
};
class IsTagged : public testing::TestWithParam<TaggedRow> {};

TEST_P(IsTagged, LooksAtTheBeginningOfThePath) { EXPECT_EQ(AgApp::isTaggedPath(GetParam().path), GetParam().tagged); }

INSTANTIATE_TEST_SUITE_P(Rows, IsTagged,
                         testing::Values(TaggedRow{"tag", "tags/X", true}, TaggedRow{"emptyTag", "tags/", true},
                                         TaggedRow{"noSeparator", "tags", false},
                                         TaggedRow{"branch", "branches/b", false},
                                         TaggedRow{"inTheMiddle", "branches/tags/", false},
                                         TaggedRow{"trunk", "", false}),
                         RowName());

}  // namespace
