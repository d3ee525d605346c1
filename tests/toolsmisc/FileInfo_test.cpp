#include "toolsmisc/FileInfo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <latch>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "gmock/gmock.h"
#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"
#include "tests/toolsmisc/ChildProcess.h"
#include "toolsmisc/FileSystem.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testsupport::ScopedEnvironment;
using testsupport::TempFolder;
using toolsmisc::attributesOfMode;
using toolsmisc::FileInfo;
using toolsmisc::findFirst;
using toolsmisc::findNext;
using toolsmisc::formatFileInfo;

struct ModeRow {
    const char* why;
    std::uint32_t mode;
    std::uint32_t attributes;
};
class AttributesOfMode : public testing::TestWithParam<ModeRow> {};
TEST_P(AttributesOfMode, ReadsTheTwoBitsOfDirectoriesAndFiles) {
    EXPECT_EQ(attributesOfMode(GetParam().mode), GetParam().attributes);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, AttributesOfMode,
    testing::Values(ModeRow{"file", 0100644, 0x00}, ModeRow{"fileReadOnly", 0100444, 0x01},
                    ModeRow{"directory", 0040755, 0x10}, ModeRow{"directoryReadOnly", 0040555, 0x11},
                    ModeRow{"characterDevice", 0020600, 0x04}, ModeRow{"characterDeviceReadOnly", 0020400, 0x05},
                    ModeRow{"pipe", 0010600, 0x04}, ModeRow{"pipeReadOnly", 0010444, 0x05},
                    ModeRow{"blockDeviceHasTheDirectoryBit", 0060660, 0x10},
                    ModeRow{"socketHasBothBits", 0140755, 0x10}, ModeRow{"linkHasTheFileBit", 0120777, 0x00},
                    ModeRow{"nothing", 0, 0x05}, ModeRow{"onlyTheOwnersRightCounts", 0100577, 0x01},
                    ModeRow{"onlyTheOwnersRightCountsAlone", 0100200, 0x00},
                    ModeRow{"furtherBitsDoNotCount", 0107666, 0x00}),
    RowName());

/// Every name that the pattern gives, in order.
std::vector<std::string> namesOf(const std::string& pattern) {
    std::vector<std::string> names;
    FileInfo info;
    for (bool more = findFirst(info, pattern); more; more = findNext(info)) names.push_back(info.name);
    return names;
}

void setTime(const std::string& path, std::time_t seconds) {
    const timespec times[2] = {{seconds, 0}, {seconds, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

/// A time zone for one test.
class ScopedZone {
public:
    explicit ScopedZone(const char* zone) : variable("TZ", zone) {}
    ~ScopedZone() = default;

private:
    ScopedEnvironment variable;
};

TEST(FindFirst, FillsEveryField) {
    const ScopedZone zone("EAS-1");
    const TempFolder folder;
    fs::create_directory(folder / "data");
    chmod((folder / "data").c_str(), 0755);
    setTime(folder / "data", 1704458701);
    setTime(folder.write("file", "12345"), 1704458701 + 86400);
    chmod((folder / "file").c_str(), 0444);

    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "data"));
    EXPECT_EQ(info.attributes, 0x10U);
    EXPECT_EQ(info.time, 134501U);
    EXPECT_EQ(info.date, 20240105U);
    EXPECT_EQ(info.name, "data");
    ASSERT_TRUE(findFirst(info, (folder / "f*").c_str()));
    EXPECT_EQ(info.attributes, 0x01U) << "0200 is missing";
    EXPECT_EQ(info.time, 134501U);
    EXPECT_EQ(info.date, 20240106U);
    EXPECT_EQ(info.size, 5U);
    EXPECT_EQ(info.name, "file");
}

struct TimeRow {
    const char* why;
    const char* zone;
    std::time_t seconds;
    std::uint32_t time;
    std::uint32_t date;
};
class ModificationTime : public testing::TestWithParam<TimeRow> {};
TEST_P(ModificationTime, IsTwoDecimalNumbersOfLocalTime) {
    const ScopedZone zone(GetParam().zone);
    const TempFolder folder;
    setTime(folder.write("file", ""), GetParam().seconds);
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "file"));
    EXPECT_EQ(info.time, GetParam().time);
    EXPECT_EQ(info.date, GetParam().date);
}
INSTANTIATE_TEST_SUITE_P(Rows, ModificationTime,
                         testing::Values(TimeRow{"epoch", "UTC0", 0, 0, 19700101},
                                         TimeRow{"beforeTheEpoch", "UTC0", -1, 235959, 19691231},
                                         TimeRow{"singleDigits", "UTC0", 1704164645, 30405, 20240102},
                                         TimeRow{"leapDay", "UTC0", 1709251199, 235959, 20240229},
                                         TimeRow{"december", "UTC0", 1735689599, 235959, 20241231},
                                         TimeRow{"east", "EAS-5:30", 1704458701, 181501, 20240105},
                                         TimeRow{"westOnTheDayBefore", "XXX13", 1704458701, 234501, 20240104},
                                         TimeRow{"beyond2038", "UTC0", 4102444800, 0, 21000101}),
                         RowName());

