#include "toolsmisc/FileSystem.h"

#include <fcntl.h>
#include <glob.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"
#include "tests/toolsmisc/ChildProcess.h"
#include "tests/toolsmisc/NoPath.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testsupport::inChild;
using testsupport::inConfinedChild;
using testsupport::kNotConfined;
using testsupport::listing;
using testsupport::TempFolder;
using namespace toolsmisc;

struct KindRow {
    const char* why;
    const char* name;
    bool regular;
    bool directory;
    bool directoryFollowed;
};

class FileKind : public testing::TestWithParam<KindRow> {
protected:
    FileKind() {
        folder.write("file", "x");
        folder.write("dir/inside", "x");
        links = symlink("file", (folder / "toFile").c_str()) == 0 && symlink("dir", (folder / "toDir").c_str()) == 0 &&
                symlink("none", (folder / "toNothing").c_str()) == 0 &&
                symlink("loop", (folder / "loop").c_str()) == 0 && mkfifo((folder / "fifo").c_str(), 0600) == 0;
    }

    TempFolder folder;
    bool links = false;
};

TEST_P(FileKind, IsToldApart) {
    ASSERT_TRUE(links);
    const KindRow& row = GetParam();
    const std::string path = row.name[0] == '/' ? row.name : folder / row.name;
    EXPECT_EQ(isRegularFile(path), row.regular);
    EXPECT_EQ(isDirectory(path, false), row.directory);
    EXPECT_EQ(isDirectory(path, true), row.directoryFollowed);
    EXPECT_EQ(isRegularFile(path.c_str()), row.regular);
    EXPECT_EQ(isDirectory(path.c_str(), false), row.directory);
    EXPECT_EQ(isDirectory(path.c_str(), true), row.directoryFollowed);
}
INSTANTIATE_TEST_SUITE_P(Rows, FileKind,
                         testing::Values(KindRow{"file", "file", true, false, false},
                                         KindRow{"directory", "dir", false, true, true},
                                         KindRow{"linkToAFileIsNoFile", "toFile", false, false, false},
                                         KindRow{"linkToADirectory", "toDir", false, false, true},
                                         KindRow{"linkToADirectoryWithASlash", "toDir/", false, true, true},
                                         KindRow{"danglingLink", "toNothing", false, false, false},
                                         KindRow{"linkToItself", "loop", false, false, false},
                                         KindRow{"pipe", "fifo", false, false, false},
                                         KindRow{"device", "/dev/null", false, false, false},
                                         KindRow{"missing", "missing", false, false, false},
                                         KindRow{"belowAFile", "file/x", false, false, false},
                                         KindRow{"belowADirectory", "dir/inside", true, false, false}),
                         RowName());

TEST(FileKindOfNothing, IsNone) {
    EXPECT_FALSE(isRegularFile(""));
    EXPECT_FALSE(isRegularFile(kNoPath));
    EXPECT_FALSE(isDirectory("", true));
    EXPECT_FALSE(isDirectory(kNoPath, true));
    EXPECT_FALSE(isDirectory(kNoPath, false));
}

TEST(IsMountPoint, TellsTheRootAndOtherDevicesFromOrdinaryFolders) {
    const TempFolder folder;
    EXPECT_TRUE(isMountPoint("/"));
    EXPECT_TRUE(isMountPoint(std::string("/proc")));
    EXPECT_TRUE(isMountPoint("/proc/"));
    EXPECT_FALSE(isMountPoint("/proc/self")) << "a link on the same device as the folder above it";
    EXPECT_FALSE(isMountPoint(folder.path()));
    EXPECT_FALSE(isMountPoint("//")) << "only exactly \"/\" is the root";
    EXPECT_FALSE(isMountPoint("/."));
    EXPECT_FALSE(isMountPoint(folder.write("file", "x")));
    EXPECT_FALSE(isMountPoint(folder / "missing"));
    EXPECT_FALSE(isMountPoint(""));
    EXPECT_FALSE(isMountPoint(kNoPath));
}

// The link's own device is compared with that of the folder above its target.
TEST(IsMountPoint, ALinkIntoAnotherDeviceCountsAsOne) {
    const TempFolder folder;
    ASSERT_EQ(symlink("/proc/sys/kernel", (folder / "link").c_str()), 0);
    ASSERT_EQ(symlink("/proc/version", (folder / "toFile").c_str()), 0);
    ASSERT_EQ(symlink("/proc", (folder / "toMount").c_str()), 0);
    EXPECT_TRUE(isMountPoint(folder / "link"));
    EXPECT_FALSE(isMountPoint(folder / "toFile")) << "not a directory";
    struct stat root {};
    struct stat link {};
    ASSERT_EQ(stat("/", &root), 0);
    ASSERT_EQ(stat(folder.path().c_str(), &link), 0);
    EXPECT_EQ(isMountPoint(folder / "toMount"), root.st_dev != link.st_dev);
}

