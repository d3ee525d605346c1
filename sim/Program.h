#pragma once
/// The program from its command line to its exit status.

namespace sim {

/// Runs the server; in the background the starting process returns 0 as soon as the server listens. Returns the exit
/// status: 0 ended as told, 1 cannot start, 2 wrong arguments or scenario, or what a scenario says.
int runProgram(int argc, char** argv);

}  // namespace sim