// Such times can be set only where the file system has 64 bits for them, as memory has.
TEST(FindFirst, GivesNoTimeWhereTheYearHasNoRoom) {
    const ScopedZone zone("UTC0");
    const ScopedEnvironment place("TMPDIR", access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : nullptr);
    const TempFolder folder;
    const std::string file = folder.write("file", "");
    struct Far {
        std::int64_t seconds;
        std::uint32_t time;
        std::uint32_t date;
    };
    const Far rows[] = {{13491449078399, 235959, 4294961231},
                        {13491449078400, 0, 0},
                        {-62167219200, 0, 101},
                        {-62167219201, 0, 0},
                        {std::int64_t{1} << 62, 0, 0}};
    for (const Far& row : rows) {
        if (sizeof(std::time_t) < sizeof(row.seconds)) GTEST_SKIP() << "no such times here";
        setTime(file, static_cast<std::time_t>(row.seconds));
        struct stat status {};
        ASSERT_EQ(stat(file.c_str(), &status), 0);
        if (status.st_mtime != row.seconds) GTEST_SKIP() << "the file system has no such times";
        FileInfo info;
        ASSERT_TRUE(findFirst(info, file));
        EXPECT_EQ(info.time, row.time) << row.seconds;
        EXPECT_EQ(info.date, row.date) << row.seconds;
    }
}

TEST(FindFirst, GivesTheLargestNumberForSizesBeyond32Bits) {
    const TempFolder folder;
    const std::string file = folder.write("sparse", "");
    FileInfo info;
    if (truncate(file.c_str(), 4294967295) != 0) GTEST_SKIP() << "no sparse files here";
    ASSERT_TRUE(findFirst(info, file));
    EXPECT_EQ(info.size, 4294967295U);
    ASSERT_EQ(truncate(file.c_str(), 4294967300), 0);
    ASSERT_TRUE(findFirst(info, file));
    EXPECT_EQ(info.size, 4294967295U);
    ASSERT_EQ(truncate(file.c_str(), 4294967294), 0);
    ASSERT_TRUE(findFirst(info, file));
    EXPECT_EQ(info.size, 4294967294U);
}

TEST(FindFirst, FollowsLinksButKeepsTheirName) {
    const TempFolder folder;
    folder.write("target", "123");
    ASSERT_EQ(symlink("target", (folder / "link").c_str()), 0);
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "li*"));
    EXPECT_EQ(info.name, "link");
    EXPECT_EQ(info.size, 3U);
}

TEST(FindFirst, TellsSpecialEntries) {
    FileInfo info;
    ASSERT_TRUE(findFirst(info, "/dev/null"));
    EXPECT_EQ(info.attributes & 0x14U, 0x04U);
    EXPECT_EQ(info.name, "null");
}

TEST(FindFirst, NamesAreWhatFollowsTheLastSlash) {
    const TempFolder folder;
    folder.write("dir/inside", "");
    EXPECT_THAT(namesOf(folder / "dir/*"), ElementsAre("inside"));
    EXPECT_THAT(namesOf(folder / "dir/"), ElementsAre(""));
    FileInfo info;
    ASSERT_TRUE(findFirst(info, "."));
    EXPECT_EQ(info.name, ".");
}

// Asked before any test runs, while the process has no list yet.
const bool foundWithoutAList = [] {
    FileInfo info;
    return findNext(info);
}();

TEST(FindNext, IsFalseBeforeTheFirstFindFirst) { EXPECT_FALSE(foundWithoutAList); }

TEST(FindNext, GivesEveryMatchOnceInTheOrderOfFindFiles) {
    const TempFolder folder;
    std::vector<std::string> expected;
    for (int i = 0; i < 30; ++i) folder.write("f" + std::to_string(i * 7919 % 1000), "");
    for (const std::string& path : toolsmisc::findFiles(folder / "f*", false)) {
        expected.push_back(path.substr(folder.path().size() + 1));
    }
    ASSERT_EQ(expected.size(), 30U);
    EXPECT_EQ(namesOf(folder / "f*"), expected);
}

TEST(FindNext, IsFalseAtTheEndAndStaysSo) {
    const TempFolder folder;
    folder.write("one", "1");
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "*"));
    EXPECT_FALSE(findNext(info));
    EXPECT_FALSE(findNext(info));
    EXPECT_EQ(info.name, "one") << "what was found stays";
}

TEST(FindNext, GoesOnWithTheLastFindFirst) {
    const TempFolder folder;
    for (const char* name : {"a1", "a2", "b1", "b2"}) folder.write(name, "");
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "a*"));
    ASSERT_TRUE(findFirst(info, folder / "b*"));
    std::set<std::string> names{info.name};
    ASSERT_TRUE(findNext(info));
    names.insert(info.name);
    EXPECT_THAT(names, UnorderedElementsAre("b1", "b2"));
    EXPECT_FALSE(findNext(info));
}

