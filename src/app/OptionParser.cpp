#include "app/OptionParser.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <ostream>

#include "AgApp/SuiteVersions.h"
#include "Hardware/UploadNames.h"
#include "app/Usage.h"

namespace CANFlasher {

namespace {

constexpr std::uint32_t kLowestPort = 2000;
constexpr std::uint32_t kHighestPort = 65535;

/// Decimal number at the start of `text`; beyond `lowest` or `highest` it is that bound.
std::int64_t decimalWithin(const char* text, std::int64_t lowest, std::int64_t highest) {
    return std::clamp<std::int64_t>(std::strtoll(text, nullptr, 10), lowest, highest);
}

/// What strtol gives where long has 32 bits.
std::int32_t signedNumber(const char* text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(decimalWithin(text, Limits::min(), Limits::max()));
}

/// A serial number too large for its 32 bits must not turn into another module's: it ends at the top.
std::uint32_t serialNumber(const char* text) {
    return static_cast<std::uint32_t>(
        decimalWithin(text, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::uint32_t>::max()));
}

/// What strtoul in base 16 gives where long has 32 bits: a minus sign negates, too large is all ones.
std::uint32_t hexadecimalNumber(const char* text) {
    constexpr std::uint64_t kHighest = std::numeric_limits<std::uint32_t>::max();
    const bool negative = text[std::strspn(text, " \t\n\v\f\r")] == '-';
    const std::uint64_t value = std::strtoull(text, nullptr, 16);
    if ((negative ? 0 - value : value) > kHighest) return kHighest;
    return static_cast<std::uint32_t>(value);
}

/// Only the small x marks a hexadecimal address: "0X10" is the decimal number 0 with something behind it.
std::int32_t deviceAddress(const char* text) {
    if (std::strncmp(text, "0x", 2) == 0) return static_cast<std::int32_t>(hexadecimalNumber(text + 2));
    return signedNumber(text);
}

bool setPort(const char* text, FlasherOptions& options, std::ostream& err) {
    const std::int32_t value = signedNumber(text);
    if (static_cast<std::uint32_t>(value) - kLowestPort <= kHighestPort - kLowestPort) {
        options.port = value;
        return true;
    }
    // The argument stands behind the range as well: log readers of the family take it from the end of the last line.
    err << "Invalid port number: " << text << std::endl;
    err << "Valid range        : [" << kLowestPort << ".." << kHighestPort << "]" << text << std::endl;
    return false;
}

/// Applies one option that getopt found. Returns the status to end with, or nothing to go on.
std::optional<int> applyOption(int option, const char* program, FlasherOptions& options, std::ostream& out,
                               std::ostream& err) {
    switch (option) {
        case 'u':
            options.hexFile = optarg;
            break;
        case 'm':
            options.mode = modeOfOptionName(optarg);
            break;
        case 'a':
            options.address = deviceAddress(optarg);
            break;
        case 'n':
            options.serialNumber = serialNumber(optarg);
            break;
        case 'p':
            if (!setPort(optarg, options, err)) return EXIT_FAILURE;
            break;
        case 's':
            options.hostName = optarg;
            break;
        case 'i':
            options.interfaceIndex = signedNumber(optarg);
            break;
        case 'v':
            out << AgApp::getVersionLabel() << std::endl;
            break;
        case 'h':
            printUsage(err, program, options);
            return EXIT_SUCCESS;
        default:
            printUsage(err, program, options);
            return EXIT_FAILURE;
    }
    return std::nullopt;
}

}  // namespace

std::optional<int> parseOptions(int argc, char* argv[], FlasherOptions& options, std::ostream& out, std::ostream& err) {
    opterr = 0;
    optind = 0;  // begins anew, also after an earlier call stopped half-way
    const char* const program = argc > 0 ? argv[0] : "";
    for (int option = 0; (option = getopt(argc, argv, "h?u:m:a:n:p:s:i:v")) != -1;)
        if (const auto status = applyOption(option, program, options, out, err)) return status;
    return std::nullopt;
}

}  // namespace CANFlasher
