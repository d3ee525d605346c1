#pragma once
/// System calls of the client that the tests watch or answer, by the linker's --wrap.

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

/// Records system, sync and connect while it lives. One object at a time.
class RecordedCalls {
public:
    RecordedCalls();
    ~RecordedCalls();
    RecordedCalls(const RecordedCalls&) = delete;
    RecordedCalls& operator=(const RecordedCalls&) = delete;

    /// Answers the calls of system; unset: the real one does. sync never goes to the disks while the object lives.
    std::function<int(const char* command)> onSystem;

    /// The calls so far: "connect", "sync", "system: " and the command.
    std::vector<std::string> calls() const;
    /// How many of them are `call`.
    int count(const std::string& call) const;
};

}  // namespace testsupport
