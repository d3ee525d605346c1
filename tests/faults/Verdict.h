#pragma once
/// Judges a run by how it ended.

#include <string>

#include "tests/faults/Injection.h"
#include "tests/faults/Scenario.h"

namespace faults {

inline constexpr int kWrong = 90;  ///< exit status of a run that found something wrong itself

/// How a run ended.
struct Ending {
    int status = -1;          ///< as waitpid gives it; -1: it did not end in time
    bool terminated = false;  ///< it went on, and got SIGTERM
    std::string said{};       ///< on standard error
    std::string shown{};      ///< on standard output
};

/// What is wrong with a run of `scenario` by `plan` that ended so; "" when nothing is.
std::string verdict(const Scenario& scenario, const Plan& plan, const Tally& tally, const Ending& ending);

}  // namespace faults
