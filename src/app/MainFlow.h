#pragma once
/// The run of the program, from the command line to its exit status.

#include "app/FlasherOptions.h"

namespace CANFlasher {

/// All of `main` but the end of the process: parses the options into the process's settings, prepares for the shutdown
/// signals and, when a hex file was given, runs the upload. Returns the exit status. Main thread, once.
int runProgram(int argc, char* argv[]);

/// Starts the server, requests the upload of `options` and waits until a shutdown signal asks for the end; then returns
/// 0. When server or request fail it says so in one line on standard error and returns 1. An upload that ends by itself
/// ends the process from the viewer meanwhile. `options.hexFile` is not null; `options` must be the process's settings,
/// which the shutdown event sets. Main thread.
int runUpload(FlasherOptions& options);

}  // namespace CANFlasher
