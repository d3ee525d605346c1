#include "platform/linux/base/ServerConnectionEntry.h"

#include <gtest/gtest.h>

namespace {

using Entry = ServerConnectionEntry;

TEST(ServerConnectionEntry, NewOneIsEmpty) { EXPECT_EQ(Entry(), (Entry{0, "", "", "", "", ""})); }

struct NameRow {
    const char* why;
    const char* name;
    const char* description;
};

class ApplicationDescription : public testing::TestWithParam<NameRow> {};

TEST_P(ApplicationDescription, IsThatOfTheKnownApplication) {
    EXPECT_EQ(applicationDescription(GetParam().name), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(Rows, ApplicationDescription,
                         testing::Values(NameRow{"fileServer", "ostrel", "(FS) File Server"},
                                         NameRow{"terminal", "quenbury", "(UT) Universal Terminal"},
                                         NameRow{"networkManagerHasNoPrefix", "pellick", "ISOBUS Network Manager"},
                                         NameRow{"taskController", "marrowin", "(TC) Task Controller"},
                                         NameRow{"soundManager", "vextoner", "(SM) Sound Manager"},
                                         NameRow{"capitalsDiffer", "Ostrel", ""}, NameRow{"shorter", "ostre", ""},
                                         NameRow{"longer", "ostrel1", ""}, NameRow{"blankBehind", "ostrel ", ""},
                                         NameRow{"unknown", "corvane", ""}, NameRow{"empty", "", ""}),
                         [](const auto& row) { return std::string(row.param.why); });

struct AliasRow {
    const char* why;
    const char* name;
    const char* description;
    const char* localAlias;
    const char* shown;
    const char* shownIgnoringLocal;
};

class DisplayAlias : public testing::TestWithParam<AliasRow> {};

TEST_P(DisplayAlias, IsTheFirstThatIsThere) {
    const Entry entry{7, GetParam().name, GetParam().description, GetParam().localAlias, "1", "L"};
    EXPECT_EQ(displayAlias(entry, false), GetParam().shown);
    EXPECT_EQ(displayAlias(entry, true), GetParam().shownIgnoringLocal);
}

INSTANTIATE_TEST_SUITE_P(Rows, DisplayAlias,
                         testing::Values(AliasRow{"all", "name", "text", "alias", "alias", "text"},
                                         AliasRow{"noAlias", "name", "text", "", "text", "text"},
                                         AliasRow{"noDescription", "name", "", "alias", "alias", "name"},
                                         AliasRow{"nameAlone", "name", "", "", "name", "name"},
                                         AliasRow{"nothing", "", "", "", "", ""}),
                         [](const auto& row) { return std::string(row.param.why); });

struct MatchRow {
    const char* why;
    Entry other;
    unsigned mask;  // the one bit that makes it match; 0: matches always; 16: nothing helps
};

class Matches : public testing::TestWithParam<MatchRow> {};

const Entry kEntry{812, "ostrel", "(FS) File Server", "alias", "1.2", "Beta"};

TEST_P(Matches, WhenAllThatIsNotMaskedIsEqual) {
    for (unsigned mask = 0; mask < 16; ++mask) {
        const bool expected = (mask & GetParam().mask) == GetParam().mask;
        EXPECT_EQ(matches(kEntry, GetParam().other, mask), expected) << mask;
        EXPECT_EQ(matches(GetParam().other, kEntry, mask), expected) << mask;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Matches,
    testing::Values(MatchRow{"equal", kEntry, 0},
                    MatchRow{"processId", Entry{813, "ostrel", "(FS) File Server", "alias", "1.2", "Beta"}, 1},
                    MatchRow{"applicationName", Entry{812, "ostrem", "(FS) File Server", "alias", "1.2", "Beta"}, 2},
                    MatchRow{"version", Entry{812, "ostrel", "(FS) File Server", "alias", "1.3", "Beta"}, 4},
                    MatchRow{"versionLabel", Entry{812, "ostrel", "(FS) File Server", "alias", "1.2", ""}, 8},
                    MatchRow{"descriptionAndAliasAreNeverCompared", Entry{812, "ostrel", "x", "y", "1.2", "Beta"}, 0},
                    MatchRow{"twoFields", Entry{1, "ostrel", "", "", "1", "Beta"}, 5},
                    MatchRow{"allFields", Entry{}, 15}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ServerConnectionEntry, MaskHasANameForEachBit) {
    EXPECT_EQ(IgnoreProcessId, 1U);
    EXPECT_EQ(IgnoreApplicationName, 2U);
    EXPECT_EQ(IgnoreVersion, 4U);
    EXPECT_EQ(IgnoreVersionLabel, 8U);
}

TEST(ServerConnectionEntry, FurtherBitsOfTheMaskCountNothing) {
    EXPECT_FALSE(matches(kEntry, Entry{}, 0xFFFFFFF0U));
    EXPECT_TRUE(matches(kEntry, Entry{}, 0xFFFFFFFFU));
}

}  // namespace
