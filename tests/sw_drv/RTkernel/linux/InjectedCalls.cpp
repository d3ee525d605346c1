#include "tests/sw_drv/RTkernel/linux/InjectedCalls.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

namespace injected {

namespace {

thread_local const MonotonicClock* ownClock = nullptr;
thread_local Steps* ownSteps = nullptr;

}  // namespace

void Call::fail(int errorNumber, int times, int lastError) {
    left = 0;
    error = errorNumber;
    last = lastError;
    count = 0;
    left = times + (lastError != 0 ? 1 : 0);
}

int Call::next() {
    ++count;
    int before = left;
    while (before > 0 && !left.compare_exchange_weak(before, before - 1)) {
    }
    if (before == 1 && last != 0) return last;
    return before > 0 ? error.load() : 0;
}

MonotonicClock::MonotonicClock(long long seconds, long nanoseconds) : readable(true) {
    now.tv_sec = static_cast<std::time_t>(seconds);
    now.tv_nsec = nanoseconds;
    ownClock = this;
}

MonotonicClock::MonotonicClock() : readable(false) { ownClock = this; }

MonotonicClock::~MonotonicClock() { ownClock = nullptr; }

Steps::Steps() { ownSteps = this; }

Steps::~Steps() { ownSteps = nullptr; }

void Steps::note(char letter) {
    if (ownSteps == nullptr || ownSteps->used == ownSteps->letters.size()) return;
    ownSteps->letters[ownSteps->used++] = letter;
}

Call attributesInit;
Call attributesStackSize;
Call attributesDestroy;
Call threadCreate;
Call signalAction;
Call setScheduler;
Call getParam;
Call errorText;
Call nanosleep;
Call semaphoreWait;
Call mutexAttributesInit;
Call mutexAttributesType;
Call mutexAttributesEnd;
Call mutexInit;
Call mutexDestroy;
Call semaphoreInit;
Call semaphoreDestroy;
Call pipeOpen;
Call pollWait;
Call byteWrite;
Call textWrite;
Call newNothrow;
Call newThrowing;
Call setTime;
std::atomic<std::size_t> longestWrite{SIZE_MAX};
std::atomic<void (*)()> onThreadStart{nullptr};
std::atomic<void (*)()> onSetScheduler{nullptr};
thread_local LockErrors lockErrors{};
CreateArguments lastCreate{};
SchedulerArguments lastScheduler{};
thread_local bool lastMutexHadAttributes = false;
int lastSemaphoreShared = -1;
SetTimeArguments lastSetTime{};
thread_local SleepArguments lastSleep{};
std::atomic<long long> monotonicAheadMs{0};
std::atomic<long long> secondsNow{0};
std::atomic<long> pageBytes{0};
std::atomic<const rusage*> usage{nullptr};
std::atomic<int> otherUsages{0};
std::atomic<const char*> fileText{nullptr};

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

struct ThreadStart {
    void* (*body)(void*);
    void* argument;
};

void* startThread(void* argument) {
    auto* const start = static_cast<ThreadStart*>(argument);
    const ThreadStart own = *start;
    delete start;
    injected::onThreadStart.load()();
    return own.body(own.argument);
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
    return errorOr(injected::threadCreate, [=] {
        if (injected::onThreadStart == nullptr) return __real_pthread_create(thread, attributes, body, argument);
        return __real_pthread_create(thread, attributes, startThread, new ThreadStart{body, argument});
    });
}

int __real_sigaction(int, const struct sigaction*, struct sigaction*);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* previous) {
    return failureOr(injected::signalAction, [=] { return __real_sigaction(signal, action, previous); });
}

int __real_sched_setscheduler(pid_t, int, const sched_param*);
int __wrap_sched_setscheduler(pid_t process, int policy, const sched_param* parameters) {
    injected::lastScheduler = {process, policy, parameters->sched_priority};
    if (void (*const hook)() = injected::onSetScheduler; hook != nullptr) hook();
    return failureOr(injected::setScheduler, [=] { return __real_sched_setscheduler(process, policy, parameters); });
}

int __real_sched_getparam(pid_t, sched_param*);
int __wrap_sched_getparam(pid_t process, sched_param* parameters) {
    return failureOr(injected::getParam, [=] { return __real_sched_getparam(process, parameters); });
}

char* __real_strerror(int);
char* __wrap_strerror(int number) { return injected::errorText.next() != 0 ? nullptr : __real_strerror(number); }

#define NANOSLEEP TIME_CALL(clock_nanosleep, __clock_nanosleep_time64)
int REAL(NANOSLEEP)(clockid_t, int, const timespec*, timespec*);
int WRAP(NANOSLEEP)(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    injected::lastSleep = {clock, flags, time->tv_sec, static_cast<long>(time->tv_nsec)};
    return errorOr(injected::nanosleep, [=] { return REAL(NANOSLEEP)(clock, flags, time, rest); });
}

