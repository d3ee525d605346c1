#pragma once
/// Runs a scenario once in a process of its own.

#include <sys/types.h>

#include <functional>
#include <string>

#include "tests/faults/Injection.h"
#include "tests/faults/Scenario.h"

namespace faults {

/// Forks; `work` runs in the new process, which ends after it. Returns its id.
pid_t inAProcess(const std::function<void()>& work);

/// All that was written to `file`.
std::string contentOf(int file);

/// Runs `scenario` by `plan`; `tally` lies in memory that forked processes share. Returns what is wrong, with the plan
/// and what the run said, as a line; "" when nothing is.
std::string run(const Scenario& scenario, const Plan& plan, Tally& tally);

}  // namespace faults
