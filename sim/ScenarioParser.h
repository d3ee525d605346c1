#pragma once
/// From scenario text to a scenario. The grammar stands in docs/simulator.md. Pure.

#include <optional>
#include <string_view>
#include <variant>

#include "sim/Scenario.h"
#include "sim/ScenarioWords.h"

namespace sim {

/// Most steps that a sequence may have, its repetitions counted.
inline constexpr std::size_t kMostSteps = 100'000;

/// Reads a whole scenario.
std::variant<Scenario, ScenarioProblem> parseScenario(std::string_view text);

/// Reads text that holds settings alone, onto those that `settings` has already; each may stand once in the text.
std::optional<ScenarioProblem> parseSettings(std::string_view text, Settings& settings);

}  // namespace sim
