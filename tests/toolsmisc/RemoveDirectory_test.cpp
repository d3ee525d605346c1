// Every removal runs confined: a variant of this code that went wrong once emptied a whole folder for temporary files.

#include <fcntl.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "tests/support/Process.h"
#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"
#include "tests/toolsmisc/ChildProcess.h"
#include "tests/toolsmisc/Intercept.h"
#include "toolsmisc/FileSystem.h"

namespace {

namespace fs = std::filesystem;
using testsupport::inConfinedChild;
using testsupport::inMountNamespace;
using testsupport::kNotConfined;
using testsupport::listing;
using testsupport::TempFolder;
using toolsmisc::removeDirectory;
using toolsmisc::removeDirectoryTree;

/// "a/b" is a file, "a/b/" a directory, "a->b" a link named a that leads to b.
void plant(const fs::path& root, const std::vector<std::string>& entries) {
    for (const std::string& entry : entries) {
        const std::size_t arrow = entry.find("->");
        const fs::path path = root / entry.substr(0, arrow);
        fs::create_directories(path.parent_path());
        if (arrow != std::string::npos) {
            fs::create_symlink(entry.substr(arrow + 2), path);
        } else if (entry.back() != '/') {
            std::ofstream(path) << entry;
        }
    }
}

/// What a removal returned and what is left over, seen from the root, which is the current directory of the child.
std::string outcome(unsigned result) { return std::to_string(result) + ": " + listing("."); }

struct TreeRow {
    const char* why;
    std::vector<std::string> planted;
    const char* path;
    const char* outcome;  // result code and what is left
};

class RemoveDirectoryTree : public testing::TestWithParam<TreeRow> {};

TEST_P(RemoveDirectoryTree, RemovesTheNamedFolderAndNothingElse) {
    const TempFolder folder;
    plant(folder.path(), GetParam().planted);
    const auto text = inConfinedChild(folder.path(), [] { return outcome(removeDirectoryTree(GetParam().path)); });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, GetParam().outcome);
}

