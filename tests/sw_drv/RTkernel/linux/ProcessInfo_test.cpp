#include "sw_drv/RTkernel/linux/ProcessInfo.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "sw_drv/RTkernel/linux/Mutex.h"
#include "tests/support/Process.h"
#include "tests/support/TempFolder.h"
#include "tests/sw_drv/RTkernel/linux/KitTest.h"

namespace {

std::string commOfProcess() {
    std::string text = testsupport::readFile("/proc/self/comm");
    if (!text.empty()) text.pop_back();  // the newline
    return text;
}

// Nothing can be opened for the life of the object.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &previous);
        const rlimit none{0, previous.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &previous); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit previous{};
};

class ProcessName : public kittest::FreshProcess {};

TEST_F(ProcessName, IsReadOnceAndKept) {
    const auto renameProcess = [] {
        const std::string first = threadfunc::processName();
        if (first != commOfProcess() || first.empty()) _exit(2);
        prctl(PR_SET_NAME, "renamed");
        if (commOfProcess() != "renamed") _exit(3);
        testsupport::leave(threadfunc::processName() == first ? 0 : 4);
    };
    EXPECT_EXIT(renameProcess(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessName, IsTakenAtTheFirstCallAndNotBefore) {
    const auto renameFirst = [] {
        prctl(PR_SET_NAME, "late name");
        testsupport::leave(threadfunc::processName() == "late name" ? 0 : 2);
    };
    EXPECT_EXIT(renameFirst(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessName, IsTheFirstLineAlone) {
    const auto renameToTwoLines = [] {
        prctl(PR_SET_NAME, "first\nsecond");
        testsupport::leave(threadfunc::processName() == "first" ? 0 : 2);
    };
    EXPECT_EXIT(renameToTwoLines(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessName, StaysEmptyWhileTheFileCannotBeReadAndIsTriedAgain) {
    const auto tryAgain = [] {
        { threadfunc::mutex known; }  // the sanitizers need a descriptor when they first meet a type
        {
            const NoDescriptors none;
            if (!threadfunc::processName().empty()) _exit(2);
        }
        testsupport::leave(!threadfunc::processName().empty() && threadfunc::processName() == commOfProcess() ? 0 : 3);
    };
    EXPECT_EXIT(tryAgain(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessName, MayBeAskedForByManyThreadsAtOnce) {
    const auto askAtOnce = [] {
        std::vector<std::thread> threads;
        std::vector<std::string> names(8);
        for (std::string& name : names) threads.emplace_back([&name] { name = threadfunc::processName(); });
        for (std::thread& thread : threads) thread.join();
        for (const std::string& name : names)
            if (name != commOfProcess()) _exit(2);
        testsupport::leave(0);
    };
    EXPECT_EXIT(askAtOnce(), testing::ExitedWithCode(0), "");
}

TEST(ProcessNameText, IsOneTextWithoutTheNewline) {
    EXPECT_EQ(&threadfunc::processName(), &threadfunc::processName());
    EXPECT_EQ(threadfunc::processName().find('\n'), std::string::npos);
    EXPECT_FALSE(threadfunc::processName().empty());
}

TEST(MemoryUse, IsTheResidentSizeInBytes) {
    unsigned long total = 0;
    unsigned long resident = 0;
    ASSERT_EQ(std::sscanf(testsupport::readFile("/proc/self/statm").c_str(), "%lu %lu", &total, &resident), 2);
    const std::uint32_t use = threadfunc::currentMemoryUse();
    const auto page = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
    EXPECT_EQ(use % page, 0U);
    EXPECT_NEAR(static_cast<double>(use), static_cast<double>(resident * page), 4e6);
}

TEST(MemoryUse, GrowsWithWhatIsTouched) {
    constexpr std::size_t kBytes = 32U << 20U;
    const std::uint32_t before = threadfunc::currentMemoryUse();
    const std::vector<char> touched(kBytes, 'x');
    EXPECT_GE(threadfunc::currentMemoryUse(), before + kBytes / 2);
    EXPECT_EQ(touched.back(), 'x');
}

TEST(MemoryUse, PeakIsThatOfTheSystemInBytesAndStays) {
    { const std::vector<char> touched(32U << 20U, 'x'); }
    const std::uint32_t peak = threadfunc::peakMemoryUse();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    EXPECT_EQ(peak % 1024, 0U);
    EXPECT_NEAR(static_cast<double>(peak), static_cast<double>(usage.ru_maxrss) * 1024.0, 4e6);
    EXPECT_GE(peak, 32U << 20U);
}

class MemoryUseWithoutFile : public kittest::EndingProcess {};

TEST_F(MemoryUseWithoutFile, IsZero) {
    const auto ask = [] {
        const NoDescriptors none;
        _exit(threadfunc::currentMemoryUse() == 0 ? 0 : 2);
    };
    EXPECT_EXIT(ask(), testing::ExitedWithCode(0), "");
}

}  // namespace