TEST(IsMountPoint, NeverFindsAPathOfTwoCharacters) {
    const TempFolder folder;
    for (const char* name : {"m", "mn", "mnt"}) fs::create_directory(folder / name);
    const auto prepare = [&] {
        bool mounted = true;
        for (const char* name : {"m", "mn", "mnt"}) {
            mounted = mount("none", (folder / name).c_str(), "tmpfs", 0, nullptr) == 0 && mounted;
        }
        return mounted;
    };
    const auto text = testsupport::inMountNamespace(folder.path(), prepare, [] {
        std::string found;
        for (const char* path : {"/mnt", "/mnt/", "/mn", "mnt", "mn", "m", "/m", "./mn", "/m/"}) {
            if (isMountPoint(path)) found += std::string(path) + " ";
        }
        return found;
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "/mnt /mnt/ /mn mnt m ./mn /m/ ");
}

TEST(GetModificationTime, IsInWholeSecondsAndFollowsLinks) {
    const TempFolder folder;
    const std::string file = folder.write("file", "x");
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    const timespec times[2] = {{1, 0}, {1'700'000'000, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    EXPECT_EQ(getModificationTime(file), 1'700'000'000);
    EXPECT_EQ(getModificationTime((folder / "link").c_str()), 1'700'000'000);
}

TEST(GetModificationTime, IsZeroWhenItCannotBeHad) {
    const TempFolder folder;
    EXPECT_EQ(getModificationTime(folder / "missing"), 0);
    EXPECT_EQ(getModificationTime(""), 0);
    EXPECT_EQ(getModificationTime(kNoPath), 0);
}

TEST(GetFileSize, CountsBytesAndFollowsLinks) {
    const TempFolder folder;
    folder.write("file", "12345");
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    EXPECT_EQ(getFileSize(folder / "file"), 5);
    EXPECT_EQ(getFileSize((folder / "link").c_str()), 5);
    EXPECT_EQ(getFileSize(folder.write("empty", "")), 0);
}

TEST(GetFileSize, IsMinusOneWhenItCannotBeHad) {
    const TempFolder folder;
    EXPECT_EQ(getFileSize(folder / "missing"), -1);
    EXPECT_EQ(getFileSize(""), -1);
    EXPECT_EQ(getFileSize(kNoPath), -1);
}

// A size that wraps would look like a small file, or like a missing one with a wrong number.
TEST(GetFileSize, IsMinusOneBeyond31Bits) {
    const TempFolder folder;
    const std::string file = folder.write("sparse", "");
    if (truncate(file.c_str(), 0x7FFFFFFF) != 0) GTEST_SKIP() << "no sparse files here";
    EXPECT_EQ(getFileSize(file), INT_MAX);
    for (const off_t size : {off_t{0x80000000}, off_t{0x100000005}}) {
        ASSERT_EQ(truncate(file.c_str(), size), 0);
        errno = 0;
        EXPECT_EQ(getFileSize(file), -1);
        EXPECT_EQ(errno, EOVERFLOW);
    }
}

TEST(RenameFile, MovesAndReplaces) {
    const TempFolder folder;
    folder.write("a", "content of a");
    folder.write("b", "content of b");
    EXPECT_TRUE(renameFile(folder / "a", folder / "b"));
    EXPECT_EQ(listing(folder.path()), "b");
    EXPECT_EQ(testsupport::readFile(folder / "b"), "content of a");
    EXPECT_TRUE(renameFile((folder / "b").c_str(), (folder / "c").c_str()));
    EXPECT_EQ(listing(folder.path()), "c");
}

TEST(RenameFile, ReportsFailure) {
    const TempFolder folder;
    folder.write("a", "x");
    EXPECT_FALSE(renameFile(folder / "missing", folder / "b"));
    EXPECT_FALSE(renameFile(folder / "a", folder / "none/b"));
    EXPECT_FALSE(renameFile(kNoPath, (folder / "b").c_str()));
    EXPECT_FALSE(renameFile((folder / "a").c_str(), kNoPath));
    EXPECT_EQ(listing(folder.path()), "a");
}

TEST(RemoveFile, RemovesARegularFile) {
    const TempFolder folder;
    EXPECT_TRUE(removeFile(folder.write("a", "x")));
    EXPECT_TRUE(removeFile(folder.write("b", "x").c_str()));
    EXPECT_EQ(listing(folder.path()), "");
}

TEST(RemoveFile, RemovesNothingElse) {
    const TempFolder folder;
    folder.write("file", "x");
    fs::create_directory(folder / "dir");
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const char* name : {"dir", "link", "pipe", "missing", "file/x"})
        EXPECT_FALSE(removeFile(folder / name)) << name;
    EXPECT_FALSE(removeFile(""));
    EXPECT_FALSE(removeFile(kNoPath));
    EXPECT_EQ(listing(folder.path()), "dir/ file link@ pipe");
}

TEST(RemoveFile, ReportsARefusal) {
    const TempFolder folder;
    folder.write("dir/file", "x");
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/dir", 0500);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const bool removed = removeFile("/dir/file");
        chmod("/dir", 0700);
        return (removed ? "true " : "false ") + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "false dir/ dir/file");
}

struct MakeRow {
    const char* why;
    const char* path;
    bool complete;
    const char* afterwards;  // "fi", "file", "link@" and "there/" were there before
};
class MakeDirectories : public testing::TestWithParam<MakeRow> {};
TEST_P(MakeDirectories, CreatesWhatIsMissingAlongThePath) {
    const TempFolder folder;
    for (const char* file : {"file", "fi"}) folder.write(file, "x");
    fs::create_directory(folder / "there");
    ASSERT_EQ(symlink("there", (folder / "link").c_str()), 0);
    const auto text = inConfinedChild(folder.path(), [] {
        const bool complete = makeDirectories(GetParam().path);
        return (complete ? "true: " : "false: ") + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, std::string(GetParam().complete ? "true: " : "false: ") + GetParam().afterwards);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, MakeDirectories,
    testing::Values(MakeRow{"absolute", "/abc/def/ghi", true, "abc/ abc/def/ abc/def/ghi/ fi file link@ there/"},
                    MakeRow{"relative", "abc/def", true, "abc/ abc/def/ fi file link@ there/"},
                    MakeRow{"one", "abc", true, "abc/ fi file link@ there/"},
                    MakeRow{"trailingSlash", "abc/def/", true, "abc/ abc/def/ fi file link@ there/"},
                    MakeRow{"doubleSlash", "abc//def", true, "abc/ abc/def/ fi file link@ there/"},
                    MakeRow{"existing", "/there", true, "fi file link@ there/"},
                    MakeRow{"belowAnExisting", "there/def", true, "fi file link@ there/ there/def/"},
                    MakeRow{"linkToADirectoryServes", "link/def", true, "fi file link@ there/ there/def/"},
                    MakeRow{"root", "/", true, "fi file link@ there/"},
                    MakeRow{"emptyPathNeedsNothing", "", true, "fi file link@ there/"},
                    MakeRow{"twoCharactersJoinWithoutSeparator", "ab/cd/e", true,
                            "ab/ abcd/ abcd/e/ fi file link@ there/"},
                    MakeRow{"twoCharactersWithASlashToo", "/x/yy", true, "fi file link@ there/ x/ xyy/"},
                    MakeRow{"dot", "./abc", true, "abc/ fi file link@ there/"},
                    MakeRow{"dotsAreTwoCharacters", "../abc", true, "..abc/ fi file link@ there/"},
                    MakeRow{"fileInTheWay", "file", false, "fi file link@ there/"},
                    MakeRow{"belowAFile", "/file/abc", false, "fi file link@ there/"},
                    MakeRow{"goesOnBehindAFailure", "fi/ab", false, "fi fiab/ file link@ there/"}),
    RowName());

TEST(MakeDirectoriesMode, IsEverythingThatTheUmaskAllows) {
    const TempFolder folder;
    const auto modeWith = [&](mode_t mask, const std::string& name) {
        const mode_t previous = umask(mask);
        EXPECT_TRUE(makeDirectories(folder / name));
        umask(previous);
        struct stat status {};
        stat((folder / name).c_str(), &status);
        return status.st_mode & 07777U;
    };
    EXPECT_EQ(modeWith(0, "open"), 0777U);
    EXPECT_EQ(modeWith(027, "masked"), 0750U);
}

TEST(MakeDirectoriesMode, TakesNullAsNoPath) { EXPECT_TRUE(makeDirectories(kNoPath)); }

// The name is used up by the first call, so each case has a process of its own.
TEST(MakeTempDirectory, SucceedsOnceAProcess) {
    const std::string text = inChild([] {
        std::string first = "before";
        const bool created = makeTempDirectory(first);
        struct stat status {};
        const bool isThere = stat(first.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        std::string second = "before";
        const bool again = makeTempDirectory(second);
        std::string third = "before";
        const bool onceMore = makeTempDirectory(third);
        const bool isPrivate = (status.st_mode & 07777U) == 0700U;
        rmdir(first.c_str());
        return std::string(created ? "created " : "failed ") + (isThere ? "there " : "missing ") +
               (isPrivate ? "private " : "open ") + first.substr(0, 15) + " " + std::to_string(first.size()) +
               (first.find("XXXXXX") == std::string::npos ? " named" : " unnamed") + (again ? " again" : " once") +
               "[" + second + "]" + (onceMore ? " again" : " once") + "[" + third + "]";
    });
    EXPECT_EQ(text, "created there private /tmp/toolsmisc- 21 named once[] once[]");
}

TEST(MakeTempDirectory, IsFalseAndEmptyWhenItFails) {
    const TempFolder folder;
    const auto text = inConfinedChild(folder.path(), [] {
        std::string out = "before";
        const bool created = makeTempDirectory(out);
        return std::string(created ? "created" : "failed") + "[" + out + "]" + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "failed[]");
}

TEST(MakeTempDirectory, OneOfManyThreadsSucceeds) {
    const std::string text = inChild([] {
        std::atomic<int> created{0};
        std::atomic<int> emptied{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&] {
                std::string out = "before";
                if (makeTempDirectory(out)) {
                    ++created;
                    rmdir(out.c_str());
                } else if (out.empty()) {
                    ++emptied;
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        return std::to_string(created) + " " + std::to_string(emptied);
    });
    EXPECT_EQ(text, "1 7");
}

TEST(FindFiles, GivesThePathsThatMatch) {
    const TempFolder folder;
    for (const char* name : {"a1.hex", "a2.hex", "b1.hex", ".hidden.hex", "a3.txt", "sub/a4.hex"})
        folder.write(name, "");
    EXPECT_THAT(findFiles(folder / "a*.hex", false), UnorderedElementsAre(folder / "a1.hex", folder / "a2.hex"));
    EXPECT_THAT(findFiles((folder / "[ab]1.hex").c_str(), true),
                UnorderedElementsAre(folder / "a1.hex", folder / "b1.hex"));
    EXPECT_THAT(findFiles(folder / "*/a?.hex", false), ElementsAre(folder / "sub/a4.hex"));
    EXPECT_THAT(findFiles(folder / "a3.txt", false), ElementsAre(folder / "a3.txt")) << "a name is its own match";
    EXPECT_THAT(findFiles(folder / "su*", false), ElementsAre(folder / "sub")) << "directories without a slash";
}

TEST(FindFiles, IsEmptyWithoutAMatch) {
    const TempFolder folder;
    EXPECT_THAT(findFiles(folder / "*", false), IsEmpty());
    EXPECT_THAT(findFiles(folder / "none/*", true), IsEmpty());
    EXPECT_THAT(findFiles("", true), IsEmpty());
    EXPECT_THAT(findFiles(kNoPath, true), IsEmpty());
}

TEST(FindFiles, KeepsTheOrderOfTheDirectory) {
    const TempFolder folder;
    for (int i = 0; i < 60; ++i) folder.write("f" + std::to_string(i * 7919 % 1000), "");
    glob_t matches{};
    ASSERT_EQ(glob((folder / "f*").c_str(), GLOB_NOSORT, nullptr, &matches), 0);
    const std::vector<std::string> expected(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    globfree(&matches);
    ASSERT_EQ(expected.size(), 60U);
    EXPECT_EQ(findFiles(folder / "f*", false), expected);
    EXPECT_EQ(findFiles(folder / "f*", true), expected);
}

TEST(FindFiles, AFolderThatCannotBeReadIsAnErrorOnlyIfErrorsCount) {
    const TempFolder folder;
    folder.write("good/file", "");
    folder.write("unreadable/file", "");
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/unreadable", 0300);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const std::size_t strict = findFiles("*/f*", false).size();
        const std::vector<std::string> found = findFiles("*/f*", true);
        chmod("/unreadable", 0700);
        return std::to_string(strict) + " " + std::to_string(found.size()) + " " + (found.empty() ? "" : found.front());
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "0 1 good/file");
}

}  // namespace
