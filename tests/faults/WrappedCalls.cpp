// The calls that can be made to fail, each with what it returns and sets then. CMakeLists.txt has the same list.

#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "tests/faults/Injection.h"

// NOLINTBEGIN(bugprone-reserved-identifier, cppcoreguidelines-macro-usage): the linker prescribes these names.

// RESULT NAME(PARAMETERS), called as NAME(ARGUMENTS); FAILED and ERROR are its result and errno when it fails.
#define FALLIBLE(RESULT, NAME, PARAMETERS, ARGUMENTS, FAILED, ERROR)                                          \
    extern "C" RESULT __real_##NAME PARAMETERS;                                                               \
    extern "C" RESULT __wrap_##NAME PARAMETERS;                                                               \
    extern "C" RESULT __wrap_##NAME PARAMETERS {                                                              \
        if (faults::next(#NAME, faults::Trait::none) != faults::Action::fail) return __real_##NAME ARGUMENTS; \
        errno = ERROR;                                                                                        \
        return FAILED;                                                                                        \
    }

// The same for a call that does its work even when it fails: nothing is leaked by that.
#define FAILS_AFTER_ALL(NAME, PARAMETERS, ARGUMENTS, ERROR)                                  \
    extern "C" int __real_##NAME PARAMETERS;                                                 \
    extern "C" int __wrap_##NAME PARAMETERS;                                                 \
    extern "C" int __wrap_##NAME PARAMETERS {                                                \
        const bool fails = faults::next(#NAME, faults::Trait::none) == faults::Action::fail; \
        const int result = __real_##NAME ARGUMENTS;                                          \
        if (!fails) return result;                                                           \
        errno = ERROR;                                                                       \
        return -1;                                                                           \
    }

// A call that moves SIZE bytes, or waits, or both.
#define MOVING(NAME, TRAIT, PARAMETERS, ARGUMENTS, SIZE, ERROR)                      \
    extern "C" ssize_t __real_##NAME PARAMETERS;                                     \
    extern "C" ssize_t __wrap_##NAME PARAMETERS;                                     \
    extern "C" ssize_t __wrap_##NAME PARAMETERS {                                    \
        const faults::Action action = faults::next(#NAME, faults::Trait::TRAIT);     \
        if (action == faults::Action::fail || action == faults::Action::interrupt) { \
            errno = action == faults::Action::fail ? ERROR : EINTR;                  \
            return -1;                                                               \
        }                                                                            \
        if (action == faults::Action::moveOneByte && SIZE > 1) SIZE = 1;             \
        return __real_##NAME ARGUMENTS;                                              \
    }

#define WAITING(NAME, PARAMETERS, ARGUMENTS, ERROR)                              \
    extern "C" int __real_##NAME PARAMETERS;                                     \
    extern "C" int __wrap_##NAME PARAMETERS;                                     \
    extern "C" int __wrap_##NAME PARAMETERS {                                    \
        const faults::Action action = faults::next(#NAME, faults::Trait::waits); \
        if (action == faults::Action::goOn) return __real_##NAME ARGUMENTS;      \
        errno = action == faults::Action::fail ? ERROR : EINTR;                  \
        return -1;                                                               \
    }

// Threads and locks: the result is the error number.
FALLIBLE(int, pthread_create, (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p), (t, a, f, p),
         EAGAIN, 0)
FALLIBLE(int, pthread_attr_init, (pthread_attr_t * a), (a), ENOMEM, 0)
FALLIBLE(int, pthread_attr_setstacksize, (pthread_attr_t * a, size_t s), (a, s), EINVAL, 0)
FALLIBLE(int, sched_setscheduler, (pid_t p, int y, const sched_param* s), (p, y, s), -1, EPERM)
FALLIBLE(int, sched_getparam, (pid_t p, sched_param* s), (p, s), -1, EPERM)
FALLIBLE(int, sigaction, (int n, const struct sigaction* a, struct sigaction* o), (n, a, o), -1, EINVAL)
FALLIBLE(int, getrusage, (__rusage_who_t w, rusage* u), (w, u), -1, EINVAL)
FALLIBLE(int, settimeofday, (const timeval* t, const struct timezone* z), (t, z), -1, EPERM)
FALLIBLE(tm*, localtime_r, (const time_t* t, tm* b), (t, b), nullptr, EOVERFLOW)
FALLIBLE(tm*, gmtime_r, (const time_t* t, tm* b), (t, b), nullptr, EOVERFLOW)

extern "C" int __real_sem_wait(sem_t* semaphore);
extern "C" int __wrap_sem_wait(sem_t* semaphore);
extern "C" int __wrap_sem_wait(sem_t* semaphore) {
    if (faults::next("sem_wait", faults::Trait::onlyWaits) == faults::Action::goOn) return __real_sem_wait(semaphore);
    errno = EINTR;
    return -1;
}

extern "C" int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest);
extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest);
extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    const faults::Action action = faults::next("clock_nanosleep", faults::Trait::onlyWaits);
    return action == faults::Action::goOn ? __real_clock_nanosleep(clock, flags, time, rest) : EINTR;
}

