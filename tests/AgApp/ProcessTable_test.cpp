#include "AgApp/ProcessTable.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/RowName.h"
#include "tests/support/TempFolder.h"

namespace {

using AgApp::ProcessRecord;

// Tools hand these functions on as plain function pointers.
static_assert(std::is_same_v<decltype(&AgApp::readProcessStatus), ProcessRecord (*)(int)>);
static_assert(std::is_same_v<decltype(&AgApp::getParentPid), int (*)(int)>);
static_assert(std::is_same_v<decltype(&AgApp::isKernelThread), bool (*)(int)>);
static_assert(std::is_same_v<decltype(&AgApp::listProcesses), std::vector<ProcessRecord> (*)()>);
static_assert(std::is_same_v<decltype(&AgApp::isProcessRunning), bool (*)(const char*)>);
static_assert(std::is_same_v<decltype(&AgApp::stringToInt), int (*)(const std::string&)>);

void expectUnknown(const ProcessRecord& record) {
    EXPECT_EQ(record.name, "");
    EXPECT_EQ(record.pid, -1);
    EXPECT_EQ(record.ppid, 0);
    EXPECT_EQ(record.effectiveUid, 0U);
    EXPECT_EQ(record.realUid, 0U);
    EXPECT_FALSE(record.isKernelThread);
}

struct StatusRow {
    const char* why;
    const char* status;
    ProcessRecord record;
};
class StatusFile : public testing::TestWithParam<StatusRow> {};

TEST_P(StatusFile, GivesARecord) {
    std::istringstream status(GetParam().status);
    const ProcessRecord record = AgApp::parseProcessStatus(status);
    EXPECT_EQ(record.name, GetParam().record.name);
    EXPECT_EQ(record.pid, GetParam().record.pid);
    EXPECT_EQ(record.ppid, GetParam().record.ppid);
    EXPECT_EQ(record.effectiveUid, GetParam().record.effectiveUid);
    EXPECT_EQ(record.realUid, GetParam().record.realUid);
    EXPECT_EQ(record.isKernelThread, GetParam().record.isKernelThread);
}

// Records: name, pid, ppid, effective user, real user, kernel thread.
INSTANTIATE_TEST_SUITE_P(
    Rows, StatusFile,
    testing::Values(
        StatusRow{"ordinary",
                  "Name:\tcorvane\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t812\nNgid:\t0\nPid:\t812\nPPid:\t1\n"
                  "TracerPid:\t7\nUid:\t1000\t1001\t1002\t1003\nGid:\t5\t6\t7\t8\nThreads:\t3\n",
                  {"corvane", 812, 1, 1001, 1000, false}},
        StatusRow{"empty", "", {}}, StatusRow{"noKnownKey", "State:\tS\n\n   \nThreads:\t3\n", {}},
        StatusRow{"lastLineWithoutNewline", "Pid:\t812", {"", 812, 0, 0, 0, false}},
        StatusRow{"emptyName", "Name:\t\nPid:\t812\n", {"", 812, 0, 0, 0, false}},
        StatusRow{"nameWithBlankKeepsItsFirstWord", "Name:\tWeb Content\nPid:\t9\n", {"Web", 9, 0, 0, 0, false}},
        StatusRow{"nameThatLooksLikeAKey", "Name:\tPid: 1\nPid:\t9\n", {"Pid:", 9, 0, 0, 0, false}},
        StatusRow{"nameThatLooksLikeANumber", "Name:\t-1\nPid:\t9\n", {"-1", 9, 0, 0, 0, false}},
        StatusRow{"nameWithEscapedNewline", "Name:\ta\\nPid:\nPid:\t9\n", {"a\\nPid:", 9, 0, 0, 0, false}},
        StatusRow{"keysAreWhole", "TracerPid:\t7\nNSpid:\t8\nPid\t9\nPid:10\nxPPid:\t3\nName\tx\n", {}},
        StatusRow{"keysAreCaseSensitive", "pid:\t7\nPPID:\t8\nNAME:\tx\nuid:\t5\n", {}},
        StatusRow{"anyWhiteSpaceSeparates", "  Name: \t x \n\t Pid:   9\n", {"x", 9, 0, 0, 0, false}},
        StatusRow{"orderDoesNotMatter", "Uid:\t1 2\nPPid:\t4\nPid:\t3\nName:\tx\n", {"x", 3, 4, 2, 1, false}},
        StatusRow{
            "largestUserIds", "Uid:\t4294967295\t4294967294\t0\t0\n", {"", -1, 0, 4294967294U, 4294967295U, false}},
        StatusRow{"oneUserIdOnly", "Uid:\t5\n", {"", -1, 0, 0, 5, false}},
        StatusRow{"largestPid", "Pid:\t2147483647\n", {"", 2147483647, 0, 0, 0, false}},
        StatusRow{"pidTooLargeStaysUnknown", "Pid:\t2147483648\nPPid:\t9999999999\n", {}},
        StatusRow{"userIdTooLargeStaysUnknown", "Uid:\t4294967296\t7\n", {}},
        StatusRow{"missingNumbersStayUnknown", "Pid:\nPPid:\tx\nUid:\tx\ty\n", {}},
        StatusRow{"numberEndsAtTheFirstNonDigit", "Pid:\t12x\n", {"", 12, 0, 0, 0, false}},
        StatusRow{"kernelThreadCreator", "Name:\tkthreadd\nPid:\t2\nPPid:\t0\n", {"kthreadd", 2, 0, 0, 0, true}},
        StatusRow{"kernelThread", "Name:\tkworker/0:1\nPid:\t31\nPPid:\t2\n", {"kworker/0:1", 31, 2, 0, 0, true}},
        StatusRow{"firstProcessIsNoKernelThread", "Name:\tinit\nPid:\t1\nPPid:\t0\n", {"init", 1, 0, 0, 0, false}},
        StatusRow{"pidThatBeginsWithTwo", "Pid:\t22\nPPid:\t23\n", {"", 22, 23, 0, 0, false}}),
    RowName());

TEST(StatusFile, ReadErrorLeavesUnknownValues) {
    std::istringstream status("Name:\tx\nPid:\t9\n");
    status.setstate(std::ios::badbit);
    expectUnknown(AgApp::parseProcessStatus(status));
}

struct IntRow {
    const char* why;
    const char* text;
    int value;
};
class StringToInt : public testing::TestWithParam<IntRow> {};

TEST_P(StringToInt, TakesTheLeadingNumber) { EXPECT_EQ(AgApp::stringToInt(GetParam().text), GetParam().value); }

INSTANTIATE_TEST_SUITE_P(Rows, StringToInt,
                         testing::Values(IntRow{"ordinary", "812", 812}, IntRow{"empty", "", 0},
                                         IntRow{"word", "abc", 0}, IntRow{"trailingText", "12x", 12},
                                         IntRow{"leadingWhiteSpace", " \t\n12", 12}, IntRow{"leadingText", "x12", 0},
                                         IntRow{"minus", "-5", -5}, IntRow{"plus", "+5", 5}, IntRow{"signOnly", "-", 0},
                                         IntRow{"decimalNotOctal", "010", 10},
                                         IntRow{"decimalNotHexadecimal", "0x10", 0}, IntRow{"point", "1.9", 1},
                                         IntRow{"largest", "2147483647", 2147483647},
                                         IntRow{"tooLarge", "2147483648", 2147483647},
                                         IntRow{"farTooLarge", "99999999999999999999", 2147483647},
                                         IntRow{"smallest", "-2147483648", -2147483647 - 1},
                                         IntRow{"tooSmall", "-2147483649", -2147483647 - 1}),
                         RowName());

struct Thousands : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(StringToIntInAnotherLocale, ReadsAsAlways) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Thousands));
    EXPECT_EQ(AgApp::stringToInt("1.234"), 1);
    std::locale::global(before);
}