TEST_P(RemoveDirectoryTree, IsTheSameAsRemoveDirectoryRecursively) {
    const TempFolder folder;
    plant(folder.path(), GetParam().planted);
    const std::string path = GetParam().path;
    const auto text = inConfinedChild(folder.path(), [&] { return outcome(removeDirectory(path, true)); });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, RemoveDirectoryTree,
    testing::Values(
        TreeRow{"files", {"tree/a", "tree/b", "other/c"}, "/tree", "1: other/ other/c"},
        TreeRow{"empty", {"tree/"}, "/tree", "1: "},
        TreeRow{"nested", {"tree/a/b/c/d", "tree/a/b/e", "tree/a/f/", "tree/g"}, "/tree", "1: "},
        TreeRow{"trailingSlash", {"tree/a/b"}, "/tree/", "1: "},
        TreeRow{"trailingSlashes", {"tree/a/b"}, "tree///", "1: "},
        TreeRow{"relative", {"tree/a/b", "a"}, "tree", "1: a"},
        TreeRow{"hiddenStaysWithResultTwo", {"tree/.hidden", "tree/a", "tree/b/c"}, "/tree", "2: tree/ tree/.hidden"},
        TreeRow{"hiddenFolderStays", {"tree/.git/x", "tree/a"}, "/tree", "2: tree/ tree/.git/ tree/.git/x"},
        TreeRow{"hiddenDeeperStaysWithItsFolders",
                {"tree/a/b/.hidden", "tree/a/c", "tree/d"},
                "/tree",
                "2: tree/ tree/a/ tree/a/b/ tree/a/b/.hidden"},
        TreeRow{"hiddenFolderItselfCanBeNamed", {".tree/a"}, "/.tree", "1: "},
        TreeRow{"missing", {"a"}, "/tree", "0: a"}, TreeRow{"regularFileStays", {"tree"}, "/tree", "0: tree"},
        TreeRow{"emptyPathIsNotTheCurrentFolder", {"a", "b/c"}, "", "0: a b/ b/c"},
        // The pattern of "ab" would be "ab*": the folder itself and its neighbours.
        TreeRow{"twoCharacters", {"ab/a", "ab/b/c", "abc/d", "ab1"}, "ab", "1: ab1 abc/ abc/d"},
        TreeRow{"twoCharactersWithASlashAtTheStart", {"t/a", "t1/b"}, "/t", "1: t1/ t1/b"},
        TreeRow{"bracketsAreNoPattern", {"x[1]/a", "x1/b"}, "/x[1]", "1: x1/ x1/b"},
        TreeRow{"bracketsWithinAreNoPattern", {"tree/x[1]/a", "tree/.x1"}, "/tree", "2: tree/ tree/.x1"},
        TreeRow{"starIsNoPattern", {"*/a", "other/b"}, "/*", "1: other/ other/b"},
        TreeRow{"questionMarkIsNoPattern", {"a?c/x", "abc/y"}, "/a?c", "1: abc/ abc/y"},
        TreeRow{"backslashIsNoPattern", {"a\\b/x", "ab/y"}, "/a\\b", "1: ab/ ab/y"},
        TreeRow{"patternsAsEntries", {"tree/*/x", "tree/[a]", "tree/?", "a"}, "/tree", "1: a"},
        TreeRow{"unusualNames", {"tree/ /x", "tree/-rf/y", "tree/a\nb", "tree/~"}, "/tree", "1: "},
        TreeRow{"linksInsideGoAndAreNotFollowed",
                {"tree/toFolder->/out", "tree/toFile->/out/a", "tree/toNothing->/none", "out/a", "tree/b/up->.."},
                "/tree",
                "1: out/ out/a"},
        TreeRow{"linkInsideToItsOwnFolder", {"tree/loop->.", "tree/b/loop->../b"}, "/tree", "1: "},
        TreeRow{"linkAsPathStaysWithWhatItLeadsTo", {"link->tree", "tree/a"}, "/link", "0: link@ tree/ tree/a"},
        TreeRow{"linkWithASlashToo", {"link->tree", "tree/a"}, "/link/", "0: link@ tree/ tree/a"},
        TreeRow{"linkWithSlashesToo", {"link->tree", "tree/a"}, "link//", "0: link@ tree/ tree/a"},
        TreeRow{"linkOnTheWayIsFollowed", {"link->tree", "tree/a/b", "tree/c"}, "/link/a", "1: link@ tree/ tree/c"},
        TreeRow{"dotIsEmptiedButCannotBeRemoved", {"tree/a", "b"}, "/tree/.", "0: b tree/"}),
    RowName());

TEST(RemoveDirectoryTreePath, TakesNullAsNoPath) {
    const TempFolder folder;
    plant(folder.path(), {"a", "b/c"});
    const auto text = inConfinedChild(folder.path(), [] {
        const char* const none = nullptr;
        return outcome(removeDirectoryTree(none)) + ", " + outcome(removeDirectory(none, true)) + ", " +
               outcome(removeDirectory(none, false));
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "0: a b/ b/c, 0: a b/ b/c, 0: a b/ b/c");
}

TEST(RemoveDirectoryTreePath, TakesStringsToo) {
    const TempFolder folder;
    plant(folder.path(), {"tree/a", "b"});
    const auto text = inConfinedChild(folder.path(), [] { return outcome(removeDirectoryTree(std::string("/tree"))); });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "1: b");
}

struct PlainRow {
    const char* why;
    std::vector<std::string> planted;
    const char* path;
    const char* outcome;
};
class RemoveDirectory : public testing::TestWithParam<PlainRow> {};
TEST_P(RemoveDirectory, RemovesOnlyAnEmptyOneWhenNotRecursive) {
    const TempFolder folder;
    plant(folder.path(), GetParam().planted);
    const auto text = inConfinedChild(folder.path(), [] { return outcome(removeDirectory(GetParam().path, false)); });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, GetParam().outcome);
}
INSTANTIATE_TEST_SUITE_P(Rows, RemoveDirectory,
                         testing::Values(PlainRow{"empty", {"dir/", "a"}, "/dir", "1: a"},
                                         PlainRow{"notEmpty", {"dir/a"}, "/dir", "2: dir/ dir/a"},
                                         PlainRow{"hiddenEntry", {"dir/.a"}, "/dir", "2: dir/ dir/.a"},
                                         PlainRow{"missing", {"a"}, "/dir", "0: a"},
                                         PlainRow{"file", {"a"}, "/a", "0: a"},
                                         PlainRow{"link", {"dir/", "link->dir"}, "/link", "0: dir/ link@"},
                                         PlainRow{"emptyPath", {"a"}, "", "0: a"}),
                         RowName());

