// For test programs that start and end many threads, in builds with sanitizers: gives the right to real-time priorities
// up (root has it) before any thread starts. With them a thread that spins would keep the processor from one of a lower
// priority that it waits for, for ever. ThreadSanitizer guards its own data by locks that spin. AddressSanitizer's leak
// check spins until the other threads of the process have stopped, and two processes that end so keep two processors.
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
