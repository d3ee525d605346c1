// Each fallible call of a scenario fails once, and then for ever. scripts/torture runs more of the same.

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "tests/faults/Scenarios.h"
#include "tests/faults/Torture.h"

namespace {

using faults::Outcome;
using faults::Scenario;

constexpr std::array<std::string_view, 7> kReasons{"Unable to start server application\n",
                                                   "Unable to locate server application: '",
                                                   "Unable to find specified file\n",
                                                   "getaddrinfo(127.0.0.1): ",
                                                   "setting up termination signal: ",
                                                   "sigaction: ",
                                                   "dunmallow: out of memory\n"};

const Scenario kScenarios[] = {
    {.name = "texts", .body = faults::textsAreRightOrRefused},
    {.name = "files", .body = faults::filesKeepWhatWasWritten},
    {.name = "backup", .body = faults::aBackupLosesNothing},
    {.name = "folders", .body = faults::foldersAreMadeAndRemoved},
    {.name = "places", .body = faults::placesAndVersionsAreRight},
    {.name = "processes", .body = faults::processesAreListed},
    {.name = "clocks", .body = faults::clocksTellTheTime},
    {.name = "threads", .body = faults::threadsAndQueuesDeliver},
    {.name = "timers", .body = faults::timersExpire, .timers = true},
    {.name = "connection",
     .body = faults::aConnectionCarriesPackets,
     .peer = faults::echoPackets,
     .prepare = faults::prepareServer},
    {.name = "upload",
     .body = faults::anUploadIsShownToItsEnd,
     .peer = faults::playUpload,
     .prepare = faults::prepareLaterServer,
     .patienceMs = 1500,
     .timers = true,
     .shows = "    state    Done",
     .says = kReasons},
};

/// Number in an environment variable, or `otherwise`.
long numberIn(const char* variable, long otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::atol(text);
}

class Faults : public testing::TestWithParam<Scenario> {
protected:
    /// Each run that counts had its fault, and nearly all do.
    static void check(const Outcome& outcome, const char* what) {
        std::cout << "faults: " << GetParam().name << ": " << outcome.calls << " calls, " << outcome.runs << " of "
                  << outcome.planned << " runs with " << what << ", " << outcome.faults << " in all\n";
        EXPECT_GE(outcome.calls, 1);
        EXPECT_GE(outcome.planned, 1);
        EXPECT_TRUE(outcome.reachedNearlyAll());
        EXPECT_GE(outcome.faults, outcome.runs);
        EXPECT_EQ(outcome.failures, "");
        RecordProperty("runs", static_cast<int>(outcome.runs));
        allRuns += outcome.runs;
        allFaults += outcome.faults;
    }
    static void TearDownTestSuite() {
        std::cout << "faults: " << allRuns << " runs with faults, " << allFaults << " in all\n";
    }

private:
    static inline long allRuns = 0;
    static inline long allFaults = 0;
};

TEST_P(Faults, OfEachCallAreSurvived) {
    const Outcome outcome = faults::tortureWithErrors(GetParam());
    EXPECT_EQ(outcome.planned, 2 * outcome.calls);
    check(outcome, "a failing call");
}

// scripts/torture sets how many.
TEST_P(Faults, InPairsAndOfOtherKindsAreSurvived) {
    const long runs = numberIn("DUNMALLOW_TORTURE_RUNS", 20);
    const auto seed = static_cast<unsigned>(numberIn("DUNMALLOW_TORTURE_SEED", 1));
    const Outcome outcome = faults::tortureAtRandom(GetParam(), runs, seed);
    EXPECT_EQ(outcome.planned, runs);
    check(outcome, "faults drawn at random");
}

// To look at one run again: DUNMALLOW_FAULT=12, DUNMALLOW_FAULT_SECOND=40, DUNMALLOW_FAULT_FOREVER=1,
// DUNMALLOW_FAULT_KIND=0 to 3 (as in Injection.h), with the scenario's name in the filter.
TEST_P(Faults, AtOneCallIsSurvived) {
    const faults::Plan plan{.kind = static_cast<faults::Kind>(numberIn("DUNMALLOW_FAULT_KIND", 0)),
                            .first = numberIn("DUNMALLOW_FAULT", 0),
                            .second = numberIn("DUNMALLOW_FAULT_SECOND", 0),
                            .forever = numberIn("DUNMALLOW_FAULT_FOREVER", 0) != 0};
    if (plan.first == 0) GTEST_SKIP() << "no call was named";
    check(faults::runOne(GetParam(), plan), "the named call failing");
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Faults, testing::ValuesIn(kScenarios),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
