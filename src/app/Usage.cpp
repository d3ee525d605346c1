#include "app/Usage.h"

#include <array>
#include <ostream>

#include "Hardware/UploadNames.h"

namespace CANFlasher {

namespace {

constexpr std::array<std::string_view, 12> kOptionLines{
    "  Available options:",
    "   -h / -?         Show this message",
    "   -u[hexfile]     Upload the indicated hex file",
    "   -m[mode]        'ISOStyle', 'MTCAN', 'NewModule', 'Global'",
    "   -a[address]     Address of the device",
    "   -n[serialnum]   Serial number of the device",
    "   -p[portnum]     Connect using the indicated port number",
    "   -s[host name]   name of the host computer where the server is running",
    "   -i[interface]   CAN interface index (0 => CAN0, 1=> CAN1, etc)",
    "   -v              Show version",
    " ",
    "Default values:",
};

}  // namespace

void printUsage(std::ostream& out, std::string_view program, const FlasherOptions& options) {
    out << "Usage: " << program << " [<option>]*" << std::endl;
    for (const std::string_view line : kOptionLines) out << line << std::endl;
    out << "   hexfile         '" << (options.hexFile != nullptr ? options.hexFile : "Null") << "'" << std::endl;
    out << "   mode            '" << modeOptionName(options.mode) << "'" << std::endl;
    out << "   address         0x" << std::hex << options.address << std::dec << std::endl;
    out << "   serialnum       " << options.serialNumber << std::endl;
    out << "   portnum         " << options.port << std::endl;
    out << "   host name       '" << options.hostName << "'" << std::endl;
    out << "   interface       CAN" << options.interfaceIndex << std::endl;
}

}  // namespace CANFlasher
