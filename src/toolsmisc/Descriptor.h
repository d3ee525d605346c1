#pragma once
/// The owner of an open descriptor, for the calls of this library that open one on their way.

#include <unistd.h>

#include <utility>

namespace toolsmisc {

/// Owns a descriptor and closes it. A negative one is held but not owned: -1 of a call that failed, AT_FDCWD. One
/// thread at a time.
class Descriptor {
public:
    /// Takes `opened`.
    explicit Descriptor(int opened) : fd(opened) {}
    /// Takes over what `other` owns.
    Descriptor(Descriptor&& other) noexcept : fd(other.release()) {}
    /// Closes what it owns and takes over what `other` owns.
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }

    /// Whether a descriptor is owned.
    [[nodiscard]] bool valid() const { return fd >= 0; }
    /// The descriptor, still owned here, or the negative number.
    [[nodiscard]] int get() const { return fd; }
    /// The descriptor, owned by the caller from now on, or the negative number. Leaves -1.
    [[nodiscard]] int release() { return std::exchange(fd, -1); }

private:
    int fd;
};

}  // namespace toolsmisc
