#include "sim/CommandLine.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

namespace {

std::optional<std::int32_t> wholeNumber(std::string_view text, std::int32_t lowest, std::int32_t highest) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < lowest || value > highest)
        return std::nullopt;
    return value;
}

std::string wrongValue(char option, const char* expected, std::string_view got) {
    return std::string("-") + option + " needs " + expected + ", got '" + std::string(got) + "'";
}

/// Applies an option that takes no value; false when it is none.
bool applyFlag(char option, CommandLine& line) {
    if (option == 'q') line.quiet = true;
    if (option == 'f') line.foreground = true;
    if (option == 'h') line.help = true;
    return option == 'q' || option == 'f' || option == 'h';
}

/// Applies an option with its value. Returns what is wrong, empty when nothing is.
std::string applyValue(char option, std::string_view value, CommandLine& line) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (option == 's') {
        line.scenario = value;
        return value.empty() ? wrongValue(option, "a scenario", value) : std::string();
    }
    const bool isPort = option == 'p';
    const auto number = isPort ? wholeNumber(value, 1, 65535) : wholeNumber(value, Limits::min(), Limits::max());
    if (!number) return wrongValue(option, isPort ? "a port from 1 to 65535" : "an interface index", value);
    if (isPort) {
        line.port = static_cast<std::uint16_t>(*number);
    } else {
        line.interfaceIndex = *number;
    }
    return {};
}

/// Walks over the arguments. getopt() would do, but keeps a pointer into the last command line that it was given.
class Walker {
public:
    explicit Walker(std::vector<std::string_view> words) : arguments(std::move(words)) {}

    std::variant<CommandLine, std::string> run() {
        std::string wrong;
        while (next < arguments.size() && wrong.empty() && !line.help) wrong = takeArgument(arguments[next++]);
        if (!wrong.empty()) return wrong;
        return line;
    }

private:
    std::string takeArgument(std::string_view word) {
        if (optionsEnded || !word.starts_with('-') || word == "-")
            return "unexpected operand '" + std::string(word) + "'";
        optionsEnded = word == "--";
        return optionsEnded ? std::string() : takeOptions(word.substr(1));
    }

    /// Takes the options of one word, such as -qf or -p80.
    std::string takeOptions(std::string_view letters) {
        while (!letters.empty() && !line.help) {
            const char option = letters[0];
            letters.remove_prefix(1);
            if (applyFlag(option, line)) continue;
            if (std::string_view("ips").find(option) == std::string_view::npos)
                return std::string("unknown option -") + option;
            if (letters.empty() && next == arguments.size()) return std::string("-") + option + " needs a value";
            return applyValue(option, letters.empty() ? arguments[next++] : letters, line);
        }
        return {};
    }

    std::vector<std::string_view> arguments;
    std::size_t next = 0;
    bool optionsEnded = false;
    CommandLine line;
};

}  // namespace

std::variant<CommandLine, std::string> readCommandLine(int argc, char* const* argv) {
    std::vector<std::string_view> words;
    for (int index = 1; index < argc; ++index) words.emplace_back(argv[index]);
    return Walker(std::move(words)).run();
}

std::string usageText(const std::string& programName) {
    return "Usage: " + programName +
           " [-q] [-f] [-i INTERFACE] [-p PORT] [-s SCENARIO]\n"
           "       " +
           programName +
           " -h\n"
           "Simulated CAN server: plays firmware uploads for clients on the loopback addresses.\n"
           "  -q            Quiet: no log on standard error (errors of the start are shown)\n"
           "  -f            Stay in the foreground\n"
           "  -i INTERFACE  CAN interface index, a number; only the log shows it (default 0)\n"
           "  -p PORT       TCP port, 1 to 65535 (default 41265)\n"
           "  -s SCENARIO   Path of a scenario file, or the name of a ready one, such as erase-timeout\n"
           "  -h            Show this message\n"
           "Environment:\n"
           "  CORVANE_SCENARIO      Scenario when -s is absent\n"
           "  CORVANE_SCENARIO_DIR  Folder of the ready scenarios\n"
           "  CORVANE_SETTINGS      Settings as in scenario files, ';' between them\n"
           "  CORVANE_IDLE_SECONDS  End after so many seconds without a client\n"
           "  CORVANE_JOURNAL       Append every packet to this file\n"
           "  CORVANE_LOG           Append the log to this file\n"
           "Exit status: 0 ended as told, 1 cannot start, 2 wrong arguments or scenario.\n";
}

}  // namespace sim