std::string statusOf(const std::string& name, int pid) {
    return "Name:\t" + name + "\nPid:\t" + std::to_string(pid) + "\n";
}

std::vector<int> sortedPids(const std::vector<ProcessRecord>& processes) {
    std::vector<int> pids;
    pids.reserve(processes.size());
    for (const ProcessRecord& process : processes) pids.push_back(process.pid);
    std::sort(pids.begin(), pids.end());
    return pids;
}

TEST(ProcessList, HoldsEveryNumberedFolderWithAPid) {
    const testsupport::TempFolder table;
    table.write("12/status", statusOf("a", 12));
    table.write("7/status", statusOf("b", 7));
    table.write("0/status", statusOf("c", 0));
    table.write("90/status", statusOf("d", 90));
    table.write("12x/status", statusOf("notOnlyDigits", 101));
    table.write("self/status", statusOf("noDigits", 102));
    table.write("x1/status", statusOf("firstIsNoDigit", 103));
    table.write("13", statusOf("noFolder", 104));
    table.write("14/stat", "");
    table.write("15/status", "Name:\tnoPid\n");
    EXPECT_EQ(sortedPids(AgApp::listProcessesIn(table.path())), (std::vector<int>{0, 7, 12, 90}));
}

TEST(ProcessList, KeepsTheOrderOfTheScan) {
    const testsupport::TempFolder table;
    for (int i = 0; i < 60; ++i) {
        const int pid = 1 + i * 7919 % 1000;
        table.write(std::to_string(pid) + "/status", statusOf("a", pid));
    }
    std::vector<int> scanned;
    for (const auto& entry : std::filesystem::directory_iterator(table.path())) {
        scanned.push_back(std::stoi(entry.path().filename()));
    }
    ASSERT_EQ(scanned.size(), 60U);
    std::vector<int> listed;
    for (const ProcessRecord& process : AgApp::listProcessesIn(table.path())) listed.push_back(process.pid);
    EXPECT_EQ(listed, scanned);
}

