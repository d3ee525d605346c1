// Each fallible call of a scenario fails once, and then for ever. scripts/torture runs more of the same.

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "tests/faults/Scenarios.h"

namespace {

using faults::Outcome;
using faults::Scenario;

const Scenario kScenarios[] = {
    {.name = "texts", .body = faults::textsAreRightOrRefused},
    {.name = "files", .body = faults::filesKeepWhatWasWritten},
    {.name = "backup", .body = faults::aBackupLosesNothing},
    {.name = "folders", .body = faults::foldersAreMadeAndRemoved},
    {.name = "places", .body = faults::placesAndVersionsAreRight},
    {.name = "processes", .body = faults::processesAreListed},
    {.name = "clocks", .body = faults::clocksTellTheTime},
    {.name = "threads", .body = faults::threadsAndQueuesDeliver},
    {.name = "timers", .body = faults::timersExpire},
    {.name = "connection",
     .body = faults::aConnectionCarriesPackets,
     .peer = faults::echoPackets,
     .prepare = faults::prepareServer},
    {.name = "upload",
     .body = faults::anUploadIsShownToItsEnd,
     .peer = faults::playUpload,
     .prepare = faults::prepareServer,
     .patienceMs = 1500},
};

class Faults : public testing::TestWithParam<Scenario> {};

/// Number in an environment variable, or `otherwise`.
long numberIn(const char* variable, long otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::atol(text);
}

TEST_P(Faults, OfEachCallAreSurvived) {
    const Outcome outcome = faults::tortureWithErrors(GetParam());
    std::cout << GetParam().name << ": " << outcome.calls << " calls, " << outcome.runs << " runs with a fault\n";
    EXPECT_GE(outcome.runs, 2 * outcome.calls - outcome.calls / 5);  // threads: the last calls are not always reached
    EXPECT_GE(outcome.calls, 1);
    EXPECT_EQ(outcome.failures, "");
    RecordProperty("runs", static_cast<int>(outcome.runs));
}

// scripts/torture sets how many.
TEST_P(Faults, InPairsAndOfOtherKindsAreSurvived) {
    const auto seed = static_cast<unsigned>(numberIn("DUNMALLOW_TORTURE_SEED", 1));
    const Outcome outcome = faults::tortureAtRandom(GetParam(), numberIn("DUNMALLOW_TORTURE_RUNS", 20), seed);
    std::cout << GetParam().name << ": " << outcome.runs << " runs with faults drawn at random\n";
    EXPECT_EQ(outcome.failures, "");
    RecordProperty("runs", static_cast<int>(outcome.runs));
}

// To look at one run again: DUNMALLOW_FAULT=12 (and DUNMALLOW_FAULT_FOREVER=1) with the scenario's name in the filter.
TEST_P(Faults, AtOneCallIsSurvived) {
    const long call = numberIn("DUNMALLOW_FAULT", 0);
    if (call == 0) GTEST_SKIP() << "no call was named";
    const bool forever = numberIn("DUNMALLOW_FAULT_FOREVER", 0) != 0;
    EXPECT_EQ(faults::runOne(GetParam(), {.first = call, .forever = forever}).failures, "");
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Faults, testing::ValuesIn(kScenarios),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
