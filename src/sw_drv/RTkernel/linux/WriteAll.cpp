#include "sw_drv/RTkernel/linux/WriteAll.h"

#include <unistd.h>

#include <cerrno>

namespace threadfunc {

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace threadfunc
