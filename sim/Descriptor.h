#pragma once
/// Owner of one file descriptor.

#include <unistd.h>

#include <utility>

namespace sim {

/// Closes its descriptor at the end of its life. -1 stands for none.
class Descriptor {
public:
    /// Takes `descriptor`.
    explicit Descriptor(int descriptor = -1) : number(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int get() const { return number; }
    bool valid() const { return number >= 0; }

    /// Closes what it holds and takes `other`.
    void reset(int other = -1) {
        if (valid()) close(number);
        number = other;
    }
    /// Hands the descriptor to the caller, who closes it.
    [[nodiscard]] int release() { return std::exchange(number, -1); }

private:
    int number;
};

}  // namespace sim