TEST(ProcessList, FollowsALinkToAFolder) {
    const testsupport::TempFolder table;
    table.write("real/status", statusOf("linked", 12));
    ASSERT_EQ(symlink((table / "real").c_str(), (table / "12").c_str()), 0);
    EXPECT_EQ(sortedPids(AgApp::listProcessesIn(table.path())), std::vector<int>{12});
}

TEST(ProcessList, SkipsNumbersThatNoProcessCanHave) {
    const testsupport::TempFolder table;
    table.write("99999999999/status", statusOf("tooLarge", 12));
    EXPECT_TRUE(AgApp::listProcessesIn(table.path()).empty());
}

TEST(ProcessList, IsEmptyWithoutATable) {
    const testsupport::TempFolder folder;
    EXPECT_TRUE(AgApp::listProcessesIn(folder.path()).empty()) << "nothing matches";
    EXPECT_TRUE(AgApp::listProcessesIn(folder / "missing").empty()) << "nothing to scan";
}

TEST(ProcessList, ReadsTheTableAfreshEachTime) {
    const testsupport::TempFolder table;
    table.write("7/status", statusOf("a", 7));
    EXPECT_EQ(AgApp::readProcessStatusIn(table.path(), 7).name, "a");
    EXPECT_EQ(AgApp::listProcessesIn(table.path()).size(), 1U);
    table.write("7/status", statusOf("b", 7));
    table.write("8/status", statusOf("c", 8));
    EXPECT_EQ(AgApp::readProcessStatusIn(table.path(), 7).name, "b");
    EXPECT_EQ(AgApp::listProcessesIn(table.path()).size(), 2U);
}

TEST(ProcessList, IsSearchedForAnExactName) {
    const testsupport::TempFolder table;
    table.write("7/status", statusOf("corvane", 7));
    table.write("8/status", statusOf("", 8));
    EXPECT_TRUE(AgApp::isProcessRunningIn(table.path(), "corvane"));
    for (const char* other : {"corvan", "corvanes", "Corvane", "7"})
        EXPECT_FALSE(AgApp::isProcessRunningIn(table.path(), other)) << other;
    EXPECT_TRUE(AgApp::isProcessRunningIn(table.path(), "")) << "a process may have no name";
}

TEST(KernelThread, IsAChildOfProcessTwo) {
    const testsupport::TempFolder table;
    table.write("31/status", "Name:\tkworker\nPid:\t31\nPPid:\t2\n");
    table.write("32/status", "Name:\tshell\nPid:\t32\nPPid:\t31\n");
    EXPECT_EQ(AgApp::getParentPidIn(table.path(), 31), 2);
    EXPECT_TRUE(AgApp::isKernelThreadIn(table.path(), 31));
    EXPECT_FALSE(AgApp::isKernelThreadIn(table.path(), 32));
    EXPECT_FALSE(AgApp::isKernelThreadIn(table.path(), 33)) << "no such process";
    EXPECT_TRUE(AgApp::isKernelThreadIn(table.path(), 2)) << "known without reading";
}

TEST(ProcessStatus, OfAMissingFileIsUnknown) {
    const testsupport::TempFolder table;
    expectUnknown(AgApp::readProcessStatusIn(table.path(), 7));
}

/// A process with a name of its own that waits until the object goes.
class NamedChild {
public:
    explicit NamedChild(const char* name, uid_t real = getuid(), uid_t effective = geteuid()) {
        std::array<int, 2> ready{};
        if (pipe(alive.data()) != 0 || pipe(ready.data()) != 0) std::abort();
        pid = fork();
        if (pid == 0) {
            prctl(PR_SET_NAME, name);
            if (setresuid(real, effective, effective) != 0) _exit(1);
            close(alive[1]);
            char byte = 0;
            static_cast<void>(write(ready[1], &byte, 1) == 1 && read(alive[0], &byte, 1) == 1);
            _exit(0);
        }
        close(alive[0]);
        close(ready[1]);
        char byte = 0;
        started = read(ready[0], &byte, 1) == 1;
        close(ready[0]);
    }
    ~NamedChild() {
        if (pid > 0) end();
    }
    NamedChild(const NamedChild&) = delete;
    NamedChild& operator=(const NamedChild&) = delete;

    /// Ends the process and waits until it has left the table.
    void end() {
        close(alive[1]);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }

