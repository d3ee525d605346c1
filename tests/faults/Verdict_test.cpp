// A run with something wrong in it is found out, by how it ended and by what it left.

#include "tests/faults/Verdict.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

#include "sw_drv/RTkernel/linux/CrashReport.h"
#include "sw_drv/RTkernel/linux/Timer.h"
#include "tests/faults/Run.h"

namespace {

using faults::Kind;
using faults::Scenario;

constexpr int kSucceeded = W_EXITCODE(0, 0);
constexpr int kRefused = W_EXITCODE(1, 0);

struct Row {
    const char* why;
    faults::Ending ending;
    const char* verdict;
    long struck = 1;
    bool failed = true;
    bool outOfMemory = false;
    Kind kind = Kind::error;
};

class Verdict : public testing::TestWithParam<Row> {};

TEST_P(Verdict, FollowsFromTheEnding) {
    const Row& row = GetParam();
    static constexpr std::array<std::string_view, 2> kReasons{"Invalid address", "out of memory"};
    const Scenario scenario{.name = "any", .body = [] {}, .shows = "Done", .says = kReasons};
    faults::Tally tally;
    tally.struck = row.struck;
    tally.failed = row.failed;
    tally.outOfMemory = row.outOfMemory;
    EXPECT_EQ(faults::verdict(scenario, {.kind = row.kind}, tally, row.ending), row.verdict);
}

const Row kRows[] = {
    {"success", {.status = kSucceeded, .shown = "state Done\n"}, ""},
    {"successNotShown", {.status = kSucceeded, .shown = "state Busy\n"}, "ends with 0 and does not show 'Done'"},
    {"waitsForASignal", {.status = kSucceeded, .terminated = true}, ""},
    {"refusal", {.status = kRefused, .said = "Invalid address\n"}, ""},
    {"otherReason", {.status = kRefused, .said = "connect: refused\n"}, "ends with 1 and does not say why"},
    {"silentRefusal", {.status = kRefused}, "ends with 1 and says nothing"},
    {"silentWithoutMemory", {.status = kRefused}, "ends with 1 and says nothing", 1, true, true},
    {"mayBeSilent: the message failed too", {.status = kRefused}, "", 2, true, true},
    {"silentAfterTwo", {.status = kRefused}, "ends with 1 and says nothing", 2, true, false},
    {"refusalWithoutReason", {.status = kRefused, .said = "x"}, "ends with 1 although no call failed", 0, false},
    {"delayRefused",
     {.status = kRefused, .said = "x"},
     "ends with 1 although no call failed",
     1,
     false,
     false,
     Kind::delay},
    {"delayIsTold",
     {.status = kSucceeded, .said = "x", .shown = "Done"},
     "complains although no call failed",
     1,
     false,
     false,
     Kind::delay},
    {"interruptionMayBeTold",
     {.status = kSucceeded, .said = "x", .shown = "Done"},
     "",
     1,
     false,
     false,
     Kind::interrupted},
    {"interruptedNotShown",
     {.status = kSucceeded},
     "ends with 0 and does not show 'Done'",
     1,
     false,
     false,
     Kind::interrupted},
    {"crashWithReport", {.status = kRefused, .said = "thread: 7, reports segmentation fault\n"}, "crashes"},
    {"crashOfASanitizer", {.status = kRefused, .said = "ERROR: AddressSanitizer: heap-use-after-free"}, "crashes"},
    {"crashOfUndefined", {.status = kSucceeded, .said = "a.cpp:1:2: runtime error: shift", .shown = "Done"}, "crashes"},
    {"hang", {.status = -1}, "hangs"},
    {"signal", {.status = W_EXITCODE(0, SIGABRT)}, "dies of signal 6"},
    {"otherStatus", {.status = W_EXITCODE(faults::kWrong, 0)}, "ends with 90"},
};

std::string nameOf(const testing::TestParamInfo<Row>& row) {
    const std::string why = row.param.why;
    return why.substr(0, why.find(':'));
}
INSTANTIATE_TEST_SUITE_P(Rows, Verdict, testing::ValuesIn(kRows), nameOf);

// Put in on purpose, as a scenario of the library might do it.

void leaveADescriptor() { static_cast<void>(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

void leaveAThread() {
    pthread_t thread{};
    const auto body = [](void*) -> void* {
        for (;;) pause();
    };
    pthread_create(&thread, nullptr, body, nullptr);
}

void leaveMore() {
    const threadfunc::timer_template<int> timer(1, nullptr, 0);
    leaveADescriptor();
}

void crash() {
    threadfunc::installCrashReport();
    static_cast<void>(raise(SIGSEGV));
}

struct Fault {
    const char* why;
    Scenario scenario;
    const char* found;  // part of the report; "": nothing
};

class OnPurpose : public testing::TestWithParam<Fault> {};

TEST_P(OnPurpose, IsFound) {
    faults::Tally tally;
    const std::string report = faults::run(GetParam().scenario, {}, tally);
    EXPECT_NE(report.find(GetParam().found), std::string::npos) << report;
    EXPECT_EQ(report.empty(), *GetParam().found == '\0') << report;
}

const Fault kFaults[] = {
    {"nothing", {.name = "a", .body = [] {}}, ""},
    {"aDescriptor", {.name = "a", .body = leaveADescriptor}, "a descriptor is left"},
    {"aThread", {.name = "a", .body = leaveAThread}, "a thread is left"},
    {"theTimerThread",
     {.name = "a", .body = [] { const threadfunc::timer_template<int> timer(1, nullptr, 0); }, .timers = true},
     ""},
    {"theTimerThreadOfOthers",
     {.name = "a", .body = [] { const threadfunc::timer_template<int> timer(1, nullptr, 0); }},
     "a thread is left"},
    {"moreThanTheTimerThread", {.name = "a", .body = leaveMore, .timers = true}, "a descriptor is left"},
    {"refusal", {.name = "a", .body = [] { faults::done(false, "no reason"); }}, "[wrong: no reason]"},
    {"silentExit", {.name = "a", .body = [] { _exit(EXIT_FAILURE); }}, "ends with 1 although no call failed"},
    {"nothingShown", {.name = "a", .body = [] {}, .shows = "Done"}, "does not show 'Done'"},
    {"aCrash", {.name = "a", .body = crash}, "crashes"},
    {"abort", {.name = "a", .body = std::abort}, "dies of signal 6"},
};
INSTANTIATE_TEST_SUITE_P(Faults, OnPurpose, testing::ValuesIn(kFaults),
                         [](const auto& row) { return std::string(row.param.why); });

}  // namespace
