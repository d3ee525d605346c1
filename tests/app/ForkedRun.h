#pragma once
/// Code that ends the process, run in a process of its own.

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "tests/support/Process.h"

namespace testsupport {

/// Runs a function in a forked process, which ends with its result as `main` does. The test program must have one
/// thread only when it forks: the forked process has no other, and the kit's timer thread is started once per process.
class ForkedRun {
public:
    explicit ForkedRun(const std::function<int()>& body);
    /// Kills the process when it still runs.
    ~ForkedRun();
    ForkedRun(const ForkedRun&) = delete;
    ForkedRun& operator=(const ForkedRun&) = delete;

    pid_t id() const { return process; }
    void send(int signal) const;
    /// True while the process runs.
    bool isRunning();
    /// Waits for the end. Returns the exit status, or minus the signal that ended it; -9 when it did not end in time.
    int wait(std::chrono::milliseconds limit = kDeadline);
    /// What the process has written so far.
    std::string standardOutput() const;
    std::string standardError() const;

private:
    pid_t process = -1;
    int outputFile;
    int errorFile;
    bool ended = false;
    int result = 0;
};

}  // namespace testsupport
