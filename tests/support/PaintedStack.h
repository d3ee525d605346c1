#pragma once
/// How much of its stack a thread has left when it has gone as deep as it ever does.

#include <cstddef>

namespace testsupport {

/// The stack of the thread that makes the object, painted from its far end up to a little below the caller's frame.
/// May be copied; use it while the thread lives. For threads with small stacks: all of it becomes memory in use.
class PaintedStack {
public:
    PaintedStack();

    /// Bytes of the whole stack, as the system states it.
    std::size_t size() const { return bytes; }
    /// Bytes at the far end that nothing has been written to since. Any thread may ask.
    std::size_t untouched() const;

private:
    volatile unsigned char* farEnd = nullptr;
    std::size_t bytes = 0;
};

}  // namespace testsupport
