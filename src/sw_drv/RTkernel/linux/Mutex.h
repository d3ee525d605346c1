#pragma once
/// The kit's lock: a POSIX mutex of the default kind, in an object.

#include <pthread.h>

#include <memory>

#include "sw_drv/RTkernel/linux/ThreadAnnotations.h"

namespace threadfunc {

/// Not recursive: a thread that locks twice waits for itself for ever. The thread that locked unlocks. Shared between
/// threads by reference; created and destroyed by one owner while nobody else uses it.
class CAPABILITY("mutex") mutex {
public:
    mutex();
    virtual ~mutex();
    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

    /// Waits until the lock is free and takes it. Returns 0, or the error number of pthread_mutex_lock.
    int lock() ACQUIRE();
    /// Takes the lock if it is free. Returns at once: true when it was taken, false when it is held or on an error.
    [[nodiscard]] bool tryLock() TRY_ACQUIRE(true);
    /// Gives the lock back. Returns 0, or the error number of pthread_mutex_unlock.
    int unlock() RELEASE();

private:
    /// Null when there was no memory; all operations fail then, with ENOMEM.
    std::unique_ptr<pthread_mutex_t> handle;
};

/// Holds a mutex for the life of the object.
class SCOPED_CAPABILITY MutexLock {
public:
    /// Waits for `lock` and borrows it.
    explicit MutexLock(mutex& lock) ACQUIRE(lock) : held(lock) { held.lock(); }
    ~MutexLock() RELEASE() { held.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    mutex& held;
};

}  // namespace threadfunc
