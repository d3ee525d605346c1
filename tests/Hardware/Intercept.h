#pragma once
/// System calls of the client that the tests watch or answer, by the linker's --wrap.

#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

/// One call of `ThreadCreate`.
struct ThreadRequest {
    int priority;
    unsigned stackSize;
    std::string originFile;  // empty for none
    int originLine;

    bool operator==(const ThreadRequest&) const = default;
};

/// Records system, sync and connect, and notices recv and send, while it lives. One object at a time.
class RecordedCalls {
public:
    RecordedCalls();
    ~RecordedCalls();
    RecordedCalls(const RecordedCalls&) = delete;
    RecordedCalls& operator=(const RecordedCalls&) = delete;

    /// Answers the calls of system; unset: the real one does. sync never goes to the disks while the object lives.
    std::function<int(const char* command)> onSystem;
    /// Runs in each call of sync.
    std::function<void()> onSync;
    /// Runs in front of each connect, recv and send of any thread but the one that made the object. Set while no other
    /// thread calls; whoever calls ends before the object.
    std::function<void()> onCall;
    /// Asked for each thread that is to be started; false lets it not start.
    std::function<bool(const ThreadRequest&)> mayCreate;

    /// Asked by whoever looks for a unit of a semaphore without waiting; false lets it find none. Set while no other
    /// thread calls.
    std::function<bool()> mayTake;

    /// The calls so far: "connect", "sync", "system: " and the command.
    std::vector<std::string> calls() const;
    /// How many of them are `call`.
    int count(const std::string& call) const;

    /// Runs `onCall` when it is due.
    void notice() const;

private:
    const pthread_t maker = pthread_self();
};

}  // namespace testsupport
