#include "toolsmisc/Path.h"

#include <unistd.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"

namespace {

using testsupport::TempFolder;
using toolsmisc::getBackupName;
using toolsmisc::getDirectoryName;
using toolsmisc::getExtension;
using toolsmisc::getFileName;
using toolsmisc::getRealPath;
using toolsmisc::isAbsolutePath;
using toolsmisc::joinPath;

TEST(PathSeparator, IsASlash) { EXPECT_STREQ(toolsmisc::kPathSeparator, "/"); }

struct JoinRow {
    const char* why;
    const char* a;
    const char* b;
    const char* joined;
};
class JoinPath : public testing::TestWithParam<JoinRow> {};
TEST_P(JoinPath, PutsTwoComponentsTogether) { EXPECT_EQ(joinPath(GetParam().a, GetParam().b), GetParam().joined); }
INSTANTIATE_TEST_SUITE_P(
    Rows, JoinPath,
    testing::Values(
        JoinRow{"ordinary", "/usr", "bin", "/usr/bin"}, JoinRow{"trailingSlash", "/usr/", "bin", "/usr/bin"},
        JoinRow{"emptyFirst", "", "bin", "bin"}, JoinRow{"absoluteSecondReplaces", "/usr", "/etc", "/etc"},
        JoinRow{"emptySecond", "/a", "", "/a"}, JoinRow{"bothEmpty", "", "", ""},
        JoinRow{"emptySecondKeepsTheSlash", "/a/", "", "/a/"}, JoinRow{"root", "/", "a", "/a"},
        JoinRow{"oneCharacter", "a", "b", "a/b"}, JoinRow{"dot", ".", "b", "./b"},
        JoinRow{"twoCharactersKeptWithoutSeparator", "ab", "c", "abc"},
        JoinRow{"twoCharactersWithASlashAtTheStartToo", "/x", "c", "/xc"}, JoinRow{"twoDotsToo", "..", "c", "..c"},
        JoinRow{"twoCharactersWithASlashAtTheEnd", "a/", "c", "a/c"}, JoinRow{"threeCharacters", "abc", "d", "abc/d"},
        JoinRow{"emptyFirstAbsoluteSecond", "", "/a", "/a"},
        JoinRow{"slashesInTheSecond", "/usr", "lib/x/", "/usr/lib/x/"},
        JoinRow{"twoCharactersAndAnAbsolute", "ab", "/c", "/c"}, JoinRow{"twoCharactersAndNothing", "ab", "", "ab"}),
    RowName());

/// The rules once more, as a choice of results instead of a choice of separators.
std::string joinOracle(const std::string& a, const std::string& b) {
    switch (a.length()) {
        case 0:
            return b;
        case 2:
            return b.find('/') == 0 ? b : a + b;
        default:
            break;
    }
    if (b.empty()) return a;
    if (b[0] == '/') return b;
    return a[a.length() - 1] == '/' ? a + b : a + '/' + b;
}

/// Every text of at most `length` characters of the alphabet.
std::vector<std::string> textsUpTo(std::size_t length, const std::string& alphabet) {
    std::vector<std::string> texts{""};
    for (std::size_t next = 0; next < texts.size(); ++next) {
        if (texts[next].size() == length) break;
        for (const char character : alphabet) texts.push_back(texts[next] + character);
    }
    return texts;
}

TEST(JoinPathOracle, AgreesOnEveryShortPair) {
    const std::vector<std::string> texts = textsUpTo(4, "a/.");
    ASSERT_EQ(texts.size(), 121U);
    for (const std::string& a : texts) {
        for (const std::string& b : texts) ASSERT_EQ(joinPath(a, b), joinOracle(a, b)) << a << " + " << b;
    }
}

TEST(JoinPathOracle, AgreesOnRandomCases) {
    constexpr std::array kLengths{0U, 1U, 2U, 3U, 127U, 128U, 255U, 4096U};
    constexpr std::array kCharacters{'/', '/', '.', '~', 'a', ' ', '\\', '*', '\0', '\xFF'};
    std::mt19937 random(65);
    const auto below = [&random](std::size_t most) { return static_cast<std::size_t>(random() % most); };
    const auto text = [&] {
        std::string made(below(4) == 0 ? kLengths[below(kLengths.size())] : below(12), ' ');
        for (char& character : made) character = kCharacters[below(kCharacters.size())];
        return made;
    };
    for (int round = 0; round < 40'000; ++round) {
        const std::string a = text();
        const std::string b = text();
        ASSERT_EQ(joinPath(a, b), joinOracle(a, b));
    }
}

TEST(JoinPathOracle, AgreesOnThreeToFiveComponents) {
    const std::vector<std::string> texts = textsUpTo(2, "b/");
    for (const std::string& a : texts) {
        for (const std::string& b : texts) {
            for (const std::string& c : texts) {
                const std::string three = joinOracle(joinOracle(a, b), c);
                ASSERT_EQ(joinPath(a, b, c), three);
                for (const std::string& d : texts) {
                    const std::string four = joinOracle(three, d);
                    ASSERT_EQ(joinPath(a, b, c, d), four);
                    for (const std::string& e : texts) ASSERT_EQ(joinPath(a, b, c, d, e), joinOracle(four, e));
                }
            }
        }
    }
}

TEST(JoinPath, JoinsUpToFiveComponentsLeftToRight) {
    EXPECT_EQ(joinPath("/usr", "local", "bin"), "/usr/local/bin");
    EXPECT_EQ(joinPath("/usr", "local", "share", "doc"), "/usr/local/share/doc");
    EXPECT_EQ(joinPath("/usr", "local", "share", "doc", "x"), "/usr/local/share/doc/x");
    EXPECT_EQ(joinPath("a", "b", "c"), "a/b/c");
    EXPECT_EQ(joinPath("", "ab", "c", "d"), "abc/d") << "the two-character rule looks at what is joined so far";
    EXPECT_EQ(joinPath("/usr", "/etc", "x"), "/etc/x");
}

TEST(IsAbsolutePath, LooksAtTheFirstCharacter) {
    EXPECT_TRUE(isAbsolutePath("/"));
    EXPECT_TRUE(isAbsolutePath("/a/b"));
    EXPECT_FALSE(isAbsolutePath(""));
    EXPECT_FALSE(isAbsolutePath("a/b"));
    EXPECT_FALSE(isAbsolutePath("~/a"));
    EXPECT_FALSE(isAbsolutePath("\\a"));
}

TEST(GetRealPath, ResolvesLinksAndDots) {
    const TempFolder folder;
    folder.write("data/file", "x");
    ASSERT_EQ(symlink("data", (folder / "link").c_str()), 0);
    EXPECT_EQ(getRealPath(folder / "link/../link/./file"), folder / "data/file");
    EXPECT_EQ(getRealPath(folder / "data/"), folder / "data");
    EXPECT_EQ(getRealPath("/"), "/");
}

TEST(GetRealPath, IsEmptyWhenItFails) {
    const TempFolder folder;
    EXPECT_EQ(getRealPath(folder / "missing"), "");
    EXPECT_EQ(getRealPath(""), "");
}

struct FileNameRow {
    const char* why;
    const char* path;
    const char* name;
    const char* stripped;
};
class GetFileName : public testing::TestWithParam<FileNameRow> {};
TEST_P(GetFileName, TakesWhatFollowsTheLastSlash) {
    EXPECT_EQ(getFileName(GetParam().path, false), GetParam().name);
    EXPECT_EQ(getFileName(GetParam().path, true), GetParam().stripped);
}
INSTANTIATE_TEST_SUITE_P(Rows, GetFileName,
                         testing::Values(FileNameRow{"ordinary", "/a/b.txt", "b.txt", "b"},
                                         FileNameRow{"noFolder", "b.txt", "b.txt", "b"},
                                         FileNameRow{"withoutDotTheLastTwoGo", "readme", "readme", "read"},
                                         FileNameRow{"withoutDotInAFolder", "/a/readme", "readme", "read"},
                                         FileNameRow{"twoDots", "a.tar.gz", "a.tar.gz", "a.tar"},
                                         FileNameRow{"dotOnlyInAFolderLeavesNothing", "/a.b/readme", "readme", ""},
                                         FileNameRow{"leadingDotMakesTheLastOneGo", ".profile", ".profile", ".profil"},
                                         FileNameRow{"leadingDotInAFolderLeavesNothing", "/a/.profile", ".profile", ""},
                                         FileNameRow{"trailingDot", "/a/b.", "b.", "b"},
                                         FileNameRow{"trailingSlash", "/a/", "", ""}, FileNameRow{"root", "/", "", ""},
                                         FileNameRow{"empty", "", "", ""}, FileNameRow{"oneCharacter", "x", "x", ""},
                                         FileNameRow{"twoCharacters", "xy", "xy", ""},
                                         FileNameRow{"threeCharacters", "xyz", "xyz", "x"}),
                         RowName());

struct PathRow {
    const char* why;
    const char* path;
    const char* part;
};
class GetDirectoryName : public testing::TestWithParam<PathRow> {};
TEST_P(GetDirectoryName, TakesWhatPrecedesTheLastSlash) {
    EXPECT_EQ(getDirectoryName(GetParam().path), GetParam().part);
}
INSTANTIATE_TEST_SUITE_P(Rows, GetDirectoryName,
                         testing::Values(PathRow{"ordinary", "/a/b.txt", "/a"}, PathRow{"relative", "a/b", "a"},
                                         PathRow{"noSlash", "readme", ""}, PathRow{"empty", "", ""},
                                         PathRow{"slashOnlyAtTheStartLosesTheLastCharacter", "/file", "/fil"},
                                         PathRow{"oneCharacterBelowTheRoot", "/a", "/"}, PathRow{"rootItself", "/", ""},
                                         PathRow{"trailingSlash", "/a/b/", "/a/b"},
                                         PathRow{"doubleSlash", "/a//b", "/a/"}, PathRow{"secondCharacter", "a/", "a"}),
                         RowName());

class GetExtension : public testing::TestWithParam<PathRow> {};
TEST_P(GetExtension, TakesWhatFollowsTheLastDotOfTheName) { EXPECT_EQ(getExtension(GetParam().path), GetParam().part); }
INSTANTIATE_TEST_SUITE_P(Rows, GetExtension,
                         testing::Values(PathRow{"ordinary", "/a/b.txt", "txt"}, PathRow{"noFolder", "b.hex", "hex"},
                                         PathRow{"lastOfTwo", "a.tar.gz", "gz"}, PathRow{"none", "/a/readme", ""},
                                         PathRow{"dotInAFolderDoesNotCount", "/a.b/readme", ""},
                                         PathRow{"dotInBoth", "/a.b/c.d", "d"}, PathRow{"trailingDot", "/a/b.", ""},
                                         PathRow{"leadingDot", ".profile", "profile"},
                                         PathRow{"leadingDotInAFolder", "/a/.profile", "profile"},
                                         PathRow{"empty", "", ""}, PathRow{"trailingSlash", "/a.b/", ""},
                                         PathRow{"onlyADot", ".", ""}),
                         RowName());

TEST(GetExtension, HasAtMostAMillionCharacters) {
    const std::string most(1'000'000, 'e');
    EXPECT_EQ(getExtension("a." + most), most);
    EXPECT_EQ(getExtension("a." + most + "f"), most);
}

TEST(GetBackupName, AppendsATilde) {
    EXPECT_EQ(getBackupName("/a/b.txt"), "/a/b.txt~");
    EXPECT_EQ(getBackupName(""), "~");
}

}  // namespace
