// Starting and stopping the server application through the system's start-stop-daemon.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "Hardware/CANFlasherClient.h"
#include "Hardware/ServerCommand.h"

namespace CANFlasher {

namespace {

constexpr int kServerStartPauseMs = 100;

/// Runs `command` in the shell and flushes the disks, whatever came out. True when it succeeded.
bool runCommand(const std::string& command) {
    errno = 0;  // the complaint tells of this call, not of the failed connect before it
    const int result = std::system(command.c_str());
    if (result != 0) std::perror("system()");
    sync();
    return result == 0;
}

}  // namespace

std::uint32_t CANFlasherClient::startServer(std::int32_t interface) {
    // A reachable server counts as a failure: with its CAN interface unknown nobody may upload through it.
    if (ProprietarySocketClient::connectToServer()) return 0;
    if (!runCommand(startServerCommand(serverProgram, interface, port()))) return 0;
    threadfunc::sleep(kServerStartPauseMs);
    return connectToServer() ? 1 : 0;
}

std::uint32_t CANFlasherClient::controlServer(bool start, std::int32_t interface) {
    const std::string command =
        start ? startServerCommand(serverProgram, interface, port()) : stopServerCommand(serverProgram);
    return runCommand(command) ? 1 : 0;
}

}  // namespace CANFlasher
