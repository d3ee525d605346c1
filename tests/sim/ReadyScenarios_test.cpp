#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "sim/ScenarioParser.h"
#include "sim/ScenarioSettings.h"
#include "sim/ScenarioSteps.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

std::set<std::string> readyScenarios() {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(CORVANE_SCENARIO_FOLDER)) {
        EXPECT_EQ(entry.path().extension(), ".scenario") << entry.path();
        names.insert(entry.path().stem());
    }
    return names;
}

std::string textOf(const std::string& name) {
    return testsupport::readFile(std::string(CORVANE_SCENARIO_FOLDER) + "/" + name + ".scenario");
}

TEST(ReadyScenarios, CoverWhatGoesRightAndEachFault) {
    EXPECT_EQ(readyScenarios(), (std::set<std::string>{"burst",
                                                       "close-at-40",
                                                       "coalesced",
                                                       "device-not-found",
                                                       "dies",
                                                       "erase-timeout",
                                                       "fast",
                                                       "half-packet",
                                                       "listens-late",
                                                       "listens-too-late",
                                                       "locked",
                                                       "normal",
                                                       "offset-12",
                                                       "refuses",
                                                       "refuses-start",
                                                       "reset-at-40",
                                                       "response-timeout",
                                                       "silence",
                                                       "silence-at-40",
                                                       "split",
                                                       "unknown-command",
                                                       "unknown-state"}));
}

TEST(ReadyScenarios, AreWellFormed) {
    for (const std::string& name : readyScenarios()) {
        const auto result = sim::parseScenario(textOf(name));
        const auto* problem = std::get_if<sim::ScenarioProblem>(&result);
        EXPECT_EQ(problem, nullptr) << name << ":" << problem->line << ": expected " << problem->expected;
    }
}

TEST(ReadyScenarios, SayFirstWhatTheTechnicianSees) {
    for (const std::string& name : readyScenarios()) {
        const std::string text = textOf(name);
        EXPECT_EQ(text.substr(0, 2), "# ") << name;
        EXPECT_NE(text.find("# The technician sees: "), std::string::npos) << name;
    }
}

std::vector<std::string> listed(const std::string& names) {
    std::istringstream words(names);
    std::vector<std::string> list;
    for (std::string word; std::getline(words >> std::ws, word, ',');) list.push_back(word);
    return list;
}

TEST(SimulatorPage, NamesEachReadyScenarioSettingAndStep) {
    const std::string page = testsupport::readFile(CORVANE_PAGE);
    for (const std::string& name : readyScenarios()) EXPECT_NE(page.find("`" + name + "`"), std::string::npos) << name;
    for (const std::string& name : listed(sim::settingNames()))
        EXPECT_NE(page.find("\"" + name + "\" ,"), std::string::npos) << name;
    for (const std::string& name : listed(sim::stepNames()))
        EXPECT_NE(page.find("\"" + name + "\""), std::string::npos) << name;
}

TEST(ReadyScenarios, BurstHasMoreReportsThanAnyQueueOfTheFlasher) {
    const auto scenario = std::get<sim::Scenario>(sim::parseScenario(textOf("burst")));
    EXPECT_GT(scenario.onUpload.size(), 600U);
}

}  // namespace
