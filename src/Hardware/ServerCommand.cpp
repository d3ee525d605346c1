#include "Hardware/ServerCommand.h"

namespace CANFlasher {

namespace {

/// What both commands begin with: the tool, the process name it looks for and the program it stands for.
std::string commandFor(const std::string& serverPath) {
    return std::string("start-stop-daemon -n ") + kServerName + " -a " + serverPath;
}

}  // namespace

std::string startServerCommand(const std::string& serverPath, std::int32_t interface, std::int32_t port) {
    return commandFor(serverPath) + " -S -- -q -i " + std::to_string(interface) + " -p " + std::to_string(port);
}

std::string stopServerCommand(const std::string& serverPath) {
    // The trailing blank looks forgotten, but wrappers of the tool in the field compare the whole line.
    return commandFor(serverPath) + " -K ";
}

}  // namespace CANFlasher
