#include "tests/Hardware/Intercept.h"

#include <semaphore.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>

#include "sw_drv/RTkernel/linux/Thread.h"

namespace {

std::atomic<testsupport::RecordedCalls*> recorder{nullptr};
std::mutex callsMutex;
std::vector<std::string> recordedCalls;

void record(const std::string& call) {
    const std::lock_guard lock(callsMutex);
    if (recorder != nullptr) recordedCalls.push_back(call);
}

void notice() {
    if (const testsupport::RecordedCalls* const calls = recorder) calls->notice();
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {
int __real_system(const char* command);
int __wrap_system(const char* command);
void __real_sync();
void __wrap_sync();
int __real_connect(int socket, const sockaddr* address, socklen_t length);
int __wrap_connect(int socket, const sockaddr* address, socklen_t length);
ssize_t __real_recv(int socket, void* buffer, std::size_t length, int flags);
ssize_t __wrap_recv(int socket, void* buffer, std::size_t length, int flags);
ssize_t __real_send(int socket, const void* buffer, std::size_t length, int flags);
ssize_t __wrap_send(int socket, const void* buffer, std::size_t length, int flags);
int __real_sem_trywait(sem_t* semaphore);
int __wrap_sem_trywait(sem_t* semaphore);

int __wrap_system(const char* command) {
    record(std::string("system: ") + command);
    const testsupport::RecordedCalls* const calls = recorder;
    return calls != nullptr && calls->onSystem ? calls->onSystem(command) : __real_system(command);
}

void __wrap_sync() {
    record("sync");
    const testsupport::RecordedCalls* const calls = recorder;
    if (calls == nullptr) {
        __real_sync();
    } else if (calls->onSync) {
        calls->onSync();
    }
}

// Also seen by the linker in the socket layer, on the worker's small stack.
// pthread_t threadfunc::ThreadCreate(int, ThreadFunction, void*, unsigned, const char*, int)
pthread_t __real__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(int, threadfunc::ThreadFunction, void*, unsigned,
                                                               const char*, int);
pthread_t __wrap__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(int priority, threadfunc::ThreadFunction function,
                                                               void* argument, unsigned stackSize,
                                                               const char* originFile, int originLine) {
    const char* const file = originFile != nullptr ? originFile : "";
    const testsupport::RecordedCalls* const calls = recorder;
    if (calls != nullptr && calls->mayCreate && !calls->mayCreate({priority, stackSize, file, originLine})) return 0;
    return __real__ZN10threadfunc12ThreadCreateEiPFjPvES0_jPKci(priority, function, argument, stackSize, originFile,
                                                                originLine);
}

int __wrap_connect(int socket, const sockaddr* address, socklen_t length) {
    record("connect");
    notice();
    return __real_connect(socket, address, length);
}

ssize_t __wrap_recv(int socket, void* buffer, std::size_t length, int flags) {
    notice();
    return __real_recv(socket, buffer, length, flags);
}

ssize_t __wrap_send(int socket, const void* buffer, std::size_t length, int flags) {
    notice();
    return __real_send(socket, buffer, length, flags);
}

int __wrap_sem_trywait(sem_t* semaphore) {
    const testsupport::RecordedCalls* const calls = recorder;
    if (calls == nullptr || !calls->mayTake || calls->mayTake()) return __real_sem_trywait(semaphore);
    errno = EAGAIN;
    return -1;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace testsupport {

RecordedCalls::RecordedCalls() {
    const std::lock_guard lock(callsMutex);
    recordedCalls.clear();
    recorder = this;
}

RecordedCalls::~RecordedCalls() {
    const std::lock_guard lock(callsMutex);
    recorder = nullptr;
}

std::vector<std::string> RecordedCalls::calls() const {
    const std::lock_guard lock(callsMutex);
    return recordedCalls;
}

void RecordedCalls::notice() const {
    if (onCall && pthread_equal(maker, pthread_self()) == 0) onCall();
}

int RecordedCalls::count(const std::string& call) const {
    const std::vector<std::string> all = calls();
    return static_cast<int>(std::count(all.begin(), all.end(), call));
}

}  // namespace testsupport
