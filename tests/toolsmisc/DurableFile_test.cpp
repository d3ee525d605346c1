#include "toolsmisc/DurableFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/Process.h"
#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"
#include "tests/toolsmisc/ChildProcess.h"
#include "tests/toolsmisc/Intercept.h"
#include "tests/toolsmisc/NoPath.h"
#include "toolsmisc/FileInfo.h"

namespace {

namespace fs = std::filesystem;
namespace tm = toolsmisc;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testsupport::inConfinedChild;
using testsupport::kNotConfined;
using testsupport::listing;
using testsupport::TempFolder;

/// Content of a file as the test sees it.
std::string contentOf(const std::string& path) { return testsupport::readFile(path); }

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : previous(umask(mask)) {}
    ~ScopedUmask() { umask(previous); }
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    mode_t previous;
};

struct NormalizeRow {
    const char* why;
    const char* path;
    const char* normal;
};
class NormalizePath : public testing::TestWithParam<NormalizeRow> {};
TEST_P(NormalizePath, KnowsHomeAndBackslashes) {
    const intercept::UserDatabase users("/home/op");
    EXPECT_EQ(tm::normalizePath(GetParam().path), GetParam().normal);
    EXPECT_EQ(tm::normalizePath(std::string(GetParam().path)), GetParam().normal);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, NormalizePath,
    testing::Values(NormalizeRow{"homeAndBackslashes", "~\\logs\\a.txt", "/home/op/logs/a.txt"},
                    NormalizeRow{"homeAndSlashes", "~/logs/a.txt", "/home/op/logs/a.txt"},
                    NormalizeRow{"homeAlone", "~", "/home/op"}, NormalizeRow{"onlyOneTilde", "~~", "/home/op~"},
                    NormalizeRow{"noOtherUsers", "~op/x", "/home/opop/x"}, NormalizeRow{"tildeLater", "/a/~", "/a/~"},
                    NormalizeRow{"tildeAfterBackslash", "\\~", "/~"}, NormalizeRow{"plain", "/a/b", "/a/b"},
                    NormalizeRow{"everyBackslash", "\\\\a\\b\\", "//a/b/"}, NormalizeRow{"empty", "", ""}),
    RowName());

TEST(NormalizePathHome, IsThatOfTheRealUserByTheUserDatabase) {
    const testsupport::ScopedEnvironment home("HOME", "/not/this/one");
    const intercept::UserDatabase users("/home/op");
    EXPECT_EQ(tm::normalizePath("~/a"), "/home/op/a");
    EXPECT_THAT(users.asked, ElementsAre(getuid()));
}

TEST(NormalizePathHome, IsThatOfTheSystem) {
    const passwd* const entry = getpwuid(getuid());
    if (entry == nullptr) GTEST_SKIP() << "the user has no entry";
    EXPECT_EQ(tm::normalizePath("~/a"), std::string(entry->pw_dir) + "/a");
}

TEST(NormalizePathHome, IsNotAskedForWithoutATilde) {
    const intercept::UserDatabase users("/home/op");
    EXPECT_EQ(tm::normalizePath("a~\\b"), "a~/b");
    EXPECT_THAT(users.asked, IsEmpty());
}

TEST(NormalizePathHome, UnknownKeepsTheTilde) {
    const intercept::UserDatabase users(std::nullopt);
    EXPECT_EQ(tm::normalizePath("~\\a"), "~/a");
}

TEST(NormalizePathHome, GetsSlashesForItsBackslashesToo) {
    const intercept::UserDatabase users("/home\\op");
    EXPECT_EQ(tm::normalizePath("~\\a"), "/home/op/a");
}

TEST(NormalizePathHome, MayNeedALargeBuffer) {
    const intercept::UserDatabase users("/home/op", 50'000);
    EXPECT_EQ(tm::normalizePath("~\\a"), "/home/op/a");
}

TEST(NormalizePathHome, IsUnknownWhenNoBufferIsLargeEnough) {
    const intercept::UserDatabase users("/home/op", SIZE_MAX);
    EXPECT_EQ(tm::normalizePath("~\\a"), "~/a");
}

TEST(NormalizePathHome, TakesNullAsNoPath) { EXPECT_EQ(tm::normalizePath(kNoPath), ""); }

/// `createFile` and `openForWrite` find, create and refuse the same files.
struct Opener {
    const char* why;
    int (*byString)(const std::string&);
    int (*byText)(const char*);
    int access;
};
class CreatingOpen : public testing::TestWithParam<Opener> {
protected:
    static int open(const std::string& path) { return GetParam().byString(path); }
};
INSTANTIATE_TEST_SUITE_P(Both, CreatingOpen,
                         testing::Values(Opener{"createFile", &tm::createFile, &tm::createFile, O_RDWR},
                                         Opener{"openForWrite", &tm::openForWrite, &tm::openForWrite, O_WRONLY}),
                         RowName());

TEST_P(CreatingOpen, CreatesTheMissingDirectoriesFirst) {
    const TempFolder folder;
    const auto text = inConfinedChild(folder.path(), [] {
        const bool opened = open("/tmp/x/y/z.dat") >= 0;
        return (opened ? "opened " : "failed ") + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "opened tmp/ tmp/x/ tmp/x/y/ tmp/x/y/z.dat");
}

TEST_P(CreatingOpen, OpensWithTheRightAccess) {
    const TempFolder folder;
    const int fd = GetParam().byText((folder / "file").c_str());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, GetParam().access);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "started programs do not inherit it";
    EXPECT_EQ(close(fd), 0);
}

TEST_P(CreatingOpen, KeepsWhatIsInTheFile) {
    const TempFolder folder;
    const std::string file = folder.write("file", "content");
    const int fd = open(file);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "C", 1), 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(contentOf(file), "Content");
}

