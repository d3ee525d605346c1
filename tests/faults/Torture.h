#pragma once
/// Runs a scenario once for each of its fallible calls, with that call failing.

#include <string>

#include "tests/faults/Injection.h"
#include "tests/faults/Scenario.h"

namespace faults {

/// What a series of runs found.
struct Outcome {
    long calls = 0;    ///< that can fail, in a run without faults
    long planned = 0;  ///< runs that were asked for
    long runs = 0;     ///< of these, in how many a fault was injected
    long faults = 0;   ///< that were injected in them
    std::string failures;

    /// Threads make the number of calls differ: the last ones are not always reached.
    bool reachedNearlyAll() const { return runs * 10 >= planned * 9; }
};

/// Runs `scenario` without a fault, then for each call n: the n-th fails, and all from the n-th on fail.
Outcome tortureWithErrors(const Scenario& scenario);

/// Runs it once with `plan`, again when its call is not reached, three times at most.
Outcome runOne(const Scenario& scenario, const Plan& plan);

/// Runs it `runs` times with two faults, short reads and writes, interruptions and delays, drawn from `seed`.
Outcome tortureAtRandom(const Scenario& scenario, long runs, unsigned seed);

}  // namespace faults