    pid_t pid = -1;
    bool started = false;

private:
    std::array<int, 2> alive{};
};

// A name of at most 15 characters that no other test of this machine uses.
std::string uniqueName(const std::string& prefix) { return prefix + std::to_string(getpid()); }

TEST(LiveProcess, IsFoundByItsExactNameWhileItRuns) {
    const std::string name = uniqueName("dmtA");
    EXPECT_FALSE(AgApp::isProcessRunning(name.c_str()));
    NamedChild child(name.c_str());
    ASSERT_TRUE(child.started);
    EXPECT_TRUE(AgApp::isProcessRunning(name.c_str()));
    EXPECT_FALSE(AgApp::isProcessRunning((name + "x").c_str())) << "longer";
    EXPECT_FALSE(AgApp::isProcessRunning(name.substr(0, name.size() - 1).c_str())) << "shorter";
    EXPECT_FALSE(AgApp::isProcessRunning(("D" + name.substr(1)).c_str())) << "other case";
    child.end();
    EXPECT_FALSE(AgApp::isProcessRunning(name.c_str()));
}

TEST(LiveProcess, IsNeverFoundByANameLongerThanTheKernelKeeps) {
    const std::string kept = (uniqueName("dmtB") + "abcdefghijk").substr(0, 15);
    const std::string full = kept + "z";
    const NamedChild child(full.c_str());
    ASSERT_TRUE(child.started);
    EXPECT_TRUE(AgApp::isProcessRunning(kept.c_str()));
    EXPECT_FALSE(AgApp::isProcessRunning(full.c_str()));
}

TEST(LiveProcess, WithABlankInItsNameIsFoundByTheFirstWord) {
    const std::string name = uniqueName("dmtC");
    const NamedChild child((name + " x").c_str());
    ASSERT_TRUE(child.started);
    EXPECT_TRUE(AgApp::isProcessRunning(name.c_str()));
    EXPECT_FALSE(AgApp::isProcessRunning((name + " x").c_str()));
}

TEST(LiveProcess, HasItsIdentityInItsRecord) {
    const std::string name = uniqueName("dmtD");
    NamedChild child(name.c_str());
    ASSERT_TRUE(child.started);
    const ProcessRecord record = AgApp::readProcessStatus(child.pid);
    EXPECT_EQ(record.name, name);
    EXPECT_EQ(record.pid, child.pid);
    EXPECT_EQ(record.ppid, getpid());
    EXPECT_EQ(record.realUid, getuid());
    EXPECT_EQ(record.effectiveUid, geteuid());
    EXPECT_EQ(AgApp::getParentPid(child.pid), getpid());
    EXPECT_EQ(AgApp::isKernelThread(child.pid), getpid() == 2);
    const pid_t gone = child.pid;
    child.end();
    expectUnknown(AgApp::readProcessStatus(gone));
    EXPECT_EQ(AgApp::getParentPid(gone), 0);
    EXPECT_FALSE(AgApp::isKernelThread(gone));
}

TEST(LiveProcess, RealAndEffectiveUserAreKeptApart) {
    if (getuid() != 0) GTEST_SKIP() << "only the super-user can become somebody else";
    const NamedChild child(uniqueName("dmtE").c_str(), 1234, 4321);
    ASSERT_TRUE(child.started);
    const ProcessRecord record = AgApp::readProcessStatus(child.pid);
    EXPECT_EQ(record.realUid, 1234U);
    EXPECT_EQ(record.effectiveUid, 4321U);
}

TEST(LiveProcess, IsInTheListOnce) {
    const NamedChild child(uniqueName("dmtF").c_str());
    ASSERT_TRUE(child.started);
    const std::vector<ProcessRecord> processes = AgApp::listProcesses();
    const auto isChild = [&](const ProcessRecord& process) { return process.pid == child.pid; };
    EXPECT_EQ(std::count_if(processes.begin(), processes.end(), isChild), 1);
    const auto isOwn = [](const ProcessRecord& process) { return process.pid == getpid(); };
    EXPECT_EQ(std::count_if(processes.begin(), processes.end(), isOwn), 1) << "/proc/self is not listed as well";
}

TEST(KernelThread, IsAlwaysProcessTwoAndNeverProcessOne) {
    EXPECT_TRUE(AgApp::isKernelThread(2));
    EXPECT_FALSE(AgApp::isKernelThread(1));
}

TEST(IsProcessRunning, IsFalseForNoName) { EXPECT_FALSE(AgApp::isProcessRunning(nullptr)); }

TEST(ProcessStatus, OfImpossibleIdsIsUnknown) {
    for (const int pid : {-1, 0, 2147483647}) expectUnknown(AgApp::readProcessStatus(pid));
}

}  // namespace
