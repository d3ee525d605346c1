#include "sim/HexFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "tests/support/TempFolder.h"

namespace {

constexpr char kGood[] = ":0300300002337A1E\n:00000001FF\n";

void expectProblem(const std::string& path, int state, const std::string& text) {
    const auto loaded = sim::loadHexFile(path, {});
    const auto* problem = std::get_if<sim::HexFileProblem>(&loaded);
    ASSERT_NE(problem, nullptr);
    EXPECT_EQ(problem->state, state);
    EXPECT_EQ(problem->text, text);
}

TEST(SimHexFileOnDisk, IsLoaded) {
    const testsupport::TempFolder folder;
    const auto loaded = sim::loadHexFile(folder.write("a b.hex", kGood), {});
    ASSERT_TRUE(std::holds_alternative<sim::HexImage>(loaded));
    EXPECT_EQ(std::get<sim::HexImage>(loaded).byteCount, 3U);
}

TEST(SimHexFileOnDisk, MissingGivesState103) {
    const testsupport::TempFolder folder;
    folder.write("file", "");
    expectProblem(folder / "none.hex", 103, folder / "none.hex: open(): No such file or directory");
    expectProblem(folder / "file/a.hex", 103, folder / "file/a.hex: open(): Not a directory");
    expectProblem("", 103, ": open(): No such file or directory");
    const std::string longName(5000, 'x');
    expectProblem(longName, 103, longName + ": open(): File name too long");
}

TEST(SimHexFileOnDisk, FolderGivesState104) {
    const testsupport::TempFolder folder;
    expectProblem(folder.path(), 104, folder.path() + ": it is not a regular file");
}

TEST(SimHexFileOnDisk, WithoutPermissionGivesState104) {
    if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
    const testsupport::TempFolder folder;
    const std::string path = folder.write("a.hex", kGood);
    chmod(path.c_str(), 0);
    expectProblem(path, 104, path + ": open(): Permission denied");
}

// A pipe without a writer would keep a plain open() waiting for ever, and with it every client of the server.
TEST(SimHexFileOnDisk, PipeGivesState104AtOnce) {
    const testsupport::TempFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    expectProblem(path, 104, path + ": it is not a regular file");
}

TEST(SimHexFileOnDisk, DeviceGivesState104) { expectProblem("/dev/zero", 104, "/dev/zero: it is not a regular file"); }

TEST(SimHexFileOnDisk, LinkInACircleGivesState104) {
    const testsupport::TempFolder folder;
    const std::string path = folder / "circle";
    ASSERT_EQ(symlink("circle", path.c_str()), 0);
    expectProblem(path, 104, path + ": open(): Too many levels of symbolic links");
}

TEST(SimHexFileOnDisk, TooLargeGivesState104WithoutReadingIt) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("large.hex", "");
    std::filesystem::resize_file(path, sim::kLargestFileBytes + 1);
    expectProblem(path, 104, path + ": it is larger than 16777216 bytes");
}

TEST(SimHexFileOnDisk, WrongFormatGivesState105WithLineAndColumn) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("a.hex", ":0300300002337A1E\n:0300300002337A1F\n");
    expectProblem(path, 105, path + ":2:16: expected checksum 1E, got 1F");
}

TEST(SimRegularFile, IsReadWholeUpToItsLimit) {
    const testsupport::TempFolder folder;
    const std::string content(100'000, 'x');
    const std::string path = folder.write("file", content);
    EXPECT_EQ(*sim::readRegularFile(path, 100'000), content);
    EXPECT_EQ(sim::readRegularFile(path, 99'999).failure().text, "it is larger than 99999 bytes");
    EXPECT_EQ(sim::readRegularFile(folder / "none", 10).failure().status, ENOENT);
}

// Files of the kernel say that they are empty and are not.
TEST(SimRegularFile, IsMeasuredWhileItIsRead) {
    EXPECT_FALSE((*sim::readRegularFile("/proc/self/status", 65536)).empty());
    EXPECT_EQ(sim::readRegularFile("/proc/self/status", 10).failure().text, "it is larger than 10 bytes");
}

TEST(SimSampleFile, IsWellFormedAndTheSameEachTime) {
    if (std::system("python3 -c '' 2>/dev/null") != 0) GTEST_SKIP() << "no python3 here";
    const testsupport::TempFolder folder;
    for (const char* name : {"one", "two"})
        ASSERT_EQ(std::system(("python3 '" CORVANE_SAMPLE_SCRIPT "' >'" + (folder / name) + "'").c_str()), 0);
    EXPECT_EQ(testsupport::readFile(folder / "one"), testsupport::readFile(folder / "two"));
    const auto loaded = sim::loadHexFile(folder / "one", {});
    ASSERT_TRUE(std::holds_alternative<sim::HexImage>(loaded));
    EXPECT_EQ(std::get<sim::HexImage>(loaded).ranges, (std::vector<sim::AddressRange>{{0x08000000, 0x0800FFFF}}));
}

}  // namespace
