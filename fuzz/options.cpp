// The command line: settings, exit status and what is printed are those of a second reader that knows nothing of
// getopt. Input: the arguments behind the program's name, a zero byte or a line end between them.
#include <sstream>
#include <vector>

#include "app/OptionParser.h"
#include "fuzz/oracle/CommandLine.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> arguments = fuzz::argumentsOf({data, size});
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const fuzz::ExpectedRun wanted = fuzz::expectedRun(arguments);

    CANFlasher::FlasherOptions options;
    std::ostringstream out, err;
    const auto status = CANFlasher::parseOptions(static_cast<int>(arguments.size()), argv.data(), options, out, err);
    fuzz::check(status == wanted.status);
    fuzz::check(std::string(options.hexFile == nullptr ? "Null" : options.hexFile) == wanted.hexFile);
    fuzz::check(options.mode == wanted.mode && options.serialNumber == wanted.serial);
    fuzz::check(options.interfaceIndex == wanted.interface && options.address == wanted.address);
    fuzz::check(options.port == wanted.port && options.hostName == wanted.host);
    fuzz::check(out.str() == wanted.out && err.str() == wanted.err);
    return 0;
}
