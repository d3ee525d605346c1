#include "sw_drv/RTkernel/linux/CrashReport.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "sw_drv/RTkernel/linux/ProcessExit.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "tests/support/CapturedOutput.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

namespace {

volatile std::uintptr_t nowhere = 0x10;  // an address that no process can write to

#if defined(__SANITIZE_THREAD__)
__attribute__((no_sanitize_thread))
#endif
void crash() {
    *reinterpret_cast<volatile std::uint32_t*>(nowhere) = 1;
}

std::uint32_t crashOnThread(void* /*argument*/) {
    crash();
    return 0;
}

void crashOnSmallestStack() {
    threadfunc::threadJoin(threadfunc::ThreadCreate(20, crashOnThread, nullptr, 0, __FILE__, __LINE__));
}

constexpr const char* kReportOfThread =
    "^Process: [0-9]+, thread: [0-9]+, reports segmentation fault\nThread: signal address 0x10\n$";
constexpr const char* kTwoReports =
    "^Process: [0-9]+, thread: [0-9]+, reports segmentation fault\nThread: signal address 0x10\n"
    "Process: [0-9]+, thread: [0-9]+, reports segmentation fault\nThread: signal address 0x10\n$";

class CrashReport : public kittest::EndingProcess {
protected:
    void SetUp() override {
        if (kittest::watchedByThreadSanitizer()) GTEST_SKIP() << "ThreadSanitizer forbids exit in a signal handler";
    }
};

TEST_F(CrashReport, EndsTheProcessWithStatus1AfterTwoLinesAlsoOnA16384ByteStack) {
    EXPECT_EXIT(crashOnSmallestStack(), testing::ExitedWithCode(1), kReportOfThread);
}

TEST_F(CrashReport, ServesThreadsThatTheKitDidNotStartToo) {
    EXPECT_EXIT(
        {
            threadfunc::threadJoin(threadfunc::ThreadCreate(
                20, [](void*) -> std::uint32_t { return 0; }, nullptr, 0, nullptr, 0));
            crash();
        },
        testing::ExitedWithCode(1), kReportOfThread);
}

TEST_F(CrashReport, NamesProcessAndThreadAndPrintsNoAddressAsZero) {
    const auto report = [] {
        threadfunc::installCrashReport();
        const std::string expected = "Process: " + std::to_string(getpid()) +
                                     ", thread: " + std::to_string(threadfunc::threadId()) +
                                     ", reports segmentation fault\nThread: signal address 0\n";
        static const testsupport::CapturedOutput errors(STDERR_FILENO);
        static const std::string wanted = expected;
        std::atexit([] { _exit(errors.text() == wanted ? 0 : 3); });
        siginfo_t information{};
        threadfunc::reportSegmentationFault(SIGSEGV, &information, nullptr);
    };
    EXPECT_EXIT(report(), testing::ExitedWithCode(0), "");
}

TEST_F(CrashReport, RunsWhatIsRegisteredForTheExit) {
    const auto crashWithHandler = [] {
        std::atexit([] { static_cast<void>(write(STDERR_FILENO, "bye\n", 4) == 4); });
        crashOnSmallestStack();
    };
    EXPECT_EXIT(crashWithHandler(), testing::ExitedWithCode(1), "signal address 0x10\nbye\n$");
}

TEST_F(CrashReport, OfACrashInsideTheExitLeavesAtOnceWithStatus1) {
    const auto crashTwice = [] {
        std::atexit(crash);
        crashOnSmallestStack();
    };
    EXPECT_EXIT(crashTwice(), testing::ExitedWithCode(1), kTwoReports);
}

TEST_F(CrashReport, WhileAnotherThreadEndsTheProcessLeavesAtOnceWithStatus1) {
    const auto crashDuringExit = [] {
        std::atexit([] {
            crashOnSmallestStack();
            _exit(4);  // not reached: the join above does not return
        });
        threadfunc::exitProcess(0);
    };
    EXPECT_EXIT(crashDuringExit(), testing::ExitedWithCode(1), kReportOfThread);
}

TEST(CrashReportHandler, IgnoresOtherSignals) {
    const testsupport::CapturedOutput errors(STDERR_FILENO);
    siginfo_t information{};
    threadfunc::reportSegmentationFault(SIGBUS, &information, nullptr);
    threadfunc::reportSegmentationFault(0, &information, nullptr);
    EXPECT_EQ(errors.text(), "");
}

}  // namespace
