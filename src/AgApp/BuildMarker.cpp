#include "AgApp/BuildMarker.h"

#include <array>
#include <cstring>

namespace AgApp {

namespace {

// Stamping finds these bytes in the finished program and overwrites the date, so they must stand there once and whole:
// a section of its own keeps the linker from merging them with other texts, `used` the compiler from leaving them out,
// and `volatile` debug information from repeating them. It also makes the program read what the file holds when it
// runs, not what the compiler saw. The year 1901 says that nobody has stamped the program.
[[gnu::used, gnu::section(".build_marker")]] const volatile char marker[38] = "!Build Date: 1901-01-01 00:00:00 UTC!";

}  // namespace

std::string readBuildMarker() {
    std::array<char, sizeof marker> local{};
    for (std::size_t i = 0; i < local.size(); ++i) local[i] = marker[i];
    return {local.data(), strnlen(local.data(), local.size())};
}

}  // namespace AgApp
