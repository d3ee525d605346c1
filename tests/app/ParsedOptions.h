#pragma once
/// A command line, parsed.

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "app/OptionParser.h"

namespace testsupport {

/// Parses `arguments` behind the program name "dunmallow"; owns the texts the settings point into.
class ParsedOptions {
public:
    explicit ParsedOptions(std::vector<std::string> arguments) : texts(std::move(arguments)) {
        texts.insert(texts.begin(), "dunmallow");
        for (std::string& text : texts) argv.push_back(text.data());
        argv.push_back(nullptr);
        status = CANFlasher::parseOptions(static_cast<int>(texts.size()), argv.data(), options, out, err);
    }

    std::optional<int> status;
    CANFlasher::FlasherOptions options;
    std::ostringstream out;
    std::ostringstream err;

private:
    std::vector<std::string> texts;
    std::vector<char*> argv;
};

}  // namespace testsupport
