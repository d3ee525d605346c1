#pragma once
/// The built program as a process of its own.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"

namespace simtest {

/// How a process is started beyond its arguments.
struct Surroundings {
    std::vector<std::string> environment;  // NAME=VALUE, on top of nothing
    std::string folder = "/";              // where it starts
    bool standardDescriptors = true;       // false: it starts without 0, 1 and 2
};

/// Starts the program at construction and kills it at destruction unless it was waited for.
class ProgramRun {
public:
    explicit ProgramRun(const std::vector<std::string>& arguments, const Surroundings& surroundings = {});
    ~ProgramRun();
    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;

    pid_t id() const { return child; }
    /// Waits for the end. Returns the exit status, or the negative number of the signal; none at the deadline.
    std::optional<int> wait();
    void signal(int number) const;

    std::string output() const { return testsupport::readFile(folder / "out"); }
    std::string errors() const { return testsupport::readFile(folder / "err"); }

    /// False where the program cannot run, as under emulation without the kernel's help.
    static bool possible();

private:
    testsupport::TempFolder folder;
    pid_t child = -1;
};

/// Waits for the end of any child of this process, as `ProgramRun::wait` does.
std::optional<int> waitForProcess(pid_t process);

}  // namespace simtest
