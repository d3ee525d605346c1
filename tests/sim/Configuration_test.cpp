#include "sim/Configuration.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

#include "tests/support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using Variables = std::map<std::string, std::string>;

sim::Result<sim::Scenario> load(const std::string& scenario, const Variables& variables) {
    sim::CommandLine line;
    line.scenario = scenario;
    return sim::loadScenario(line, [&variables](const char* name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::string() : found->second;
    });
}

void expectFailure(const sim::Result<sim::Scenario>& result, const std::string& text) {
    ASSERT_FALSE(result);
    EXPECT_EQ(result.failure().status, 2);
    EXPECT_EQ(result.failure().text, text);
}

TEST(SimConfiguration, IsTheDefaultWithoutAScenario) {
    const auto scenario = load("", {});
    ASSERT_TRUE(scenario);
    EXPECT_EQ(scenario->settings.speed, 1U);
    EXPECT_FALSE(scenario->settings.idle);
}

TEST(SimConfiguration, ReadsAPathOrANameOfTheFolder) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("seven.scenario", "speed 7");
    folder.write("eight", "speed 8");
    const Variables variables{{"CORVANE_SCENARIO_DIR", folder.path()}};
    EXPECT_EQ(load(path, {})->settings.speed, 7U);
    EXPECT_EQ(load("seven", variables)->settings.speed, 7U);
    EXPECT_EQ(load("seven.scenario", variables)->settings.speed, 7U);
    EXPECT_EQ(load("eight", variables)->settings.speed, 8U);
}

TEST(SimConfiguration, CommandLineBeatsTheEnvironment) {
    const testsupport::TempFolder folder;
    const std::string seven = folder.write("seven", "speed 7"), eight = folder.write("eight", "speed 8");
    EXPECT_EQ(load("", {{"CORVANE_SCENARIO", seven}})->settings.speed, 7U);
    EXPECT_EQ(load(eight, {{"CORVANE_SCENARIO", seven}})->settings.speed, 8U);
}

TEST(SimConfiguration, EnvironmentBeatsTheScenario) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("a", "speed 7\nidle 1s\njournal /a\nlog /b\nblock 64");
    const auto scenario = load(path, {{"CORVANE_SETTINGS", "speed 9; idle 2s; journal /c"},
                                      {"CORVANE_IDLE_SECONDS", "3"},
                                      {"CORVANE_JOURNAL", "/d e;f"},
                                      {"CORVANE_LOG", "/g"}});
    ASSERT_TRUE(scenario);
    EXPECT_EQ(scenario->settings.speed, 9U);
    EXPECT_EQ(scenario->settings.idle, sim::Duration(3s));
    EXPECT_EQ(scenario->settings.journal, "/d e;f");
    EXPECT_EQ(scenario->settings.log, "/g");
    EXPECT_EQ(scenario->settings.pace.blockBytes, 64U);
}

TEST(SimConfiguration, ProblemNamesTheFileTheLineAndWhatWasExpected) {
    const testsupport::TempFolder folder;
    const std::string path = folder.write("bad", "# a scenario\nspeed fast\n");
    expectFailure(load(path, {}), path + ":2:7: expected a factor from 1 to 1000, got 'fast'");
    expectFailure(load("", {{"CORVANE_SETTINGS", "idle 1s; speed fast"}}),
                  "CORVANE_SETTINGS:1:16: expected a factor from 1 to 1000, got 'fast'");
}

TEST(SimConfiguration, IdleSecondsAreAPlainNumber) {
    for (const char* value : {"x", "1s", "-1", "86401"})
        expectFailure(
            load("", {{"CORVANE_IDLE_SECONDS", value}}),
            std::string("CORVANE_IDLE_SECONDS: expected a number of seconds from 0 to 86400, got '") + value + "'");
    EXPECT_EQ(load("", {{"CORVANE_IDLE_SECONDS", "0"}})->settings.idle, sim::Duration(0s));
}

TEST(SimConfiguration, MissingScenarioNamesAllPlaces) {
    const testsupport::TempFolder folder;
    expectFailure(load(folder / "none", {}),
                  "no scenario '" + folder.path() + "/none'; looked for " + folder.path() + "/none");
    expectFailure(load("none-of-this-name", {{"CORVANE_SCENARIO_DIR", folder.path()}}),
                  "no scenario 'none-of-this-name'; looked for " + folder.path() + "/none-of-this-name.scenario, " +
                      folder.path() + "/none-of-this-name, none-of-this-name");
}

TEST(SimConfiguration, ScenarioIsARegularFileOfReasonableSize) {
    const testsupport::TempFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expectFailure(load(pipe, {}), pipe + ": it is not a regular file");
    const std::string large = folder.write("large", "");
    std::filesystem::resize_file(large, 1024 * 1024 + 1);
    expectFailure(load(large, {}), large + ": it is larger than 1048576 bytes");
}

TEST(SimScenarioCandidates, ArePathsOrPlacesForAName) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(sim::scenarioCandidates("./a", "/f"), Names{"./a"});
    EXPECT_EQ(sim::scenarioCandidates("a", "/f"), (Names{"/f/a.scenario", "/f/a", "a"}));
}

TEST(SimProcessEnvironment, IsEmptyForAVariableThatIsNotSet) {
    const testsupport::ScopedEnvironment set("CORVANE_SETTINGS", "speed 2");
    const testsupport::ScopedEnvironment unset("CORVANE_LOG", nullptr);
    EXPECT_EQ(sim::processEnvironment("CORVANE_SETTINGS"), "speed 2");
    EXPECT_EQ(sim::processEnvironment("CORVANE_LOG"), "");
}

}  // namespace
