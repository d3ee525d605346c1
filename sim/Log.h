#pragma once
/// What the server says about itself, for people.

#include <string>
#include <string_view>

#include "sim/Descriptor.h"

namespace sim {

/// `text` with each byte that is no printable ASCII character as \xHH, so that it stays one line.
std::string printableText(std::string_view text);

/// Seconds on the monotonic clock with six decimals, as log and journal show them. Defined for moments from 0 on.
std::string stampText(long long microsecondsSinceStart);

/// Writes whole lines to standard error and to a file, to either, or to neither.
class Log {
public:
    /// Takes `appendFile`, which was opened for appending, or is none.
    explicit Log(bool withStandardError = false, Descriptor appendFile = Descriptor())
        : toStandardError(withStandardError), file(std::move(appendFile)) {}

    /// One line with a time stamp; control characters in `text` are shown, not written.
    void line(std::string_view text) const;

private:
    bool toStandardError;
    Descriptor file;
};

}  // namespace sim
