#include "app/Usage.h"

#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <streambuf>
#include <string>

#include "app/OptionParser.h"

using namespace CANFlasher;

namespace {

constexpr const char* kOptionsText =
    "  Available options:\n"
    "   -h / -?         Show this message\n"
    "   -u[hexfile]     Upload the indicated hex file\n"
    "   -m[mode]        'ISOStyle', 'MTCAN', 'NewModule', 'Global'\n"
    "   -a[address]     Address of the device\n"
    "   -n[serialnum]   Serial number of the device\n"
    "   -p[portnum]     Connect using the indicated port number\n"
    "   -s[host name]   name of the host computer where the server is running\n"
    "   -i[interface]   CAN interface index (0 => CAN0, 1=> CAN1, etc)\n"
    "   -v              Show version\n"
    " \n"
    "Default values:\n";

std::string usage(const char* program, const FlasherOptions& options) {
    std::ostringstream out;
    printUsage(out, program, options);
    return out.str();
}

TEST(Usage, ShowsTheDefaults) {
    const FlasherOptions options;
    EXPECT_EQ(usage("dunmallow", options), std::string("Usage: dunmallow [<option>]*\n") + kOptionsText +
                                               "   hexfile         'Null'\n"
                                               "   mode            'ISOStyle'\n"
                                               "   address         0xfe\n"
                                               "   serialnum       0\n"
                                               "   portnum         41265\n"
                                               "   host name       'localhost'\n"
                                               "   interface       CAN0\n");
}

TEST(Usage, ShowsTheSettingsAsTheyStand) {
    FlasherOptions options;
    options.hexFile = "my file.hex";
    options.mode = NewModule;
    options.address = 0x0A;
    options.serialNumber = 4294967295U;
    options.port = 2000;
    options.hostName = "box";
    options.interfaceIndex = -1;
    EXPECT_EQ(usage("./bin/x", options), std::string("Usage: ./bin/x [<option>]*\n") + kOptionsText +
                                             "   hexfile         'my file.hex'\n"
                                             "   mode            'NewModule'\n"
                                             "   address         0xa\n"
                                             "   serialnum       4294967295\n"
                                             "   portnum         2000\n"
                                             "   host name       'box'\n"
                                             "   interface       CAN-1\n");
}

TEST(Usage, ShowsNothingForAModeWithoutAName) {
    FlasherOptions options;
    options.mode = static_cast<TMode>(4);
    EXPECT_NE(usage("d", options).find("\n   mode            ''\n"), std::string::npos);
}

TEST(Usage, ShowsANegativeAddressAsThirtyTwoBits) {
    FlasherOptions options;
    options.address = -1;
    EXPECT_NE(usage("d", options).find("\n   address         0xffffffff\n"), std::string::npos);
}

TEST(Usage, LeavesTheStreamDecimal) {
    std::ostringstream out;
    printUsage(out, "d", FlasherOptions{});
    out.str("");
    out << 255;
    EXPECT_EQ(out.str(), "255");
}

/// Counts how often the stream was flushed.
class FlushCounter : public std::streambuf {
public:
    int flushes = 0;

protected:
    int sync() override {
        ++flushes;
        return 0;
    }
    int_type overflow(int_type letter) override { return letter; }
};

TEST(Usage, FlushesEachOfItsTwentyLines) {
    FlushCounter counter;
    std::ostream out(&counter);
    printUsage(out, "d", FlasherOptions{});
    EXPECT_EQ(counter.flushes, 20);
}

TEST(OptionParserVersion, IsFlushedOnceEachTime) {
    FlushCounter counter;
    std::ostream out(&counter);
    std::string arguments[] = {"dunmallow", "-v", "-v"};
    std::array<char*, 4> argv{arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    FlasherOptions options;
    EXPECT_EQ(parseOptions(3, argv.data(), options, out, out), std::nullopt);
    EXPECT_EQ(counter.flushes, 2);
}

}  // namespace
