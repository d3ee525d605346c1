#include "tests/sw_drv/RTkernel/linux/KitTest.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "tests/support/TempFolder.h"

namespace kittest {

namespace {

constexpr unsigned kRoomForTestCode = 256 * 1024;

std::uint32_t runBody(void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return 0;
}

}  // namespace

KitThread::KitThread(std::function<void()> toRun, int priority)
    : body(std::move(toRun)),
      handle(threadfunc::ThreadCreate(priority, runBody, &body, kRoomForTestCode, __FILE__, __LINE__)) {
    if (handle == 0) ADD_FAILURE() << "no thread";
}

KitThread::~KitThread() { join(); }

void KitThread::join() {
    if (handle != 0) threadfunc::threadJoin(handle);
    handle = 0;
}

bool emulated() { return testsupport::readFile("/proc/self/comm").starts_with("qemu-"); }

bool watchedByThreadSanitizer() {
#if defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

void require(bool holds, const char* file, int line) {
    if (holds) return;
    std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
    _exit(2);
}

EndingProcess::EndingProcess() { GTEST_FLAG_SET(death_test_style, emulated() ? "fast" : "threadsafe"); }

void FreshProcess::SetUp() {
    if (emulated()) GTEST_SKIP() << "needs a process in which nothing has happened; the emulator can only fork";
}

}  // namespace kittest
