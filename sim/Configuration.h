#pragma once
/// From command line and environment to the scenario that is played.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "sim/CommandLine.h"
#include "sim/Result.h"
#include "sim/Scenario.h"

namespace sim {

/// Looks up an environment variable; empty when it is not set.
using Environment = std::function<std::string(const char* name)>;

/// The process's own environment.
std::string processEnvironment(const char* name);

/// Largest scenario file.
inline constexpr std::size_t kLargestScenarioBytes = std::size_t{1024} * 1024;

/// Where a scenario called `name` is looked for, in this order: `name` itself when it has a "/"; otherwise `folder`
/// with and without the ending ".scenario", then the current folder. Pure.
std::vector<std::string> scenarioCandidates(const std::string& name, const std::string& folder);

/// The scenario that applies, from strongest to weakest: the variables of a single setting, CORVANE_SETTINGS, the
/// scenario file (of -s, else of CORVANE_SCENARIO), the defaults. A failure has status 2 and names file, line and
/// column.
Result<Scenario> loadScenario(const CommandLine& line, const Environment& environment);

}  // namespace sim
