#pragma once
/// The system calls of this test program go through these (linker option --wrap). Without a script they do what they
/// always do. Scripts are for one thread and are cleared by their object's destructor.

#include <cstddef>
#include <deque>
#include <vector>

namespace intercept {

/// While it lives, `vsnprintf` prints as ever but returns the given results, one a call, as long as there are any.
class FormattedLengths {
public:
    explicit FormattedLengths(std::deque<int> lengths);
    ~FormattedLengths();
    FormattedLengths(const FormattedLengths&) = delete;
    FormattedLengths& operator=(const FormattedLengths&) = delete;

    std::deque<int> results;
    std::vector<std::size_t> limits;  // what each call was told about the buffer's size
};

}  // namespace intercept
