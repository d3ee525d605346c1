#pragma once
/// The command line, read a second time: one argument after the other, one letter after the other.

#include <optional>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fuzz {

/// The program's name "dunmallow" and the arguments that `bytes` hold, a zero byte or a line end between them.
std::vector<std::string> argumentsOf(Bytes bytes);

/// What has to come out of a command line.
struct ExpectedRun {
    std::optional<int> status;  ///< to end with, none to go on
    std::string hexFile = "Null";
    int mode = 0;
    std::uint32_t serial = 0;
    std::int32_t interface = 0, address = 254, port = 41265;
    std::string host = "localhost";
    std::string out, err;
};

ExpectedRun expectedRun(const std::vector<std::string>& arguments);

}  // namespace fuzz
