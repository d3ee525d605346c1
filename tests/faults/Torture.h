#pragma once
/// Runs a scenario once for each of its fallible calls, with that call failing.

#include <functional>
#include <ostream>
#include <string>

#include "tests/faults/Injection.h"

namespace faults {

/// Says on standard error what is wrong, for the report of the run, and returns false.
bool wrong(const char* what);

/// Something that is run again and again, each time in a process of its own.
struct Scenario {
    const char* name;
    /// The run. Returns whether all that it was told was true: a success that was none, or something lost, is wrong.
    /// Calls are counted while it runs. May end the process, with status 0 or 1.
    bool (*body)();
    /// Runs beside it in a process that is ended afterwards; null: nothing.
    void (*peer)() = nullptr;
    /// Before both, in the process that starts them; null: nothing.
    void (*prepare)() = nullptr;
    /// A run that goes on after so many milliseconds gets SIGTERM and has to end then; 0: it may not go on.
    int patienceMs = 0;
};

/// For the messages of GoogleTest.
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

/// What a series of runs found.
struct Outcome {
    long calls = 0;  ///< that can fail, in a run without faults
    long runs = 0;   ///< with a fault that was injected
    std::string failures;
};

/// Runs `scenario` without a fault, then for each call n: the n-th fails, and all from the n-th on fail.
Outcome tortureWithErrors(const Scenario& scenario);

/// Runs it once with `plan`.
Outcome runOne(const Scenario& scenario, const Plan& plan);

/// Runs it `runs` times with two faults, short reads and writes, interruptions and delays, drawn from `seed`.
Outcome tortureAtRandom(const Scenario& scenario, long runs, unsigned seed);

}  // namespace faults
