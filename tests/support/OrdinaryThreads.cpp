// For the test programs that start and end many threads. ThreadSanitizer guards its own data by locks that spin. Where
// threads get their real-time priorities (as root), one that spins keeps the processor from the thread of a lower
// priority that holds the lock, for ever. Under ThreadSanitizer the process gives that right up before any thread
// starts.
#if defined(__SANITIZE_THREAD__)
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace {

bool giveUpPriorities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> capabilities{};
    if (syscall(SYS_capget, &header, capabilities.data()) != 0) return false;
    capabilities[0].effective &= ~(1U << CAP_SYS_NICE);
    capabilities[0].permitted &= ~(1U << CAP_SYS_NICE);
    return syscall(SYS_capset, &header, capabilities.data()) == 0;
}

[[maybe_unused]] const bool givenUp = giveUpPriorities();

}  // namespace
#endif
