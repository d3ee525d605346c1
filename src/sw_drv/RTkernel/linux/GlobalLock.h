#pragma once
/// One recursive lock for the whole process, for state too small for a lock of its own.

namespace threadfunc {

/// Waits for the process-wide lock and takes it. A thread may take it again and releases it as often. Returns 0, or
/// the error number of pthread_mutex_lock. Safe from any thread, also as the first call; not from a signal handler
/// that may interrupt a call on its own thread.
int globalLock();

/// Releases one `globalLock` of the calling thread. Returns 0, or the error number of pthread_mutex_unlock.
int globalUnlock();

}  // namespace threadfunc
