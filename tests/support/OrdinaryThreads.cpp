// For the test programs that start and end many threads, under the sanitizers: where threads get their real-time
// priorities (as root), one that spins keeps the processor from a thread of a lower priority that it waits for, for
// ever. ThreadSanitizer guards its own data by locks that spin; AddressSanitizer's leak check spins while the other
// threads of a process that ends are stopped, and two processes that end so at once keep both processors. There the
// process gives that right up before any thread starts.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define DUNMALLOW_SANITIZED
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define DUNMALLOW_SANITIZED
#endif
#endif

#ifdef DUNMALLOW_SANITIZED
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
