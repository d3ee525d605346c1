#pragma once
/// Measures the processor time that the process uses.

#include <sys/resource.h>

namespace threadfunc {

/// All threads of the process together. Not for several threads at once.
class CpuMeter {
public:
    /// Starts, or starts over, at 0.
    void start();
    /// Stops; `seconds` stands still.
    void stop();
    /// Processor seconds from the start until now while running, else until the stop. `kind` 0: in the program,
    /// 1: in the system, 2: both. Any other kind gives -1.
    double seconds(int kind) const;
    /// `seconds` in whole milliseconds, cut towards zero and to the range of int; -1000 for an unknown kind.
    int milliseconds(int kind) const;

private:
    bool running = false;
    rusage startUsage{};
    rusage stopUsage{};
};

}  // namespace threadfunc
