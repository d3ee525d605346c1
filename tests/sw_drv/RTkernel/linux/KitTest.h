#pragma once
/// What the kit's tests share: threads that run a lambda, and code that ends its process.

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>

#include "sw_drv/RTkernel/linux/Thread.h"

namespace kittest {

/// A priority of the kit's scale that stands for ordinary time sharing, which every user may ask for.
inline constexpr int kTimeSharing = 1000;

/// Runs `body` on a thread of the kit, which the destructor joins.
class KitThread {
public:
    explicit KitThread(std::function<void()> body, int priority = kTimeSharing);
    ~KitThread();
    KitThread(const KitThread&) = delete;
    KitThread& operator=(const KitThread&) = delete;
    void join();

private:
    std::function<void()> body;
    pthread_t handle;
};

/// True under an emulator of the processor, which cannot start this program a second time.
bool emulated();

/// True in builds with ThreadSanitizer.
bool watchedByThreadSanitizer();

/// For code that runs in a process of its own: ends that with status 2 and a line that names the place, unless `holds`.
void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// For tests that end the process or need one in which nothing has happened: EXPECT_EXIT then starts the program anew.
/// Under an emulator it forks, so what earlier tests did is seen there.
class EndingProcess : public testing::Test {
protected:
    EndingProcess();
};

/// For such tests that cannot do with a fork.
class FreshProcess : public EndingProcess {
protected:
    void SetUp() override;
};

}  // namespace kittest
