#pragma once
/// Names for clang's thread safety analysis: which lock guards what, and which function takes or gives it. Other
/// compilers see nothing. See "Thread Safety Analysis" in the clang manual.

#if defined(__clang__)
#define THREADFUNC_ATTRIBUTE(x) __attribute__((x))
#else
#define THREADFUNC_ATTRIBUTE(x)
#endif

/// The class is a lock; `name` appears in warnings.
#define CAPABILITY(name) THREADFUNC_ATTRIBUTE(capability(name))
/// The class holds a lock from its construction to its destruction.
#define SCOPED_CAPABILITY THREADFUNC_ATTRIBUTE(scoped_lockable)
/// The data is read and written with the lock held only.
#define GUARDED_BY(lock) THREADFUNC_ATTRIBUTE(guarded_by(lock))
/// The function is called with the lock held.
#define REQUIRES(...) THREADFUNC_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// The function is called without the lock: it takes it itself, or must not run under it.
#define EXCLUDES(...) THREADFUNC_ATTRIBUTE(locks_excluded(__VA_ARGS__))
/// The function takes the lock and returns with it held.
#define ACQUIRE(...) THREADFUNC_ATTRIBUTE(acquire_capability(__VA_ARGS__))
/// The function gives the lock back.
#define RELEASE(...) THREADFUNC_ATTRIBUTE(release_capability(__VA_ARGS__))
/// The function takes the lock when it returns its first argument.
#define TRY_ACQUIRE(...) THREADFUNC_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
/// The analysis leaves the function out; a comment there says why.
#define NO_THREAD_SAFETY_ANALYSIS THREADFUNC_ATTRIBUTE(no_thread_safety_analysis)