TEST(FindFirst, WithoutAMatchIsFalseAndEndsTheListBefore) {
    const TempFolder folder;
    for (const char* name : {"a1", "a2"}) folder.write(name, "");
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "a*"));
    info.name = "untouched";
    EXPECT_FALSE(findFirst(info, folder / "none*"));
    EXPECT_FALSE(findNext(info));
    EXPECT_EQ(info.name, "untouched");
    const char* const none = nullptr;
    EXPECT_FALSE(findFirst(info, none));
    EXPECT_FALSE(findFirst(info, ""));
}

// There is nothing to tell about a link to nothing: its record was once whatever was in memory.
TEST(FindFirst, PassesOverLinksToNothing) {
    const TempFolder folder;
    ASSERT_EQ(symlink("nothing", (folder / "dangling").c_str()), 0);
    FileInfo info;
    info.size = 77;
    info.name = "untouched";
    EXPECT_FALSE(findFirst(info, folder / "*"));
    EXPECT_EQ(info.size, 77U);
    EXPECT_EQ(info.name, "untouched");
    folder.write("afile", "");
    folder.write("zfile", "");
    ASSERT_EQ(symlink("nothing", (folder / "b").c_str()), 0);
    EXPECT_THAT(namesOf(folder / "*"), UnorderedElementsAre("afile", "zfile"));
}

TEST(FindFirst, PassesOverDirectoriesThatCannotBeRead) {
    const TempFolder folder;
    folder.write("good/file", "");
    folder.write("unreadable/file", "");
    const auto text = testsupport::inConfinedChild(folder.path(), []() -> std::string {
        chmod("/unreadable", 0300);
        if (!testsupport::loseRootsRights()) return "rights kept";
        std::string found;
        for (const std::string& name : namesOf("*/f*")) found += name + ";";
        chmod("/unreadable", 0700);
        return found;
    });
    if (!text) GTEST_SKIP() << testsupport::kNotConfined;
    EXPECT_EQ(*text, "file;");
}

TEST(FindNext, PassesOverWhatIsGoneMeanwhile) {
    const TempFolder folder;
    for (const char* name : {"a", "b", "c"}) folder.write(name, "");
    FileInfo info;
    ASSERT_TRUE(findFirst(info, folder / "*"));
    for (const char* name : {"a", "b", "c"}) unlink((folder / name).c_str());
    EXPECT_FALSE(findNext(info));
}

/// What several threads that start together get from the list of the last `findFirst`.
std::vector<std::string> sharedNames(int threadCount) {
    std::mutex mutex;
    std::vector<std::string> names;
    std::latch together(threadCount);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            together.arrive_and_wait();
            for (FileInfo info; findNext(info);) {
                const std::lock_guard lock(mutex);
                names.push_back(info.name);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    return names;
}

// Without TZ each call reads the zone anew: two threads that did so at once were a report of the race detector's.
TEST(FindNext, ThreadsThatShareTheListGetEachMatchOnce) {
    const ScopedZone system(nullptr);
    const TempFolder folder;
    for (int i = 0; i < 100; ++i) folder.write("f" + std::to_string(i), "");
    for (int round = 0; round < 10; ++round) {
        FileInfo first;
        ASSERT_TRUE(findFirst(first, folder / "f*"));
        std::vector<std::string> names = sharedNames(4);
        names.push_back(first.name);
        EXPECT_EQ(names.size(), 100U);
        EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 100U);
    }
}

TEST(FindFirst, ReplacesTheListWhileOthersTakeFromIt) {
    const ScopedZone zone("UTC0");
    const TempFolder folder;
    const std::set<std::string> known{"one", "two", "three"};
    for (const std::string& name : known) folder.write(name, "");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                FileInfo info;
                for (bool more = findFirst(info, folder / "*"); more; more = findNext(info)) {
                    if (!known.contains(info.name)) ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(FormatFileInfo, IsOneLine) {
    EXPECT_EQ(formatFileInfo({0x10, 134501, 20240105, 4096, "data"}),
              "attrib: 0x10; time: 134501; date: 20240105; size: 4096; 'data'");
    EXPECT_EQ(formatFileInfo({}), "attrib: 0x0; time: 0; date: 0; size: 0; ''");
    EXPECT_EQ(formatFileInfo({0xABCDEF01, 4294967295, 4294967294, 2147483648, "a 'b'"}),
              "attrib: 0xabcdef01; time: 4294967295; date: 4294967294; size: 2147483648; 'a 'b''");
}

TEST(FormatFileInfo, IsWholeAtEveryLength) {
    for (std::size_t length = 60; length < 260; ++length) {
        const std::string name(length, 'n');
        ASSERT_EQ(formatFileInfo({0x1, 2, 3, 4, name}), "attrib: 0x1; time: 2; date: 3; size: 4; '" + name + "'");
    }
}

}  // namespace