#define GETTIME TIME_CALL(clock_gettime, __clock_gettime64)
int REAL(GETTIME)(clockid_t, timespec*);
int WRAP(GETTIME)(clockid_t clock, timespec* time) {
    if (clock != CLOCK_MONOTONIC) return REAL(GETTIME)(clock, time);
    injected::Steps::note('c');
    if (injected::ownClock != nullptr) {
        if (!injected::ownClock->readable) return -1;
        *time = injected::ownClock->now;
        return 0;
    }
    const int result = REAL(GETTIME)(clock, time);
    const long long nanoseconds = time->tv_nsec + injected::monotonicAheadMs % 1000 * 1'000'000;
    time->tv_sec += static_cast<std::time_t>(injected::monotonicAheadMs / 1000 + nanoseconds / 1'000'000'000);
    time->tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
    return result;
}

#define TIME TIME_CALL(time, __time64)
std::time_t REAL(TIME)(std::time_t*);
std::time_t WRAP(TIME)(std::time_t* result) {
    const auto stated = static_cast<std::time_t>(injected::secondsNow);
    if (stated == 0) return REAL(TIME)(result);
    if (result != nullptr) *result = stated;
    return stated;
}

#define GETRUSAGE TIME_CALL(getrusage, __getrusage64)
int REAL(GETRUSAGE)(__rusage_who_t, rusage*);
int WRAP(GETRUSAGE)(__rusage_who_t who, rusage* usage) {
    if (who != RUSAGE_SELF) ++injected::otherUsages;
    const rusage* const stated = injected::usage;
    if (stated == nullptr) return REAL(GETRUSAGE)(who, usage);
    *usage = *stated;
    return 0;
}

long __real_sysconf(int);
long __wrap_sysconf(int name) {
    const long bytes = name == _SC_PAGESIZE ? injected::pageBytes.load() : 0;
    return bytes != 0 ? bytes : __real_sysconf(name);
}

#define SETTIME TIME_CALL(settimeofday, __settimeofday64)
int WRAP(SETTIME)(const timeval* time, const struct timezone* /*zone*/) {
    injected::lastSetTime = {time->tv_sec, time->tv_usec};
    return failureOr(injected::setTime, [] { return 0; });
}

int __real_sem_wait(sem_t*);
int __wrap_sem_wait(sem_t* semaphore) {
    injected::Steps::note('w');
    return failureOr(injected::semaphoreWait, [=] { return __real_sem_wait(semaphore); });
}

int __real_sem_trywait(sem_t*);
int __wrap_sem_trywait(sem_t* semaphore) {
    injected::Steps::note('t');
    return __real_sem_trywait(semaphore);
}

int __real_sem_post(sem_t*);
int __wrap_sem_post(sem_t* semaphore) {
    injected::Steps::note('p');
    return __real_sem_post(semaphore);
}

int __real_sem_init(sem_t*, int, unsigned);
int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value) {
    injected::lastSemaphoreShared = shared;
    return failureOr(injected::semaphoreInit, [=] { return __real_sem_init(semaphore, shared, value); });
}

int __real_sem_destroy(sem_t*);
int __wrap_sem_destroy(sem_t* semaphore) {
    injected::semaphoreDestroy.next();
    return __real_sem_destroy(semaphore);
}

int __real_pthread_mutex_lock(pthread_mutex_t*);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    injected::Steps::note('L');
    const int error = std::exchange(injected::lockErrors.lock, 0);
    return error != 0 ? error : __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_trylock(pthread_mutex_t*);
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    const int error = std::exchange(injected::lockErrors.tryLock, 0);
    return error != 0 ? error : __real_pthread_mutex_trylock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    injected::Steps::note('U');
    const int error = std::exchange(injected::lockErrors.unlock, 0);
    return error != 0 ? error : __real_pthread_mutex_unlock(mutex);
}

int __real_pthread_mutex_destroy(pthread_mutex_t*);
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    injected::mutexDestroy.next();
    return __real_pthread_mutex_destroy(mutex);
}

int __real_pthread_mutexattr_destroy(pthread_mutexattr_t*);
int __wrap_pthread_mutexattr_destroy(pthread_mutexattr_t* attributes) {
    injected::mutexAttributesEnd.next();
    return __real_pthread_mutexattr_destroy(attributes);
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
    injected::lastMutexHadAttributes = attributes != nullptr;
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
    if (count == 1) injected::Steps::note('W');
    return failureOr(count == 1 ? injected::byteWrite : injected::textWrite,
                     [=] { return __real_write(descriptor, bytes, std::min(count, injected::longestWrite.load())); });
}

std::FILE* __real_fopen64(const char*, const char*);
std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    const char* const text = injected::fileText;
    return text == nullptr ? __real_fopen64(path, mode) : fmemopen(const_cast<char*>(text), std::strlen(text), mode);
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
