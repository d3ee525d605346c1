#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/time.h>

#include <cerrno>
#include <ctime>
#include <new>

namespace injected {

void Call::fail(int errorNumber, int times) {
    left = 0;
    error = errorNumber;
    count = 0;
    left = times;
}

int Call::next() {
    ++count;
    int before = left;
    while (before > 0 && !left.compare_exchange_weak(before, before - 1)) {
    }
    return before > 0 ? error.load() : 0;
}

Call attributesInit;
Call attributesStackSize;
Call attributesDestroy;
Call threadCreate;
Call signalAction;
Call setScheduler;
Call getParam;
Call nanosleep;
Call semaphoreWait;
Call mutexAttributesInit;
Call mutexAttributesType;
Call mutexInit;
Call pipeOpen;
Call pollWait;
Call byteWrite;
Call newNothrow;
Call newThrowing;
Call setTime;
CreateArguments lastCreate{};
SetTimeArguments lastSetTime{};
std::atomic<long long> monotonicAheadMs{0};

}  // namespace injected

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
// Where times have 64 bits and `long` has 32, the C library has names of their own for them.
#if defined(__LP64__)
#define TIME_CALL(plain, wide) plain
#define OPERATOR_NEW _Znwm
#define OPERATOR_NEW_NOTHROW _ZnwmRKSt9nothrow_t
#else
#define TIME_CALL(plain, wide) wide
#define OPERATOR_NEW _Znwj
#define OPERATOR_NEW_NOTHROW _ZnwjRKSt9nothrow_t
#endif
#define JOINED(a, b) a##b
#define EXPANDED(a, b) JOINED(a, b)
#define WRAP(name) EXPANDED(__wrap_, name)
#define REAL(name) EXPANDED(__real_, name)

namespace {

// For calls that return an error number.
template <typename Real>
int errorOr(injected::Call& call, const Real& real) {
    const int error = call.next();
    return error != 0 ? error : real();
}

// For calls that return -1 and set errno.
template <typename Real>
int failureOr(injected::Call& call, const Real& real) {
    const int error = call.next();
    if (error == 0) return static_cast<int>(real());
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

int __real_pthread_attr_init(pthread_attr_t*);
int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    return errorOr(injected::attributesInit, [=] { return __real_pthread_attr_init(attributes); });
}

int __real_pthread_attr_setstacksize(pthread_attr_t*, std::size_t);
int __wrap_pthread_attr_setstacksize(pthread_attr_t* attributes, std::size_t bytes) {
    return errorOr(injected::attributesStackSize, [=] { return __real_pthread_attr_setstacksize(attributes, bytes); });
}

int __real_pthread_attr_destroy(pthread_attr_t*);
int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
    return errorOr(injected::attributesDestroy, [=] { return __real_pthread_attr_destroy(attributes); });
}

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    pthread_sigmask(SIG_SETMASK, nullptr, &injected::lastCreate.creatorsMask);
    if (attributes != nullptr) {
        pthread_attr_getstacksize(attributes, &injected::lastCreate.stackBytes);
        pthread_attr_getinheritsched(attributes, &injected::lastCreate.inheritScheduling);
    }
    return errorOr(injected::threadCreate, [=] { return __real_pthread_create(thread, attributes, body, argument); });
}

int __real_sigaction(int, const struct sigaction*, struct sigaction*);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* previous) {
    return failureOr(injected::signalAction, [=] { return __real_sigaction(signal, action, previous); });
}

int __real_sched_setscheduler(pid_t, int, const sched_param*);
int __wrap_sched_setscheduler(pid_t process, int policy, const sched_param* parameters) {
    return failureOr(injected::setScheduler, [=] { return __real_sched_setscheduler(process, policy, parameters); });
}

int __real_sched_getparam(pid_t, sched_param*);
int __wrap_sched_getparam(pid_t process, sched_param* parameters) {
    return failureOr(injected::getParam, [=] { return __real_sched_getparam(process, parameters); });
}

#define NANOSLEEP TIME_CALL(clock_nanosleep, __clock_nanosleep_time64)
int REAL(NANOSLEEP)(clockid_t, int, const timespec*, timespec*);
int WRAP(NANOSLEEP)(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    return errorOr(injected::nanosleep, [=] { return REAL(NANOSLEEP)(clock, flags, time, rest); });
}

#define GETTIME TIME_CALL(clock_gettime, __clock_gettime64)
int REAL(GETTIME)(clockid_t, timespec*);
int WRAP(GETTIME)(clockid_t clock, timespec* time) {
    const int result = REAL(GETTIME)(clock, time);
    const long long aheadMs = clock == CLOCK_MONOTONIC ? injected::monotonicAheadMs.load() : 0;
    time->tv_sec += aheadMs / 1000;
    return result;
}

#define SETTIME TIME_CALL(settimeofday, __settimeofday64)
int WRAP(SETTIME)(const timeval* time, const struct timezone* /*zone*/) {
    injected::lastSetTime = {time->tv_sec, time->tv_usec};
    return failureOr(injected::setTime, [] { return 0; });
}

int __real_sem_wait(sem_t*);
int __wrap_sem_wait(sem_t* semaphore) {
    return failureOr(injected::semaphoreWait, [=] { return __real_sem_wait(semaphore); });
}

int __real_pthread_mutexattr_init(pthread_mutexattr_t*);
int __wrap_pthread_mutexattr_init(pthread_mutexattr_t* attributes) {
    return errorOr(injected::mutexAttributesInit, [=] { return __real_pthread_mutexattr_init(attributes); });
}

int __real_pthread_mutexattr_settype(pthread_mutexattr_t*, int);
int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t* attributes, int type) {
    return errorOr(injected::mutexAttributesType, [=] { return __real_pthread_mutexattr_settype(attributes, type); });
}

int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return errorOr(injected::mutexInit, [=] { return __real_pthread_mutex_init(mutex, attributes); });
}

int __real_pipe2(int*, int);
int __wrap_pipe2(int* ends, int flags) {
    return failureOr(injected::pipeOpen, [=] { return __real_pipe2(ends, flags); });
}

int __real_poll(pollfd*, nfds_t, int);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
    return failureOr(injected::pollWait, [=] { return __real_poll(descriptors, count, timeoutMs); });
}

ssize_t __real_write(int, const void*, std::size_t);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t count) {
    if (count != 1) return __real_write(descriptor, bytes, count);
    return failureOr(injected::byteWrite, [=] { return __real_write(descriptor, bytes, count); });
}

void* REAL(OPERATOR_NEW)(std::size_t);
void* WRAP(OPERATOR_NEW)(std::size_t bytes) {
    injected::newThrowing.next();
    return REAL(OPERATOR_NEW)(bytes);
}

void* REAL(OPERATOR_NEW_NOTHROW)(std::size_t, const std::nothrow_t&);
void* WRAP(OPERATOR_NEW_NOTHROW)(std::size_t bytes, const std::nothrow_t& tag) {
    return injected::newNothrow.next() != 0 ? nullptr : REAL(OPERATOR_NEW_NOTHROW)(bytes, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
