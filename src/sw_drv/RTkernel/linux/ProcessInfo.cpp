#include "sw_drv/RTkernel/linux/ProcessInfo.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>

#include "sw_drv/RTkernel/linux/Mutex.h"

namespace threadfunc {

namespace {

struct CachedName {
    mutex lock;
    std::string text GUARDED_BY(lock);
};

// Never destroyed: other threads may ask while the process ends.
CachedName& cachedName() {
    static CachedName& name = *new CachedName;
    return name;
}

const std::string& noName() {
    static const std::string& empty = *new std::string;
    return empty;
}

std::uint32_t cutTo32Bits(std::uint64_t bytes) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, std::numeric_limits<std::uint32_t>::max()));
}

long residentPages() {
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Close> file(std::fopen("/proc/self/statm", "r"));
    long pages = 0;
    if (file == nullptr || std::fscanf(file.get(), "%*s%ld", &pages) != 1) return 0;
    return pages;
}

}  // namespace

const std::string& processName() {
    CachedName& name = cachedName();
    const MutexLock lock(name.lock);
    if (name.text.empty()) {
        std::ifstream file("/proc/self/comm");
        std::getline(file, name.text);
    }
    return name.text.empty() ? noName() : name.text;  // a text that others still see is never written again
}

std::uint32_t currentMemoryUse() {
    return cutTo32Bits(static_cast<std::uint64_t>(residentPages()) * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
}

std::uint32_t peakMemoryUse() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return cutTo32Bits(static_cast<std::uint64_t>(usage.ru_maxrss) << 10U);
}

}  // namespace threadfunc
