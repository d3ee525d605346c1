#include "tests/Hardware/Intercept.h"

#include <sys/socket.h>

#include <algorithm>
#include <mutex>

namespace {

testsupport::RecordedCalls* recorder = nullptr;  // set while no other thread calls
std::mutex callsMutex;
std::vector<std::string> recordedCalls;

void record(const std::string& call) {
    const std::lock_guard lock(callsMutex);
    if (recorder != nullptr) recordedCalls.push_back(call);
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

int __wrap_system(const char* command) {
    record(std::string("system: ") + command);
    return recorder != nullptr && recorder->onSystem ? recorder->onSystem(command) : __real_system(command);
}

void __wrap_sync() {
    record("sync");
    if (recorder == nullptr) __real_sync();
}

// Also seen by the linker in the socket layer, on the worker's small stack.
int __wrap_connect(int socket, const sockaddr* address, socklen_t length) {
    record("connect");
    return __real_connect(socket, address, length);
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

int RecordedCalls::count(const std::string& call) const {
    const std::vector<std::string> all = calls();
    return static_cast<int>(std::count(all.begin(), all.end(), call));
}

}  // namespace testsupport
