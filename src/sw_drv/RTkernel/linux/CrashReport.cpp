#include "sw_drv/RTkernel/linux/CrashReport.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "sw_drv/RTkernel/linux/ProcessExit.h"
#include "sw_drv/RTkernel/linux/Thread.h"
#include "sw_drv/RTkernel/linux/WriteAll.h"

namespace threadfunc {

namespace {

// Composes the report in place: the crash may have come from inside the allocator or a stream, and little may be left
// of the stack.
class Report {
public:
    void add(std::string_view text) {
        const std::size_t length = std::min(text.size(), bytes.size() - used);
        std::memcpy(bytes.data() + used, text.data(), length);
        used += length;
    }
    void add(std::uintmax_t number, int base) {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.begin(), digits.end(), number, base).ptr;
        add(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
    }
    std::string_view text() const { return {bytes.data(), used}; }

private:
    std::array<char, 160> bytes;
    std::size_t used = 0;
};

void writeReport(const void* address) {
    Report report;
    report.add("Process: ");
    report.add(static_cast<std::uintmax_t>(getpid()), 10);
    report.add(", thread: ");
    report.add(static_cast<std::uintmax_t>(threadId()), 10);
    report.add(", reports segmentation fault\nThread: signal address ");
    report.add(address == nullptr ? "" : "0x");  // as streams print pointers
    report.add(reinterpret_cast<std::uintptr_t>(address), 16);
    report.add("\n");
    writeAll(STDERR_FILENO, report.text());
}

// What exit runs may crash as well: let that come here again, and leave by the short way.
void letSegvComeAgain() {
    sigset_t segv;
    sigemptyset(&segv);
    sigaddset(&segv, SIGSEGV);
    pthread_sigmask(SIG_UNBLOCK, &segv, nullptr);
}

}  // namespace

void reportSegmentationFault(int signalNumber, siginfo_t* information, void* /*context*/) {
    if (signalNumber != SIGSEGV) return;
    writeReport(information->si_addr);
    if (!claimProcessExit()) _exit(1);
    letSegvComeAgain();
    std::exit(1);
}

void installCrashReport() {
    struct sigaction action {};
    action.sa_sigaction = reportSegmentationFault;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (sigaction(SIGSEGV, &action, nullptr) == 0) return;
    std::perror("sigaction");
    exitProcess(1);
}

}  // namespace threadfunc
