#include "AgApp/BuildMarker.h"

#include "AgApp/ProgramText.h"

namespace AgApp {

namespace {

// Stamping finds these bytes in the finished program and overwrites the date. The year 1901 says that nobody has
// stamped the program.
[[gnu::used, gnu::section(".build_marker")]] const volatile char marker[38] = "!Build Date: 1901-01-01 00:00:00 UTC!";

}  // namespace

std::string readBuildMarker() { return textInProgram(marker); }

}  // namespace AgApp
