#include "sim/Log.h"

#include <unistd.h>

#include <cstdio>

#include "sim/Clock.h"

namespace sim {

namespace {

// A log that cannot be written must not stop the server.
void writeAll(int descriptor, const std::string& text) {
    if (descriptor < 0) return;
    [[maybe_unused]] const ssize_t ignored = write(descriptor, text.data(), text.size());
}

}  // namespace

std::string printableText(std::string_view text) {
    std::string shown;
    for (const char letter : text) {
        if (letter >= ' ' && letter <= '~') {
            shown += letter;
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(letter)));
        shown += escape;
    }
    return shown;
}

std::string stampText(long long microsecondsSinceStart) {
    char text[40];
    std::snprintf(text, sizeof text, "%lld.%06lld", microsecondsSinceStart / 1'000'000,
                  microsecondsSinceStart % 1'000'000);
    return text;
}

void Log::line(std::string_view text) const {
    if (!toStandardError && !file.valid()) return;
    const auto now = std::chrono::duration_cast<Duration>(monotonicNow().time_since_epoch());
    const std::string whole = stampText(now.count()) + " corvane: " + printableText(text) + "\n";
    if (toStandardError) writeAll(STDERR_FILENO, whole);
    writeAll(file.get(), whole);
}

}  // namespace sim