TEST(RemoveDirectoryTreePermissions, AnEmptyFolderThatCannotBeReadIsRemovedStill) {
    const TempFolder folder;
    plant(folder.path(), {"tree/closed/", "tree/full/a", "tree/b"});
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/tree/closed", 0);
        chmod("/tree/full", 0);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const unsigned result = removeDirectoryTree("/tree");
        chmod("/tree/full", 0700);
        return outcome(result);
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "2: tree/ tree/full/ tree/full/a");
}

// Without the right to search a folder there is no way back up from it: the walk must go on beside it.
TEST(RemoveDirectoryTreePermissions, AFolderWithoutAWayBackIsLeftAndTheWalkGoesOn) {
    const TempFolder folder;
    plant(folder.path(), {"tree/a/x/y", "tree/b/x/y", "tree/c/x/y", "tree/d"});
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/tree/b", 0400);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const unsigned result = removeDirectoryTree("/tree");
        chmod("/tree/b", 0700);
        return outcome(result);
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "2: tree/ tree/b/ tree/b/x/ tree/b/x/y");
}

TEST(RemoveDirectoryTreePermissions, AFolderThatAllowsNoRemovalIsLeft) {
    const TempFolder folder;
    plant(folder.path(), {"tree/fixed/a", "tree/fixed/b/", "tree/c"});
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/tree/fixed", 0500);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const unsigned result = removeDirectoryTree("/tree");
        chmod("/tree/fixed", 0700);
        return outcome(result);
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "2: tree/ tree/fixed/ tree/fixed/a tree/fixed/b/");
}

constexpr int kDepth = 2000;