// Sockets. A shutdown fails on a connection that is gone already.
FALLIBLE(int, getaddrinfo, (const char* h, const char* s, const addrinfo* i, addrinfo** a), (h, s, i, a), EAI_MEMORY, 0)
FALLIBLE(int, socket, (int d, int t, int p), (d, t, p), -1, EMFILE)
FALLIBLE(int, connect, (int s, const sockaddr* a, socklen_t l), (s, a, l), -1, ECONNREFUSED)
FALLIBLE(int, getsockopt, (int s, int l, int o, void* v, socklen_t* n), (s, l, o, v, n), -1, ENOBUFS)
FALLIBLE(int, getsockname, (int s, sockaddr* a, socklen_t* l), (s, a, l), -1, ENOBUFS)
FALLIBLE(int, getpeername, (int s, sockaddr* a, socklen_t* l), (s, a, l), -1, ENOTCONN)
FAILS_AFTER_ALL(shutdown, (int s, int h), (s, h), ENOTCONN)
MOVING(recv, countsAndWaits, (int s, void* b, size_t n, int f), (s, b, n, f), n, ECONNRESET)
MOVING(send, sends, (int s, const void* b, size_t n, int f), (s, b, n, f), n, EPIPE)
WAITING(poll, (pollfd * p, nfds_t n, int t), (p, n, t), ENOMEM)

// Descriptors and files.
FALLIBLE(int, pipe2, (int* p, int f), (p, f), -1, EMFILE)
FALLIBLE(int, fcntl64, (int d, int c, long a), (d, c, a), -1, EBADF)
FALLIBLE(int, open64, (const char* p, int f, mode_t m), (p, f, m), -1, EMFILE)
FALLIBLE(int, openat64, (int d, const char* p, int f, mode_t m), (d, p, f, m), -1, EMFILE)
FALLIBLE(FILE*, fopen64, (const char* p, const char* m), (p, m), nullptr, EMFILE)
FALLIBLE(DIR*, fdopendir, (int d), (d), nullptr, ENOMEM)
FALLIBLE(dirent64*, readdir64, (DIR * d), (d), nullptr, EIO)
FALLIBLE(int, stat64, (const char* p, struct stat64* s), (p, s), -1, EIO)
FALLIBLE(int, lstat64, (const char* p, struct stat64* s), (p, s), -1, EIO)
FALLIBLE(int, fstat64, (int d, struct stat64* s), (d, s), -1, EIO)
FALLIBLE(int, statx, (int d, const char* p, int f, unsigned m, struct statx* s), (d, p, f, m, s), -1, EIO)
FALLIBLE(int, statvfs64, (const char* p, struct statvfs64* s), (p, s), -1, EIO)
FALLIBLE(int, fsync, (int d), (d), -1, EIO)
FALLIBLE(int, ftruncate64, (int d, off64_t l), (d, l), -1, EIO)
FALLIBLE(off64_t, lseek64, (int d, off64_t o, int w), (d, o, w), -1, EOVERFLOW)
FALLIBLE(int, mkdir, (const char* p, mode_t m), (p, m), -1, ENOSPC)
FALLIBLE(int, mkdirat, (int d, const char* p, mode_t m), (d, p, m), -1, ENOSPC)
FALLIBLE(char*, mkdtemp, (char* p), (p), nullptr, ENOSPC)
FALLIBLE(int, rmdir, (const char* p), (p), -1, EBUSY)
FALLIBLE(int, unlink, (const char* p), (p), -1, EBUSY)
FALLIBLE(int, unlinkat, (int d, const char* p, int f), (d, p, f), -1, EBUSY)
FALLIBLE(int, remove, (const char* p), (p), -1, EBUSY)
FALLIBLE(int, rename, (const char* a, const char* b), (a, b), -1, EIO)
FALLIBLE(int, chmod, (const char* p, mode_t m), (p, m), -1, EPERM)
FALLIBLE(int, chdir, (const char* p), (p), -1, EACCES)
FALLIBLE(char*, getcwd, (char* b, size_t n), (b, n), nullptr, ENOENT)
FALLIBLE(char*, realpath, (const char* p, char* r), (p, r), nullptr, EIO)
FALLIBLE(int, glob64, (const char* p, int f, int (*e)(const char*, int), glob64_t* g), (p, f, e, g), GLOB_NOSPACE, 0)
FALLIBLE(int, getpwuid_r, (uid_t u, passwd* p, char* b, size_t n, passwd** r), (u, p, b, n, r), EIO, 0)
FAILS_AFTER_ALL(close, (int d), (d), EIO)
FAILS_AFTER_ALL(closedir, (DIR * d), (d), EIO)
MOVING(read, countsAndWaits, (int d, void* b, size_t n), (d, b, n), n, EIO)
MOVING(write, countsAndWaits, (int d, const void* b, size_t n), (d, b, n), n, ENOSPC)

extern "C" int __wrap_system(const char* command);
extern "C" int __wrap_system(const char* command) {
    if (faults::next("system", faults::Trait::none) == faults::Action::fail) {
        errno = EAGAIN;
        return -1;
    }
    const faults::Pause notOurs;
    return faults::onSystem == nullptr ? -1 : faults::onSystem(command);
}

// Nothing can fail in it, and the disks of the machine are not the test's.
extern "C" void __wrap_sync();
extern "C" void __wrap_sync() {}

// NOLINTEND(bugprone-reserved-identifier, cppcoreguidelines-macro-usage)
