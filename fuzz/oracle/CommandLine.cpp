#include "fuzz/oracle/CommandLine.h"

#include <array>
#include <string_view>

#include "AgApp/SuiteVersions.h"

namespace fuzz {

namespace {

constexpr std::array<const char*, 4> kModes{"ISOStyle", "MTCAN", "NewModule", "Global"};

int digitOf(char letter) {
    if (letter >= '0' && letter <= '9') return letter - '0';
    if (letter >= 'a' && letter <= 'z') return letter - 'a' + 10;
    if (letter >= 'A' && letter <= 'Z') return letter - 'A' + 10;
    return 36;
}

/// The number at the start of `text` behind blanks, and a sign; far beyond 32 bits it stays where it is.
std::int64_t leadingNumber(std::string_view text, int radix) {
    const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(std::min(begin, text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (radix == 16 && prefixed && digitOf(text[2]) < 16) text.remove_prefix(2);
    std::int64_t value = 0;
    for (std::size_t i = 0; i < text.size() && digitOf(text[i]) < radix; ++i)
        value = std::min(value * radix + digitOf(text[i]), std::int64_t{1} << 40);
    return negative ? -value : value;
}

std::int64_t within(std::int64_t lowest, std::int64_t value, std::int64_t highest) {
    return value < lowest ? lowest : value > highest ? highest : value;
}

std::int32_t signed32(std::string_view text) {
    return static_cast<std::int32_t>(within(-2147483648, leadingNumber(text, 10), 2147483647));
}

std::int32_t addressOf(const std::string& text) {
    if (text.substr(0, 2) != "0x") return signed32(text);
    const std::int64_t value = leadingNumber(std::string_view(text).substr(2), 16);
    if (value > 4294967295 || value < -4294967295) return -1;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

class Reader {
public:
    explicit Reader(const std::vector<std::string>& all) : arguments(all) {}

    ExpectedRun run() {
        for (next = 1; next < arguments.size() && !result.status;) {
            const std::string& argument = arguments[next++];
            if (argument == "--") break;
            if (argument.size() > 1 && argument[0] == '-') readLetters(argument);
        }
        return result;
    }

private:
    void readLetters(const std::string& argument) {
        for (std::size_t i = 1; i < argument.size() && !result.status; ++i) {
            const char letter = argument[i];
            if (letter == 'v') {
                result.out += AgApp::getVersionLabel() + "\n";
            } else if (letter == 'h') {
                end(0);
            } else if (std::string_view("umanpsi").find(letter) == std::string_view::npos) {
                end(1);
            } else if (i + 1 < argument.size()) {
                return take(letter, argument.substr(i + 1));
            } else if (next < arguments.size()) {
                return take(letter, arguments[next++]);
            } else {
                end(1);
            }
        }
    }

    void take(char letter, const std::string& value) {
        if (letter == 'u') result.hexFile = value;
        if (letter == 's') result.host = value;
        if (letter == 'a') result.address = addressOf(value);
        if (letter == 'i') result.interface = signed32(value);
        if (letter == 'n')
            result.serial = static_cast<std::uint32_t>(within(-2147483648, leadingNumber(value, 10), 4294967295));
        if (letter == 'm') {
            result.mode = 0;
            for (std::size_t mode = 0; mode < kModes.size(); ++mode)
                if (value == kModes[mode]) result.mode = static_cast<int>(mode);
        }
        if (letter == 'p') takePort(value);
    }

    void takePort(const std::string& value) {
        const std::int64_t port = leadingNumber(value, 10);
        if (port >= 2000 && port <= 65535) {
            result.port = static_cast<std::int32_t>(port);
            return;
        }
        result.err += "Invalid port number: " + value + "\nValid range        : [2000..65535]" + value + "\n";
        result.status = 1;
    }

    void end(int status) {
        std::array<char, 16> address{};
        std::snprintf(address.data(), address.size(), "%x", static_cast<unsigned>(result.address));
        result.status = status;
        result.err += "Usage: " + arguments[0] +
                      " [<option>]*\n"
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
                      "Default values:\n"
                      "   hexfile         '" +
                      result.hexFile + "'\n   mode            '" + kModes[static_cast<std::size_t>(result.mode)] +
                      "'\n   address         0x" + address.data() + "\n   serialnum       " +
                      std::to_string(result.serial) + "\n   portnum         " + std::to_string(result.port) +
                      "\n   host name       '" + result.host + "'\n   interface       CAN" +
                      std::to_string(result.interface) + "\n";
    }

    const std::vector<std::string>& arguments;
    std::size_t next = 1;
    ExpectedRun result;
};

}  // namespace

std::vector<std::string> argumentsOf(Bytes bytes) {
    std::vector<std::string> arguments{"dunmallow"};
    if (!bytes.empty()) arguments.emplace_back();
    for (const std::uint8_t byte : bytes) {
        if (byte == 0 || byte == '\n') {
            arguments.emplace_back();
        } else {
            arguments.back() += static_cast<char>(byte);
        }
    }
    return arguments;
}

ExpectedRun expectedRun(const std::vector<std::string>& arguments) { return Reader(arguments).run(); }

}  // namespace fuzz
