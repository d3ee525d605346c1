#include "Hardware/ServerCommand.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

using namespace CANFlasher;

namespace {

struct CommandRow {
    const char* why;
    const char* path;
    std::int32_t interface;
    std::int32_t port;
    const char* command;
};
class ServerCommand : public testing::TestWithParam<CommandRow> {};

TEST_P(ServerCommand, StartsTheServer) {
    const CommandRow& row = GetParam();
    EXPECT_EQ(startServerCommand(row.path, row.interface, row.port), row.command);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ServerCommand,
    testing::Values(
        CommandRow{"defaults", "/usr/local/varnex/bin/corvane", 0, 41265,
                   "start-stop-daemon -n corvane -a /usr/local/varnex/bin/corvane -S -- -q -i 0 -p 41265"},
        CommandRow{"ordinaryUser", "/home/op/.varnex/bin/corvane", 1, 2000,
                   "start-stop-daemon -n corvane -a /home/op/.varnex/bin/corvane -S -- -q -i 1 -p 2000"},
        CommandRow{"negativeInterfaceAsGiven", "/c", -1, 65535,
                   "start-stop-daemon -n corvane -a /c -S -- -q -i -1 -p 65535"},
        CommandRow{"extremes", "/c", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max(),
                   "start-stop-daemon -n corvane -a /c -S -- -q -i -2147483648 -p 2147483647"},
        CommandRow{"blanksAreLeftToTheShell", "/home/the op/.varnex/bin/corvane", 0, 41265,
                   "start-stop-daemon -n corvane -a /home/the op/.varnex/bin/corvane -S -- -q -i 0 -p 41265"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST(ServerCommand, StopEndsWithABlank) {
    EXPECT_EQ(stopServerCommand("/usr/local/varnex/bin/corvane"),
              "start-stop-daemon -n corvane -a /usr/local/varnex/bin/corvane -K ");
}

}  // namespace
