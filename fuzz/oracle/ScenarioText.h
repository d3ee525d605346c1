#pragma once
/// Scenarios written as text, every setting and both sections in full.

#include <string>

#include "sim/Scenario.h"

namespace fuzz {

std::string written(const sim::Settings& settings);
std::string written(const sim::Scenario& scenario);

/// Whether all numbers are such as the grammar allows.
bool isWithinBounds(const sim::Scenario& scenario);

}  // namespace fuzz
