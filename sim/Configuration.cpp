#include "sim/Configuration.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>

#include <unistd.h>

#include "sim/HexFile.h"
#include "sim/Log.h"
#include "sim/ScenarioParser.h"

namespace sim {

namespace {

constexpr int kUsageStatus = 2;
constexpr std::uint32_t kMostIdleSeconds = 86400;

Failure problemIn(const std::string& source, const ScenarioProblem& problem) {
    return {kUsageStatus, source + ":" + std::to_string(problem.line) + ":" + std::to_string(problem.column) +
                              ": expected " + problem.expected + ", got " + problem.got};
}

/// Folder of the ready scenarios when the environment names none: beside the folder of the running program.
std::string installedFolder() {
    char buffer[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", buffer, sizeof buffer);
    const std::string program(buffer, size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::size_t slash = program.rfind('/');
    return (slash == std::string::npos ? "." : program.substr(0, slash)) + "/../share/corvane/scenarios";
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text.append(text.empty() ? "" : ", ").append(name);
    return text;
}

Result<Scenario> readScenarioFile(const std::string& name, const std::string& folder) {
    const std::vector<std::string> candidates = scenarioCandidates(name, folder);
    for (const std::string& path : candidates) {
        const Result<std::string> text = readRegularFile(path, kLargestScenarioBytes);
        const bool missing = !text && (text.failure().status == ENOENT || text.failure().status == ENOTDIR);
        if (missing) continue;
        if (!text) return Failure{kUsageStatus, path + ": " + text.failure().text};
        auto parsed = parseScenario(*text);
        if (const auto* problem = std::get_if<ScenarioProblem>(&parsed)) return problemIn(path, *problem);
        return std::get<Scenario>(std::move(parsed));
    }
    return Failure{kUsageStatus, "no scenario '" + name + "'; looked for " + joined(candidates)};
}

/// A variable that is one setting. Its value is taken as it is: paths may hold any letters.
struct VariableRow {
    const char* name;
    bool (*store)(const std::string& value, Settings& settings);
    const char* expected;
};

bool storeIdle(const std::string& value, Settings& settings) {
    std::uint32_t seconds = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
    if (error != std::errc() || end != value.data() + value.size() || seconds > kMostIdleSeconds) return false;
    settings.idle = std::chrono::seconds(seconds);
    return true;
}

constexpr std::array kVariables{
    VariableRow{"CORVANE_IDLE_SECONDS", storeIdle, "a number of seconds from 0 to 86400"},
    VariableRow{"CORVANE_JOURNAL", [](const std::string& v, Settings& s) { return s.journal = v, true; }, "a path"},
    VariableRow{"CORVANE_LOG", [](const std::string& v, Settings& s) { return s.log = v, true; }, "a path"},
};

std::optional<Failure> applyEnvironment(const Environment& environment, Settings& settings) {
    if (const auto problem = parseSettings(environment("CORVANE_SETTINGS"), settings))
        return problemIn("CORVANE_SETTINGS", *problem);
    for (const VariableRow& row : kVariables) {
        const std::string value = environment(row.name);
        if (!value.empty() && !row.store(value, settings))
            return Failure{kUsageStatus,
                           std::string(row.name) + ": expected " + row.expected + ", got '" + value + "'"};
    }
    return std::nullopt;
}

}  // namespace

std::string processEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::vector<std::string> scenarioCandidates(const std::string& name, const std::string& folder) {
    if (name.find('/') != std::string::npos) return {name};
    return {folder + "/" + name + ".scenario", folder + "/" + name, name};
}

Result<Scenario> loadScenario(const CommandLine& line, const Environment& environment) {
    const std::string folder = environment("CORVANE_SCENARIO_DIR");
    const std::string name = line.scenario.empty() ? environment("CORVANE_SCENARIO") : line.scenario;
    Result<Scenario> scenario = name.empty() ? Result<Scenario>(Scenario())
                                             : readScenarioFile(name, folder.empty() ? installedFolder() : folder);
    if (!scenario) return scenario;
    if (auto failure = applyEnvironment(environment, scenario->settings)) return *failure;
    return scenario;
}

}  // namespace sim
