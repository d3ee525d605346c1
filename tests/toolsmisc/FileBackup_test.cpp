#include "toolsmisc/FileBackup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <type_traits>

#include "gtest/gtest.h"
#include "tests/support/TempFolder.h"
#include "tests/toolsmisc/ChildProcess.h"

namespace {

using testsupport::listing;
using testsupport::readFile;
using testsupport::TempFolder;
using toolsmisc::FileBackup;

// A copy would finish twice.
static_assert(!std::is_copy_constructible_v<FileBackup> && !std::is_copy_assignable_v<FileBackup>);
static_assert(!std::is_move_constructible_v<FileBackup> && !std::is_move_assignable_v<FileBackup>);

static_assert(offsetof(FileBackup, path) < offsetof(FileBackup, active) &&
              offsetof(FileBackup, active) < offsetof(FileBackup, restored));

class FileBackupOfAFile : public testing::Test {
protected:
    void rewrite() const { folder.write("data", "new"); }

    TempFolder folder;
    const std::string file = folder.write("data", "old");
};

TEST_F(FileBackupOfAFile, MovesTheFileAwayAtConstruction) {
    const FileBackup backup(file);
    EXPECT_EQ(listing(folder.path()), "data~");
    EXPECT_EQ(readFile(file + "~"), "old");
    EXPECT_EQ(backup.path, file);
    EXPECT_TRUE(backup.active);
    EXPECT_FALSE(backup.restored);
}

TEST_F(FileBackupOfAFile, SuccessKeepsTheNewFileAndRemovesTheBackup) {
    FileBackup backup(file);
    rewrite();
    backup.finish(true);
    EXPECT_EQ(listing(folder.path()), "data");
    EXPECT_EQ(readFile(file), "new");
    EXPECT_FALSE(backup.active);
    EXPECT_FALSE(backup.restored);
}

TEST_F(FileBackupOfAFile, FailureRemovesTheNewFileAndPutsTheBackupBack) {
    FileBackup backup(file);
    rewrite();
    backup.finish(false);
    EXPECT_EQ(listing(folder.path()), "data");
    EXPECT_EQ(readFile(file), "old");
    EXPECT_FALSE(backup.active);
    EXPECT_TRUE(backup.restored);
}

TEST_F(FileBackupOfAFile, FailureBeforeAnythingWasWrittenPutsTheBackupBack) {
    FileBackup(file).finish(false);
    EXPECT_EQ(listing(folder.path()), "data");
    EXPECT_EQ(readFile(file), "old");
}

TEST_F(FileBackupOfAFile, DestructionWithoutFinishKeepsTheNewFile) {
    {
        const FileBackup backup(file);
        rewrite();
    }
    EXPECT_EQ(listing(folder.path()), "data");
    EXPECT_EQ(readFile(file), "new");
}

TEST_F(FileBackupOfAFile, DestructionAfterRestoringChangesNothing) {
    {
        FileBackup backup(file);
        rewrite();
        backup.finish(false);
        folder.write("data~", "made later");
    }
    EXPECT_EQ(readFile(file), "old");
    EXPECT_EQ(readFile(file + "~"), "made later");
}

TEST_F(FileBackupOfAFile, DestructionAfterSuccessChangesNothing) {
    {
        FileBackup backup(file);
        rewrite();
        backup.finish(true);
        folder.write("data~", "made later");
    }
    EXPECT_EQ(readFile(file), "new");
    EXPECT_EQ(readFile(file + "~"), "made later");
}

// A second finish removed the very file that the first one had put back or committed.
TEST_F(FileBackupOfAFile, SecondFinishTouchesNothing) {
    for (const bool first : {true, false}) {
        for (const bool second : {true, false}) {
            folder.write("data", "old");
            FileBackup backup(file);
            rewrite();
            backup.finish(first);
            backup.finish(second);
            EXPECT_EQ(readFile(file), first ? "new" : "old") << first << second;
            EXPECT_EQ(listing(folder.path()), "data") << first << second;
            EXPECT_EQ(backup.restored, !first);
        }
    }
}

TEST_F(FileBackupOfAFile, ReplacesAnOlderBackup) {
    folder.write("data~", "older");
    FileBackup backup(file);
    EXPECT_EQ(readFile(file + "~"), "old");
    backup.finish(false);
    EXPECT_EQ(readFile(file), "old");
}

TEST(FileBackupWithoutAFile, SuccessKeepsTheNewFile) {
    const TempFolder folder;
    FileBackup backup(folder / "data");
    EXPECT_EQ(listing(folder.path()), "");
    folder.write("data", "new");
    backup.finish(true);
    EXPECT_EQ(listing(folder.path()), "data");
}

TEST(FileBackupWithoutAFile, FailureRemovesTheNewFile) {
    const TempFolder folder;
    FileBackup backup(folder / "data");
    folder.write("data", "new");
    backup.finish(false);
    EXPECT_EQ(listing(folder.path()), "");
    EXPECT_TRUE(backup.restored);
}

TEST(FileBackupWithoutAFile, FailurePutsBackWhatAnInterruptedRunLeftBehind) {
    const TempFolder folder;
    folder.write("data~", "saved by the interrupted run");
    FileBackup backup(folder / "data");
    folder.write("data", "half written");
    backup.finish(false);
    EXPECT_EQ(readFile(folder / "data"), "saved by the interrupted run");
    EXPECT_EQ(listing(folder.path()), "data");
}

TEST(FileBackupOfSomethingElse, ADirectoryAsBackupIsNotRemovedBySuccess) {
    const TempFolder folder;
    folder.write("data/inside", "x");
    FileBackup backup(folder / "data");
    folder.write("data", "new");
    backup.finish(true);
    EXPECT_EQ(listing(folder.path()), "data data~/ data~/inside");
}

TEST(FileBackupOfSomethingElse, ALinkAsNewFileIsNotRemovedButReplacedByFailure) {
    const TempFolder folder;
    folder.write("target", "target");
    FileBackup backup(folder.write("data", "old"));
    ASSERT_EQ(symlink("target", (folder / "data").c_str()), 0);
    backup.finish(false);
    EXPECT_EQ(listing(folder.path()), "data target");
    EXPECT_EQ(readFile(folder / "target"), "target");
}

TEST(FileBackupOfSomethingElse, ADirectoryAsNewFileIsNotRemovedByFailure) {
    const TempFolder folder;
    FileBackup backup(folder.write("data", "old"));
    ASSERT_EQ(mkdir((folder / "data").c_str(), 0700), 0);
    backup.finish(false);
    EXPECT_EQ(listing(folder.path()), "data/ data~") << "nothing is lost when the backup cannot be put back";
}

}  // namespace