TEST_P(CreatingOpen, NormalisesThePath) {
    const TempFolder folder;
    const intercept::UserDatabase users(folder.path());
    const int fd = open("~\\logs\\a.txt");
    ASSERT_GE(fd, 0);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(listing(folder.path()), "logs/ logs/a.txt");
}

TEST_P(CreatingOpen, GivesModesAsFarAsTheUmaskAllows) {
    const TempFolder folder;
    {
        const ScopedUmask none(0);
        close(open(folder / "open/file"));
    }
    {
        const ScopedUmask some(027);
        close(open(folder / "masked/file"));
    }
    EXPECT_EQ(modeOf(folder / "open"), 0755U);
    EXPECT_EQ(modeOf(folder / "open/file"), 0775U);
    EXPECT_EQ(modeOf(folder / "masked"), 0750U);
    EXPECT_EQ(modeOf(folder / "masked/file"), 0750U);
}

struct WalkRow {
    const char* why;
    const char* path;
    const char* outcome;  // "there/" and "file" and "link@" were there before
};
const WalkRow kWalks[] = {
    {"absolute", "/a/b/c", "opened a/ a/b/ a/b/c file link@ there/"},
    {"relative", "a/b/c", "opened a/ a/b/ a/b/c file link@ there/"},
    {"inTheCurrentDirectory", "c", "opened c file link@ there/"},
    {"inTheRoot", "/c", "opened c file link@ there/"},
    {"twoCharacters", "ab/cd/e", "opened ab/ ab/cd/ ab/cd/e file link@ there/"},
    {"existingDirectory", "/there/c", "opened file link@ there/ there/c"},
    {"belowAnExistingDirectory", "/there/b/c", "opened file link@ there/ there/b/ there/b/c"},
    {"linkOnTheWayIsFollowed", "/link/b/c", "opened file link@ there/ there/b/ there/b/c"},
    {"dots", "./a/../b/c", "opened a/ b/ b/c file link@ there/"},
    {"emptyComponentEndsTheWalk", "/a//b/c", "failed 22 a/ file link@ there/"},
    {"emptyComponentAtTheEnd", "a//c", "failed 22 a/ file link@ there/"},
    {"emptyComponentAtTheStart", "//a/c", "failed 22 file link@ there/"},
    {"emptyComponentOfExistingDirectories", "//there//c", "opened file link@ there/ there/c"},
    {"fileOnTheWay", "/file/b/c", "failed 20 file link@ there/"},
    {"fileAsDirectory", "/file/c", "failed 20 file link@ there/"},
    {"directoryAsFile", "/there", "failed 21 file link@ there/"},
    {"nothing", "", "failed 2 file link@ there/"},
    {"onlyDirectories", "/a/b/", "failed 21 a/ a/b/ file link@ there/"},
};

TEST_P(CreatingOpen, WalksFromTheRootOrTheCurrentDirectory) {
    for (const WalkRow& row : kWalks) {
        const TempFolder folder;
        folder.write("file", "x");
        fs::create_directory(folder / "there");
        ASSERT_EQ(symlink("there", (folder / "link").c_str()), 0);
        const auto text = inConfinedChild(folder.path(), [&] {
            errno = 0;
            const bool opened = open(row.path) >= 0;
            const int reason = errno;
            return (opened ? "opened " : "failed " + std::to_string(reason) + " ") + listing(".");
        });
        if (!text) GTEST_SKIP() << kNotConfined;
        EXPECT_EQ(*text, row.outcome) << row.why;
    }
}

TEST_P(CreatingOpen, TakesNullAsNoPath) {
    errno = 0;
    EXPECT_EQ(GetParam().byText(kNoPath), -1);
    EXPECT_EQ(errno, ENOENT);
}

// Other threads of a tool work with relative paths meanwhile.
TEST_P(CreatingOpen, NeverMovesTheCurrentDirectory) {
    const TempFolder folder;
    const intercept::CurrentDirectoryMoves moves;
    close(open(folder / "a/b/c"));
    EXPECT_EQ(open(folder / "d//e/f"), -1);
    EXPECT_EQ(moves.calls, 0);
    EXPECT_EQ(listing(folder.path()), "a/ a/b/ a/b/c d/");
}

TEST_P(CreatingOpen, LeavesNothingElseOpen) {
    const TempFolder folder;
    const std::size_t before = testsupport::openDescriptors();
    close(open(folder / "a/b/c"));
    EXPECT_EQ(open(folder / "d//e/f"), -1);
    EXPECT_EQ(testsupport::openDescriptors(), before);
}

// Entering a directory needs the right to search it, not the right to read it.
TEST_P(CreatingOpen, WalksThroughDirectoriesThatCannotBeRead) {
    const TempFolder folder;
    fs::create_directory(folder / "closed");
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/closed", 0300);
        if (!testsupport::loseRootsRights()) return "rights kept";
        const bool opened = open("/closed/a/b") >= 0;
        chmod("/closed", 0700);
        return (opened ? "opened " : "failed ") + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "opened closed/ closed/a/ closed/a/b");
}

