#pragma once
/// The command line, as start-stop-daemon and people give it.

#include <cstdint>
#include <string>
#include <variant>

namespace sim {

/// What the command line says. `help` stands for itself: nothing behind it was looked at.
struct CommandLine {
    bool quiet = false;
    bool foreground = false;
    bool help = false;
    std::int32_t interfaceIndex = 0;
    std::uint16_t port = 41265;
    std::string scenario;  // path or name, empty: none given
};

/// Reads the command line. The text says what is wrong with it.
std::variant<CommandLine, std::string> readCommandLine(int argc, char* const* argv);

/// The usage text, lines and all.
std::string usageText(const std::string& programName);

}  // namespace sim
