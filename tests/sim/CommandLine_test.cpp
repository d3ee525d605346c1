#include "sim/CommandLine.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

std::variant<sim::CommandLine, std::string> readWords(std::vector<std::string> words) {
    words.insert(words.begin(), "corvane");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return sim::readCommandLine(static_cast<int>(words.size()), arguments.data());
}

sim::CommandLine good(const std::vector<std::string>& words) {
    const auto result = readWords(words);
    if (const auto* wrong = std::get_if<std::string>(&result)) ADD_FAILURE() << *wrong;
    const auto* line = std::get_if<sim::CommandLine>(&result);
    return line == nullptr ? sim::CommandLine() : *line;
}

TEST(SimCommandLine, HasDefaults) {
    const sim::CommandLine line = good({});
    EXPECT_FALSE(line.quiet || line.foreground || line.help);
    EXPECT_EQ(line.interfaceIndex, 0);
    EXPECT_EQ(line.port, 41265);
    EXPECT_EQ(line.scenario, "");
}

TEST(SimCommandLine, TakesTheLaunchCommand) {
    const sim::CommandLine line = good({"-q", "-i", "3", "-p", "41265"});
    EXPECT_TRUE(line.quiet);
    EXPECT_FALSE(line.foreground);
    EXPECT_EQ(line.interfaceIndex, 3);
    EXPECT_EQ(line.port, 41265);
}

TEST(SimCommandLine, TakesAnyInterfaceIndex) {
    EXPECT_EQ(good({"-i", "-1"}).interfaceIndex, -1);
    EXPECT_EQ(good({"-i", "2147483647"}).interfaceIndex, INT_MAX);
    EXPECT_EQ(good({"-i", "-2147483648"}).interfaceIndex, INT_MIN);
}

TEST(SimCommandLine, TakesAnyPort) {
    EXPECT_EQ(good({"-p", "1"}).port, 1);
    EXPECT_EQ(good({"-p65535"}).port, 65535);
}

TEST(SimCommandLine, StaysInTheForegroundWithAScenario) {
    const sim::CommandLine line = good({"-f", "-s", "erase-timeout"});
    EXPECT_TRUE(line.foreground);
    EXPECT_EQ(line.scenario, "erase-timeout");
}

TEST(SimCommandLine, LooksAtNothingBehindHelp) { EXPECT_TRUE(good({"-q", "-h", "-p", "no", "rest"}).help); }

struct BadWords {
    const char* why;
    std::vector<std::string> words;
    const char* problem;
};
class SimBadCommandLine : public testing::TestWithParam<BadWords> {};
TEST_P(SimBadCommandLine, SaysWhatIsWrong) {
    const auto result = readWords(GetParam().words);
    const auto* wrong = std::get_if<std::string>(&result);
    ASSERT_NE(wrong, nullptr);
    EXPECT_EQ(*wrong, GetParam().problem);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SimBadCommandLine,
    testing::Values(
        BadWords{"unknownOption", {"-x"}, "unknown option -x"}, BadWords{"questionMark", {"-?"}, "unknown option -?"},
        BadWords{"helpBehindAnError", {"-x", "-h"}, "unknown option -x"},
        BadWords{"portMissing", {"-p"}, "-p needs a value"},
        BadWords{"interfaceMissing", {"-q", "-i"}, "-i needs a value"},
        BadWords{"scenarioMissing", {"-s"}, "-s needs a value"},
        BadWords{"scenarioEmpty", {"-s", ""}, "-s needs a scenario, got ''"},
        BadWords{"portZero", {"-p", "0"}, "-p needs a port from 1 to 65535, got '0'"},
        BadWords{"portTooLarge", {"-p", "65536"}, "-p needs a port from 1 to 65535, got '65536'"},
        BadWords{"portBeyondAllNumbers", {"-p", "99999999999"}, "-p needs a port from 1 to 65535, got '99999999999'"},
        BadWords{"portNegative", {"-p", "-5"}, "-p needs a port from 1 to 65535, got '-5'"},
        BadWords{"portWithLetters", {"-p", "12x"}, "-p needs a port from 1 to 65535, got '12x'"},
        BadWords{"portEmpty", {"-p", ""}, "-p needs a port from 1 to 65535, got ''"},
        BadWords{"portWithABlank", {"-p", " 80"}, "-p needs a port from 1 to 65535, got ' 80'"},
        BadWords{"interfaceWithLetters", {"-i", "can0"}, "-i needs an interface index, got 'can0'"},
        BadWords{"interfaceTooLarge", {"-i", "2147483648"}, "-i needs an interface index, got '2147483648'"},
        BadWords{"operand", {"-q", "more"}, "unexpected operand 'more'"},
        BadWords{"operandBehindTheEndOfOptions", {"--", "-q"}, "unexpected operand '-q'"},
        BadWords{"optionBehindAnOperand", {"more", "-h"}, "unexpected operand 'more'"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(SimUsage, NamesTheProgramEachOptionAndEachVariable) {
    const std::string usage = sim::usageText("/opt/corvane");
    EXPECT_EQ(usage.substr(0, 19), "Usage: /opt/corvane");
    for (const char* word :
         {"-q ", "-f ", "-i INTERFACE", "-p PORT", "-s SCENARIO", "-h ", "CORVANE_SCENARIO ", "CORVANE_SCENARIO_DIR",
          "CORVANE_SETTINGS", "CORVANE_IDLE_SECONDS", "CORVANE_JOURNAL", "CORVANE_LOG"})
        EXPECT_NE(usage.find(word), std::string::npos) << word;
    EXPECT_EQ(usage.back(), '\n');
}

}  // namespace