TEST_P(CreatingOpen, FailsWhereNoDirectoryCanBeCreated) {
    const TempFolder folder;
    fs::create_directory(folder / "fixed");
    const auto text = inConfinedChild(folder.path(), []() -> std::string {
        chmod("/fixed", 0500);
        if (!testsupport::loseRootsRights()) return "rights kept";
        errno = 0;
        const bool opened = open("/fixed/a/b") >= 0;
        const int reason = errno;
        chmod("/fixed", 0700);
        return (opened ? "opened " : "failed " + std::to_string(reason) + " ") + listing(".");
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "failed 13 fixed/") << "the reason why it could not be created, and not that it is missing";
}

TEST(OpenForRead, OpensTheNormalisedPathForReadingOnly) {
    const TempFolder folder;
    folder.write("logs/a.txt", "content");
    const intercept::UserDatabase users(folder.path());
    const int fd = tm::openForRead("~\\logs\\a.txt");
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(close(fd), 0);
    const int again = tm::openForRead(std::string("~/logs/a.txt"));
    EXPECT_GE(again, 0);
    EXPECT_EQ(close(again), 0);
}

TEST(OpenForRead, CreatesNothing) {
    const TempFolder folder;
    errno = 0;
    EXPECT_EQ(tm::openForRead(folder / "a/b"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(tm::openForRead(kNoPath), -1);
    EXPECT_EQ(tm::openForRead(""), -1);
    EXPECT_EQ(listing(folder.path()), "");
}

TEST(CloseFile, WritesTheFileThenClosesThenWritesEverything) {
    const TempFolder folder;
    const int fd = tm::createFile(folder / "file");
    const std::string number = std::to_string(fd);
    const intercept::CloseJournal journal;
    EXPECT_EQ(tm::closeFile(fd), 0);
    EXPECT_THAT(journal.calls, ElementsAre("fsync " + number, "close " + number, "sync"));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(CloseFile, GivesTheResultOfClose) {
    const TempFolder folder;
    const int fd = tm::createFile(folder / "file");
    const intercept::CloseJournal journal(1);
    errno = 0;
    EXPECT_EQ(tm::closeFile(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_THAT(journal.calls, SizeIs(3));
}

TEST(CloseFile, OfNoDescriptorFailsAndStillWritesEverything) {
    const intercept::CloseJournal journal;
    errno = 0;
    EXPECT_EQ(tm::closeFile(-1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_THAT(journal.calls, ElementsAre("fsync -1", "close -1", "sync"));
}

// A pipe cannot be written to a medium: that is no failure to close it.
TEST(CloseFile, IgnoresThatAFileHasNoMedium) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    EXPECT_EQ(tm::flushFile(ends[1]), -1);
    EXPECT_EQ(tm::closeFile(ends[1]), 0);
    EXPECT_EQ(tm::closeFile(ends[0]), 0);
}

class OpenFile : public testing::Test {
protected:
    ~OpenFile() override { close(fd); }

    TempFolder folder;
    const std::string path = folder.write("file", "0123456789");
    const int fd = tm::createFile(path);
    std::array<char, 16> buffer{};

    std::string got(ssize_t count) const {
        return count < 0 ? "failed" : std::string(buffer.data(), buffer.data() + count);
    }
};

TEST_F(OpenFile, FlushWritesItToItsMediumOnly) {
    const intercept::CloseJournal journal;
    EXPECT_EQ(tm::flushFile(fd), 0);
    EXPECT_THAT(journal.calls, ElementsAre("fsync " + std::to_string(fd)));
    EXPECT_EQ(tm::flushFile(-1), -1);
}

TEST_F(OpenFile, TruncateCutsAndExtends) {
    EXPECT_EQ(tm::truncateFile(fd, 4), 0);
    EXPECT_EQ(contentOf(path), "0123");
    EXPECT_EQ(tm::truncateFile(fd, 6), 0);
    EXPECT_EQ(contentOf(path), std::string("0123\0\0", 6));
    EXPECT_EQ(tm::truncateFile(fd, -1), -1);
    EXPECT_EQ(tm::truncateFile(-1, 0), -1);
}

TEST_F(OpenFile, SizeIsThatOfTheFile) {
    EXPECT_EQ(tm::getOpenFileSize(fd), 10);
    EXPECT_EQ(tm::getOpenFileSize(-1), -1);
    if (tm::truncateFile(fd, 5'000'000'000) != 0) GTEST_SKIP() << "no sparse files here";
    EXPECT_EQ(tm::getOpenFileSize(fd), 5'000'000'000);
    EXPECT_EQ(tm::seekFile(fd, 0, SEEK_END), 5'000'000'000);
}

TEST_F(OpenFile, ReadsAndWritesAtItsPosition) {
    EXPECT_EQ(got(tm::readFile(fd, buffer.data(), 4)), "0123");
    EXPECT_EQ(tm::writeFile(fd, "ab", 2), 2);
    EXPECT_EQ(got(tm::readFile(fd, buffer.data(), 16)), "6789");
    EXPECT_EQ(tm::readFile(fd, buffer.data(), 16), 0);
    EXPECT_EQ(contentOf(path), "0123ab6789");
    EXPECT_EQ(tm::readFile(-1, buffer.data(), 1), -1);
    EXPECT_EQ(tm::writeFile(-1, "a", 1), -1);
}

TEST_F(OpenFile, SeekMovesFromStartPositionAndEnd) {
    EXPECT_EQ(tm::seekFile(fd, 3, SEEK_SET), 3);
    EXPECT_EQ(tm::seekFile(fd, 2, SEEK_CUR), 5);
    EXPECT_EQ(tm::seekFile(fd, -1, SEEK_END), 9);
    EXPECT_EQ(got(tm::readFile(fd, buffer.data(), 5)), "9");
    EXPECT_EQ(tm::seekFile(fd, -1, SEEK_SET), -1);
    EXPECT_EQ(tm::seekFile(-1, 0, SEEK_SET), -1);
}

TEST_F(OpenFile, ReadAtMovesAndReads) {
    EXPECT_EQ(got(tm::readAt(fd, 7, buffer.data(), 2)), "78");
    EXPECT_EQ(got(tm::readAt(fd, 0, buffer.data(), 3)), "012");
    EXPECT_EQ(tm::seekFile(fd, 0, SEEK_CUR), 3) << "the position moves along";
    EXPECT_EQ(tm::readAt(fd, 10, buffer.data(), 3), 0);
}

TEST_F(OpenFile, ReadAtDoesNotReadWhereItCannotMove) {
    EXPECT_EQ(tm::seekFile(fd, 4, SEEK_SET), 4);
    EXPECT_EQ(tm::readAt(fd, -1, buffer.data(), 3), -1);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(tm::seekFile(fd, 0, SEEK_CUR), 4);
    EXPECT_EQ(tm::readAt(-1, 0, buffer.data(), 3), -1);
}

class WriteLine : public OpenFile {
protected:
    void SetUp() override { ASSERT_EQ(tm::truncateFile(fd, 0), 0); }
};

TEST_F(WriteLine, EndsTheTextWithCarriageReturnAndLineFeed) {
    EXPECT_TRUE(tm::writeLine(fd, "one"));
    EXPECT_TRUE(tm::writeLine(fd, std::string("t\0o", 3)));
    EXPECT_EQ(contentOf(path), std::string("one\r\nt\0o\r\n", 10));
}

TEST_F(WriteLine, WritesOnlyTheEndForAnEmptyText) {
    const intercept::ShortTransfer script("write", 0, 0);
    EXPECT_TRUE(tm::writeLine(fd, ""));
    EXPECT_THAT(script.counts, ElementsAre(2U));
    EXPECT_EQ(contentOf(path), "\r\n");
    EXPECT_TRUE(tm::writeLine(fd, kNoPath));
    EXPECT_EQ(contentOf(path), "\r\n\r\n");
}

struct ShortWriteRow {
    const char* why;
    int nth;
    ssize_t result;
    const char* written;
};
TEST_F(WriteLine, IsTrueOnlyWhenEveryByteWasWritten) {
    const ShortWriteRow rows[] = {{"textShort", 1, 2, "on"},
                                  {"textFails", 1, -1, ""},
                                  {"textNotAtAll", 1, 0, ""},
                                  {"endShort", 2, 1, "one\r"},
                                  {"endFails", 2, -1, "one"}};
    for (const ShortWriteRow& row : rows) {
        ASSERT_EQ(tm::truncateFile(fd, 0), 0);
        ASSERT_EQ(tm::seekFile(fd, 0, SEEK_SET), 0);
        const intercept::ShortTransfer script("write", row.nth, row.result);
        EXPECT_FALSE(tm::writeLine(fd, "one")) << row.why;
        EXPECT_THAT(script.counts, SizeIs(static_cast<std::size_t>(row.nth))) << row.why;
        EXPECT_EQ(contentOf(path), row.written) << row.why;
    }
    EXPECT_FALSE(tm::writeLine(-1, "one"));
    EXPECT_FALSE(tm::writeLine(-1, ""));
}

TEST(MoveFile, RenamesNormalisedPaths) {
    const TempFolder folder;
    folder.write("a", "content");
    folder.write("b", "other");
    const intercept::UserDatabase users(folder.path());
    EXPECT_EQ(tm::moveFile("~\\a", "~\\b"), 0);
    EXPECT_EQ(listing(folder.path()), "b");
    EXPECT_EQ(contentOf(folder / "b"), "content");
    EXPECT_EQ(tm::moveFile(std::string("~/b"), std::string("~\\c")), 0);
    EXPECT_EQ(listing(folder.path()), "c");
}

TEST(MoveFile, GivesMinusOneOnFailure) {
    const TempFolder folder;
    folder.write("a", "x");
    EXPECT_EQ(tm::moveFile(folder / "none", folder / "b"), -1);
    EXPECT_EQ(tm::moveFile(folder / "a", folder / "none/b"), -1) << "no directory is created";
    EXPECT_EQ(tm::moveFile(kNoPath, kNoPath), -1);
    EXPECT_EQ(listing(folder.path()), "a");
}

TEST(DeleteFile, RemovesTheNormalisedPath) {
    const TempFolder folder;
    folder.write("a", "x");
    folder.write("full/c", "x");
    fs::create_directory(folder / "empty");
    const intercept::UserDatabase users(folder.path());
    EXPECT_EQ(tm::deleteFile("~\\a"), 0);
    EXPECT_EQ(tm::deleteFile(std::string("~\\empty")), 0);
    EXPECT_EQ(tm::deleteFile("~\\full"), -1);
    EXPECT_EQ(tm::deleteFile("~\\none"), -1);
    EXPECT_EQ(tm::deleteFile(kNoPath), -1);
    EXPECT_EQ(listing(folder.path()), "full/ full/c");
}

std::string pattern(std::size_t length) {
    std::string text(length, ' ');
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
    return text;
}

struct CopyRow {
    const char* why;
    std::size_t length;
    std::vector<std::size_t> blocks;
};
class CopyFile : public testing::TestWithParam<CopyRow> {};
TEST_P(CopyFile, CopiesWholeBlocksAndThenTheRest) {
    const TempFolder folder;
    const std::string content = pattern(GetParam().length);
    const std::string from = folder.write("from", content);
    {
        const intercept::ShortTransfer reads("read", 0, 0);
        EXPECT_TRUE(tm::copyFile(from, folder / "to"));
        EXPECT_EQ(reads.counts, GetParam().blocks);
    }
    EXPECT_EQ(contentOf(folder / "to"), content);
    EXPECT_EQ(contentOf(from), content);
    const intercept::ShortTransfer writes("write", 0, 0);
    EXPECT_TRUE(tm::copyFile(from.c_str(), (folder / "again").c_str()));
    EXPECT_EQ(writes.counts, GetParam().blocks);
    EXPECT_EQ(contentOf(folder / "again"), content);
}
INSTANTIATE_TEST_SUITE_P(Rows, CopyFile,
                         testing::Values(CopyRow{"empty", 0, {}}, CopyRow{"one", 1, {1}}, CopyRow{"below", 511, {511}},
                                         CopyRow{"block", 512, {512}}, CopyRow{"oneMore", 513, {512, 1}},
                                         CopyRow{"blocks", 1024, {512, 512}},
                                         CopyRow{"blocksAndRest", 1300, {512, 512, 276}}),
                         RowName());

TEST(CopyFileOpening, NormalisesAndCreatesDirectories) {
    const TempFolder folder;
    folder.write("from", "content");
    const intercept::UserDatabase users(folder.path());
    EXPECT_TRUE(tm::copyFile("~\\from", "~\\new\\to"));
    EXPECT_EQ(contentOf(folder / "new/to"), "content");
}

// The destination is opened for writing as ever, and that cuts nothing off.
TEST(CopyFileOpening, KeepsWhatTheDestinationHasBeyond) {
    const TempFolder folder;
    folder.write("from", "new");
    folder.write("to", "old content");
    EXPECT_TRUE(tm::copyFile(folder / "from", folder / "to"));
    EXPECT_EQ(contentOf(folder / "to"), "new content");
}

TEST(CopyFileOpening, OntoItselfLosesNothingByAnyName) {
    const TempFolder folder;
    const std::string content = pattern(1300);
    const std::string file = folder.write("file", content);
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    ASSERT_EQ(link(file.c_str(), (folder / "second").c_str()), 0);
    for (const char* name : {"file", "./file", "link", "second"}) {
        EXPECT_TRUE(tm::copyFile(file, folder / name)) << name;
        EXPECT_EQ(contentOf(file), content) << name;
        EXPECT_TRUE(tm::copyFile(folder / name, file)) << name;
        EXPECT_EQ(contentOf(file), content) << name;
    }
}

TEST(CopyFileOpening, WithoutASourceLeavesTheDestination) {
    const TempFolder folder;
    folder.write("to", "content");
    const intercept::CloseJournal journal;
    errno = 0;
    EXPECT_FALSE(tm::copyFile(folder / "none", folder / "to"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(tm::copyFile(folder / "none", folder / "other"));
    EXPECT_FALSE(tm::copyFile(kNoPath, (folder / "other").c_str()));
    EXPECT_THAT(journal.calls, IsEmpty());
    EXPECT_EQ(listing(folder.path()), "to");
    EXPECT_EQ(contentOf(folder / "to"), "content");
}

/// The calls of a durable close, without the numbers of the descriptors.
std::vector<std::string> callNames(std::vector<std::string> calls) {
    for (std::string& call : calls) call = call.substr(0, call.find(' '));
    return calls;
}

TEST(CopyFileClosing, IsDurableForBothFiles) {
    const TempFolder folder;
    const std::string from = folder.write("from", pattern(600));
    fs::create_directory(folder / "there");
    const intercept::CloseJournal journal;
    EXPECT_TRUE(tm::copyFile(from, folder / "there/to"));
    EXPECT_THAT(callNames(journal.calls), ElementsAre("fsync", "close", "sync", "fsync", "close", "sync"));
    EXPECT_NE(journal.calls.front(), journal.calls[3]) << "two descriptors";
}

TEST(CopyFileClosing, IsDurableForTheSourceWithoutADestination) {
    const TempFolder folder;
    const std::string from = folder.write("from", "x");
    const intercept::CloseJournal journal;
    errno = 0;
    EXPECT_FALSE(tm::copyFile(from, folder.path()));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_THAT(callNames(journal.calls), ElementsAre("fsync", "close", "sync"));
}

struct ShortCopyRow {
    const char* why;
    const char* call;
    int nth;
    ssize_t result;
    std::size_t written;
};
TEST(CopyFileClosing, FollowsAShortReadOrWriteThatEndsTheCopy) {
    const ShortCopyRow rows[] = {{"firstReadShort", "read", 1, 511, 0},     {"secondReadFails", "read", 2, -1, 512},
                                 {"lastReadShort", "read", 3, 275, 1024},   {"endOfFileTooEarly", "read", 2, 0, 512},
                                 {"firstWriteShort", "write", 1, 100, 100}, {"secondWriteFails", "write", 2, -1, 512},
                                 {"lastWriteShort", "write", 3, 275, 1299}};
    for (const ShortCopyRow& row : rows) {
        const TempFolder folder;
        const std::string content = pattern(1300);
        const std::string from = folder.write("from", content);
        const std::size_t before = testsupport::openDescriptors();
        {
            const intercept::ShortTransfer script(row.call, row.nth, row.result);
            const intercept::CloseJournal journal;
            EXPECT_FALSE(tm::copyFile(from, folder / "to")) << row.why;
            EXPECT_THAT(script.counts, SizeIs(static_cast<std::size_t>(row.nth))) << row.why;
            EXPECT_THAT(callNames(journal.calls), ElementsAre("fsync", "close", "sync", "fsync", "close", "sync"));
        }
        EXPECT_EQ(contentOf(folder / "to"), content.substr(0, row.written)) << row.why;
        EXPECT_EQ(testsupport::openDescriptors(), before);
    }
}

TEST(CopyFileClosing, FollowsASourceThatDoesNotTellItsSize) {
    const TempFolder folder;
    const std::string from = folder.write("from", "x");
    const intercept::CloseJournal journal;
    const intercept::FailingStatus script;
    errno = 0;
    EXPECT_FALSE(tm::copyFile(from, folder / "to"));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(script.calls, 1);
    EXPECT_THAT(callNames(journal.calls), ElementsAre("fsync", "close", "sync", "fsync", "close", "sync"));
}

TEST(CopyFileClosing, KeepsTheReasonOfTheFailure) {
    const TempFolder folder;
    const std::string from = folder.write("from", "x");
    errno = 0;
    EXPECT_FALSE(tm::copyFile(from, "/dev/full"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(tm::copyFile(folder.path(), folder / "to")) << "a directory cannot be read";
    EXPECT_EQ(errno, EISDIR);
}

TEST(CopyFileClosing, OfTheDestinationMustNotFail) {
    const TempFolder folder;
    const std::string from = folder.write("from", "x");
    const std::string to = folder.write("to", "y");
    {
        const intercept::CloseJournal journal(2);
        EXPECT_FALSE(tm::copyFile(from, to));
    }
    const intercept::CloseJournal journal(1);
    EXPECT_TRUE(tm::copyFile(from, to)) << "the source was read, whatever its closing says";
}

TEST(SetReadOnly, ChangesTheOwnersRightToWriteOnly) {
    const TempFolder folder;
    const std::string file = folder.write("file", "");
    const intercept::UserDatabase users(folder.path());
    chmod(file.c_str(), 0766);
    EXPECT_TRUE(tm::setReadOnly("~\\file"));
    EXPECT_EQ(modeOf(file), 0566U);
    EXPECT_TRUE(tm::setReadOnly(file)) << "once more";
    EXPECT_EQ(modeOf(file), 0566U);
    EXPECT_TRUE(tm::setWritable("~\\file"));
    EXPECT_EQ(modeOf(file), 0766U);
    EXPECT_TRUE(tm::setWritable(file));
    EXPECT_EQ(modeOf(file), 0766U);
}

TEST(SetReadOnly, KeepsFurtherBitsOfTheMode) {
    const TempFolder folder;
    fs::create_directory(folder / "dir");
    chmod((folder / "dir").c_str(), 01755);
    EXPECT_TRUE(tm::setReadOnly(folder / "dir"));
    EXPECT_EQ(modeOf(folder / "dir"), 01555U);
    EXPECT_TRUE(tm::setWritable(folder / "dir"));
    EXPECT_EQ(modeOf(folder / "dir"), 01755U);
}

TEST(SetReadOnly, FollowsLinks) {
    const TempFolder folder;
    chmod(folder.write("file", "").c_str(), 0644);
    ASSERT_EQ(symlink("file", (folder / "link").c_str()), 0);
    EXPECT_TRUE(tm::setReadOnly(folder / "link"));
    EXPECT_EQ(modeOf(folder / "file"), 0444U);
}

TEST(SetReadOnly, IsFalseWhenItCannot) {
    const TempFolder folder;
    EXPECT_FALSE(tm::setReadOnly(folder / "none"));
    EXPECT_FALSE(tm::setWritable(folder / "none"));
    EXPECT_FALSE(tm::setReadOnly(kNoPath));
    EXPECT_FALSE(tm::setWritable(kNoPath));
    EXPECT_FALSE(tm::setReadOnly("/proc/self/status")) << "nobody can change that one";
}

struct statvfs figuresOf(unsigned long blockBytes, std::uint64_t blocks, std::uint64_t freeBlocks) {
    struct statvfs figures {};
    figures.f_bsize = blockBytes;
    figures.f_frsize = blockBytes / 2;
    figures.f_blocks = blocks;
    figures.f_bfree = freeBlocks;
    figures.f_bavail = freeBlocks / 2;
    return figures;
}

struct SpaceRow {
    const char* why;
    unsigned long blockBytes;
    std::uint64_t blocks;
    std::uint64_t freeBlocks;
    std::uint64_t totalBytes;
    std::uint64_t freeBytes;
};
class GetDiskSpace : public testing::TestWithParam<SpaceRow> {};
TEST_P(GetDiskSpace, HasAllFreeBytesAndTheTotalIn32Bits) {
    const SpaceRow& row = GetParam();
    const intercept::FileSystemFigures root(figuresOf(row.blockBytes, row.blocks, row.freeBlocks));
    std::uint64_t freeBytes = 1;
    std::uint64_t totalBytes = 1;
    EXPECT_TRUE(tm::getDiskSpace('c', &freeBytes, &totalBytes));
    EXPECT_EQ(freeBytes, row.freeBytes);
    EXPECT_EQ(totalBytes, row.totalBytes);
    EXPECT_THAT(root.asked, ElementsAre("/"));
}
INSTANTIATE_TEST_SUITE_P(Rows, GetDiskSpace,
                         testing::Values(SpaceRow{"small", 512, 1000, 10, 512000, 5120},
                                         SpaceRow{"largestTotal", 1, 4294967295, 7, 4294967295, 7},
                                         SpaceRow{"totalKeptWrappingAt4GiB", 4096, 1048576, 1048575, 0, 4294963200},
                                         SpaceRow{"totalKeptWrappingAbove", 4096, 1048577, 1048576, 4096, 4294967296},
                                         SpaceRow{"large", 4096, 268435456, 134217728, 0, 549755813888},
                                         SpaceRow{"moreBlocksThan32Bits", 512, 4294967297, 4294967296, 512,
                                                  2199023255552}),
                         RowName());

TEST(GetDiskSpaceDrive, NamesTheOneRootOrNothing) {
    const intercept::FileSystemFigures root(figuresOf(512, 8, 4));
    for (int drive = -128; drive < 128; ++drive) {
        const auto letter = static_cast<char>(drive);
        const bool known = std::string("aAcC/\\").find(letter) != std::string::npos;
        std::uint64_t freeBytes = 1;
        std::uint64_t totalBytes = 2;
        EXPECT_EQ(tm::getDiskSpace(letter, &freeBytes, &totalBytes), known) << drive;
        EXPECT_EQ(freeBytes, known ? 2048U : 1U) << drive;
        EXPECT_EQ(totalBytes, known ? 4096U : 2U) << drive;
    }
    EXPECT_THAT(root.asked, SizeIs(6)) << "other drives are refused at once";
}

TEST(GetDiskSpaceDrive, NeedsNeitherPointer) {
    const intercept::FileSystemFigures root(figuresOf(512, 8, 4));
    std::uint64_t bytes = 0;
    EXPECT_TRUE(tm::getDiskSpace('a', nullptr, nullptr));
    EXPECT_TRUE(tm::getDiskSpace('a', &bytes, nullptr));
    EXPECT_EQ(bytes, 2048U);
    EXPECT_TRUE(tm::getDiskSpace('a', nullptr, &bytes));
    EXPECT_EQ(bytes, 4096U);
    EXPECT_FALSE(tm::getDiskSpace('d', nullptr, nullptr));
}

TEST(GetDiskSpaceDrive, TouchesNothingWhenTheSystemCannotTell) {
    const intercept::FileSystemFigures root(std::nullopt);
    std::uint64_t freeBytes = 1;
    std::uint64_t totalBytes = 2;
    EXPECT_FALSE(tm::getDiskSpace('/', &freeBytes, &totalBytes));
    EXPECT_EQ(freeBytes, 1U);
    EXPECT_EQ(totalBytes, 2U);
}

TEST(GetDiskSpaceDrive, IsThatOfTheSystem) {
    struct statvfs figures {};
    ASSERT_EQ(statvfs("/", &figures), 0);
    std::uint64_t totalBytes = 0;
    std::uint64_t freeBytes = 0;
    EXPECT_TRUE(tm::getDiskSpace('/', &freeBytes, &totalBytes));
    EXPECT_EQ(totalBytes, (std::uint64_t{figures.f_bsize} * figures.f_blocks) % 4294967296U);
    EXPECT_GT(freeBytes, 0U);
}

TEST(ChangeDirectory, MovesToThePathAsItIsWritten) {
    const TempFolder folder;
    for (const char* name : {"dir", "~", "a\\b", "a/b"}) fs::create_directories(folder / name);
    const auto text = inConfinedChild(folder.path(), [] {
        std::string walk;
        const auto step = [&walk](int result) { walk += std::to_string(result) + tm::getCurrentDirectory() + " "; };
        step(tm::changeDirectory("/dir"));
        step(tm::changeDirectory(std::string("..")));
        step(tm::changeDirectory("~"));
        step(tm::changeDirectory("/a\\b"));
        step(tm::changeDirectory("none"));
        step(tm::changeDirectory(""));
        step(tm::changeDirectory(kNoPath));
        return walk;
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "0/dir 0/ 0/~ 0/a\\b -1/a\\b -1/a\\b -1/a\\b ");
}

TEST(GetCurrentDirectory, IsEmptyWhereThereIsNone) {
    const TempFolder folder;
    fs::create_directory(folder / "gone");
    const auto text = inConfinedChild(folder.path(), [] {
        static_cast<void>(tm::changeDirectory("/gone") == 0 && rmdir("/gone") == 0);
        return "[" + tm::getCurrentDirectory() + "]";
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "[]");
}

TEST(GetCurrentDirectory, HasAtMost4095Characters) {
    const TempFolder folder;
    const auto text = inConfinedChild(folder.path(), [] {
        const auto descend = [](std::size_t length) {
            const std::string name(length, 'd');
            return mkdir(name.c_str(), 0700) == 0 && tm::changeDirectory(name) == 0;
        };
        bool made = true;
        for (int i = 0; i < 20; ++i) made = descend(199) && made;  // 4000 characters
        made = descend(94) && made;                                // and 95 more
        const std::size_t most = tm::getCurrentDirectory().size();
        made = descend(1) && made;
        const std::size_t tooMany = tm::getCurrentDirectory().size();
        return (made ? "" : "not made ") + std::to_string(most) + " " + std::to_string(tooMany);
    });
    if (!text) GTEST_SKIP() << kNotConfined;
    EXPECT_EQ(*text, "4095 0");
}

/// Calls every operation on paths so that it fails, and names those that did not. `none` can be neither found nor
/// created.
std::vector<std::string> pathsThatDidNotFail(const std::string& file, const std::string& none) {
    std::vector<std::string> others;
    const auto fails = [&](const char* operation, bool byString, bool byText) {
        if (!byString || !byText) others.emplace_back(operation);
    };
    const char* const text = none.c_str();
    tm::FileInfo info;
    fails("createFile", tm::createFile(none) == -1, tm::createFile(text) == -1);
    fails("openForRead", tm::openForRead(none) == -1, tm::openForRead(text) == -1);
    fails("openForWrite", tm::openForWrite(none) == -1, tm::openForWrite(text) == -1);
    fails("moveFile", tm::moveFile(none, file) == -1, tm::moveFile(text, file.c_str()) == -1);
    fails("deleteFile", tm::deleteFile(none) == -1, tm::deleteFile(text) == -1);
    fails("copyFile from", !tm::copyFile(none, file), !tm::copyFile(text, file.c_str()));
    fails("copyFile to", !tm::copyFile(file, none), !tm::copyFile(file.c_str(), text));
    fails("setReadOnly", !tm::setReadOnly(none), !tm::setReadOnly(text));
    fails("setWritable", !tm::setWritable(none), !tm::setWritable(text));
    fails("findFirst", !tm::findFirst(info, none), !tm::findFirst(info, text));
    fails("changeDirectory", tm::changeDirectory(none) == -1, tm::changeDirectory(text) == -1);
    return others;
}

/// As `pathsThatDidNotFail`, for the operations that take no path.
std::vector<std::string> othersThatDidNotFail() {
    std::vector<std::string> others;
    const auto fails = [&](const char* operation, bool failed) {
        if (!failed) others.emplace_back(operation);
    };
    const intercept::UserDatabase users(std::nullopt);
    const intercept::FileSystemFigures root(std::nullopt);
    std::array<char, 1> byte{};
    tm::FileInfo info;
    fails("normalizePath", tm::normalizePath("~") == "~");
    fails("closeFile", tm::closeFile(-1) == -1);
    fails("flushFile", tm::flushFile(-1) == -1);
    fails("truncateFile", tm::truncateFile(-1, 0) == -1);
    fails("getOpenFileSize", tm::getOpenFileSize(-1) == -1);
    fails("readFile", tm::readFile(-1, byte.data(), 1) == -1);
    fails("writeFile", tm::writeFile(-1, byte.data(), 1) == -1);
    fails("seekFile", tm::seekFile(-1, 0, SEEK_SET) == -1);
    fails("readAt", tm::readAt(-1, 0, byte.data(), 1) == -1);
    fails("writeLine", !tm::writeLine(-1, "a") && !tm::writeLine(-1, std::string("a")));
    fails("getDiskSpace", !tm::getDiskSpace('c', nullptr, nullptr) && !tm::getDiskSpace('d', nullptr, nullptr));
    fails("findNext", !tm::findNext(info));
    return others;
}

/// What `getCurrentDirectory` gives where the current directory is gone.
std::string placeThatIsGone(const std::string& folder) {
    return testsupport::inChild([&] {
        const bool left = chdir(folder.c_str()) == 0 && rmdir(folder.c_str()) == 0;
        const std::string place = tm::getCurrentDirectory();
        static_cast<void>(std::fflush(nullptr));
        return left ? place : "not left";
    });
}

// A tool's screen is its own: whoever wants to tell the user asks `errno`.
TEST(DurableFile, PrintsNothingWhenItFails) {
    const TempFolder folder;
    const std::string file = folder.write("file", "x");
    fs::create_directory(folder / "gone");
    std::vector<std::string> succeeded;
    std::string place;
    std::string printed;
    {
        const testsupport::CapturedOutput standard(STDOUT_FILENO);
        const testsupport::CapturedOutput error(STDERR_FILENO);
        succeeded = pathsThatDidNotFail(file, file + "/none");
        for (std::string& operation : othersThatDidNotFail()) succeeded.push_back(std::move(operation));
        place = placeThatIsGone(folder / "gone");
        printed = standard.text() + error.text();
    }
    EXPECT_THAT(succeeded, IsEmpty());
    EXPECT_EQ(place, "");
    EXPECT_EQ(printed, "");
}

}  // namespace
