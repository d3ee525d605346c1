#pragma once
/// What the process writes to a standard descriptor, printf, streams and plain writes alike.

#include <string>

namespace testsupport {

/// Redirects descriptor 1 or 2 into a temporary file for the life of the object. One object a descriptor at a time.
class CapturedOutput {
public:
    /// `descriptor` is STDOUT_FILENO or STDERR_FILENO.
    explicit CapturedOutput(int descriptor);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// All that was written since construction; flushes both standard streams first. May be called repeatedly.
    std::string text() const;

    /// What has come out so far, without what still lies in a buffer.
    std::string written() const;

private:
    int descriptor;
    int saved;
    int file;
};

}  // namespace testsupport