/// `kDepth` folders, one in the other, a file in every tenth.
void plantDeepTree() {
    mkdir("/tree", 0700);
    int here = open("/tree", O_PATH | O_CLOEXEC);
    for (int level = 0; level < kDepth; ++level) {
        if (level % 10 == 0) close(openat(here, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        mkdirat(here, "next", 0700);
        const int next = openat(here, "next", O_PATH | O_CLOEXEC);
        close(here);
        here = next;
    }
    close(here);
}

void* removeDeepTree(void* result) {
    *static_cast<unsigned*>(result) = removeDirectoryTree("/tree");
    return nullptr;
}

/// Memory as a place for many small folders where there is such a place: a disk takes seconds for them.
const char* quickPlace() { return access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : nullptr; }

// A walk by recursion or with a descriptor a level would overflow the small stack or run out of descriptors.
TEST(RemoveDirectoryTreeDepth, ThousandsOfLevelsNeedNeitherStackNorDescriptors) {
    const testsupport::ScopedEnvironment place("TMPDIR", quickPlace());
    const TempFolder folder;
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        plantDeepTree();
        const rlimit few{16, 16};
        setrlimit(RLIMIT_NOFILE, &few);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        const std::size_t smallStack = testsupport::instrumentedBuild() ? 256 * 1024 : 16384;
        if (pthread_attr_setstacksize(&attributes, smallStack) != 0) return "no small stack";
        unsigned result = 99;
        pthread_t thread{};
        if (pthread_create(&thread, &attributes, &removeDeepTree, &result) != 0) return "no thread";
        pthread_join(thread, nullptr);
        return outcome(result);
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "1: ");
}

TEST(RemoveDirectoryTreeDepth, LeavesNoDescriptorOpen) {
    const TempFolder folder;
    plant(folder.path(), {"tree/a/b/c", "tree/.d/e", "tree/f->a", "file", "link->tree"});
    const auto text = inConfinedChild(folder.path(), [] {
        const int before = dup(STDIN_FILENO);
        close(before);
        removeDirectoryTree("/tree");
        removeDirectoryTree("/file");
        removeDirectoryTree("/link");
        const int after = dup(STDIN_FILENO);
        return std::string(before == after ? "none left" : "left open");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "none left");
}

// The folder being emptied is moved away: the way up leads to its new neighbours, which must stay.
TEST(RemoveDirectoryTreeRaces, AFolderMovedAwayDoesNotTakeTheWalkWithIt) {
    const TempFolder folder;
    plant(folder.path(), {"tree/sub/trigger", "out/"});
    for (int i = 0; i < 20; ++i) plant(folder.path(), {"out/f" + std::to_string(i), "tree/f" + std::to_string(i)});
    const std::string before = listing(folder / "out");
    const auto text = inConfinedChild(folder.path(), [] {
        const intercept::UnlinkAction script(intercept::When::before, "trigger",
                                             [] { rename("/tree/sub", "/out/sub"); });
        removeDirectoryTree("/tree");
        return std::to_string(script.calls) + ": " + listing("/out");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "1: " + before + " sub/");
}

// Between the attempt to unlink a folder and the walk into it the folder is replaced by a link to somebody else's.
TEST(RemoveDirectoryTreeRaces, AFolderReplacedByALinkIsNotEntered) {
    const TempFolder folder;
    plant(folder.path(), {"tree/sub/a", "out/b", "link->out"});
    const auto text = inConfinedChild(folder.path(), [] {
        const intercept::UnlinkAction script(intercept::When::after, "sub", [] {
            rename("/tree/sub", "/elsewhere");
            rename("/link", "/tree/sub");
        });
        removeDirectoryTree("/tree");
        return std::to_string(script.calls) + ": " + listing("/out");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "1: b");
}

// Each folder is listed once: somebody who adds entries for ever does not keep the call for ever.
TEST(RemoveDirectoryTreeRaces, EndsAlthoughEveryRemovalIsFollowedByANewEntry) {
    const TempFolder folder;
    plant(folder.path(), {"tree/a", "tree/b/c"});
    const auto text = inConfinedChild(folder.path(), [] {
        int created = 0;
        const intercept::UnlinkAction script(
            intercept::When::after, "", [&created] { std::ofstream("/tree/new" + std::to_string(++created)) << "x"; });
        return std::to_string(removeDirectoryTree("/tree"));
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "2");
}

TEST(RemoveDirectoryTreeMounts, WhatIsMountedInsideIsLeftAsItIs) {
    const TempFolder folder;
    plant(folder.path(), {"tree/mounted/", "tree/a/b"});
    const auto prepare = [&] {
        const std::string target = folder / "tree/mounted";
        if (mount("none", target.c_str(), "tmpfs", 0, nullptr) != 0) return false;
        plant(target, {"c/d", "e"});
        return true;
    };
    const auto text = inMountNamespace(folder.path(), prepare, [] { return outcome(removeDirectoryTree("/tree")); });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "2: tree/ tree/mounted/ tree/mounted/c/ tree/mounted/c/d tree/mounted/e");
}

// The second place of a folder is on the same device: only the number of the mount tells.
TEST(RemoveDirectoryTreeMounts, AFolderMountedInASecondPlaceIsLeftAsItIs) {
    const TempFolder folder;
    plant(folder.path(), {"tree/mounted/", "tree/a/b", "home/c/d", "home/e"});
    const auto prepare = [&] {
        return mount((folder / "home").c_str(), (folder / "tree/mounted").c_str(), nullptr, MS_BIND, nullptr) == 0;
    };
    const auto text = inMountNamespace(folder.path(), prepare, [] {
        struct statx status {};
        statx(AT_FDCWD, "/", 0, STATX_MNT_ID, &status);
        if (status.stx_mnt_id == 0) return std::string("no mount numbers");
        const unsigned result = removeDirectoryTree("/tree");
        return std::to_string(result) + ": " + listing("/home");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    if (*text == "no mount numbers") GTEST_SKIP() << "mounts have no numbers here";
    EXPECT_EQ(*text, "2: c/ c/d e");
}

}  // namespace
