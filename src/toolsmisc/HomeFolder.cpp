#include "toolsmisc/HomeFolder.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace toolsmisc {

namespace {

constexpr std::size_t kFirstBuffer = 1024;
constexpr std::size_t kLargestBuffer = 1'048'576;

}  // namespace

std::optional<std::string> homeOfRealUser() {
    for (std::size_t size = kFirstBuffer; size <= kLargestBuffer; size *= 4) {
        std::vector<char> buffer(size);
        passwd entry{};
        passwd* found = nullptr;
        const int reason = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
        if (reason == ERANGE) continue;
        if (found == nullptr || found->pw_dir == nullptr) return std::nullopt;
        return found->pw_dir;
    }
    return std::nullopt;
}

}  // namespace toolsmisc
