#pragma once
/// Something that is run again and again with failing calls.

#include <ostream>
#include <span>
#include <string_view>

namespace faults {

/// A scenario and what its runs may do.
struct Scenario {
    const char* name;
    /// The run. Calls are counted while it runs. May end the process, with status 0 or 1.
    void (*body)();
    /// Runs beside it in a process that is ended afterwards; null: nothing.
    void (*peer)() = nullptr;
    /// Before both, in the process that starts them; null: nothing.
    void (*prepare)() = nullptr;
    /// A run in which a call failed and that goes on after so many milliseconds gets SIGTERM and has to end then; 0: it
    /// may not go on. All others have to end by themselves.
    int patienceMs = 0;
    /// It starts the timer thread, which never ends: that thread and the two ends of its pipe may be left.
    bool timers = false;
    /// What is on standard output when it ends with status 0 by itself; null: whatever.
    const char* shows = nullptr;
    /// One of these is on standard error when it ends with status 1; empty: whatever.
    std::span<const std::string_view> says{};
};

/// For the messages of GoogleTest.
inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

/// The run told something untrue or lost something. Says `what` on standard error, for the report of the run.
void wrong(const char* what);
/// True when something was.
bool isWrong();
/// `wrong` unless `holds`.
void must(bool holds, const char* what);

/// Returns `succeeded`. A refusal before any call has failed is wrong.
bool done(bool succeeded, const char* what);
/// The same for an operation that leaves short counts and interruptions to its caller.
bool tried(bool succeeded, const char* what);

/// Not a call of the run.
void pauseOneMillisecond();

/// The run may leave the thread that it begins with, the descriptors that are open now, and with `timers` the timer
/// thread and its pipe.
void allowLeftovers(bool timers);
/// Looks for threads, descriptors and memory that the run must not leave; what is there is wrong. Called after each
/// body that returns; a body that ends the process calls it before.
void lookForLeftovers();

}  // namespace faults
