#pragma once
/// The kit's counting semaphore: an unnamed POSIX semaphore, in an object.

#include <semaphore.h>

#include <memory>

namespace threadfunc {

/// Shared between the threads of one process by reference; created and destroyed by one owner while nobody else uses
/// it. Post and wait order memory: what was written before the post is seen after the wait.
class semaphore {
public:
    /// Starts with `value` units; values above SEM_VALUE_MAX (2147483647) count as that.
    explicit semaphore(unsigned value);
    virtual ~semaphore();
    semaphore(const semaphore&) = delete;
    semaphore& operator=(const semaphore&) = delete;

    /// Waits for a unit and takes it; signals do not end the wait. On an error of the system it prints one line on
    /// standard output and returns as if it had a unit.
    void wait();
    /// Takes a unit if there is one. Returns at once: true exactly when a unit was taken.
    [[nodiscard]] bool tryWait();
    /// Adds a unit. Returns 0, or -1 with errno set when the count is at its maximum. Never waits.
    int post();
    /// Units there are now; another thread may have changed that already.
    int value() const;

private:
    std::unique_ptr<sem_t> handle;
};

}  // namespace threadfunc
