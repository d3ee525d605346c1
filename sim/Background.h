#pragma once
/// What makes a process a good daemon.

#include <optional>

#include "sim/Descriptor.h"
#include "sim/Result.h"

namespace sim {

/// Opens /dev/null for standard descriptors that are closed, so that no socket or file gets their numbers.
void openStandardDescriptors();

/// Closes all descriptors but the standard ones: a daemon must not keep its starter's pipes open.
void closeInheritedDescriptors();

/// Forks. True in the child, which has left its starter's session and folder and has /dev/null as standard descriptors;
/// false in the parent, which shall end with status 0.
Result<bool> goToBackground();

/// Turns SIGTERM and SIGINT into a readable descriptor, and ignores SIGPIPE. One object a process at a time; it may
/// cross a fork.
class StopSignals {
public:
    /// Installs the handlers. Fails when there is no room for a pipe.
    static Result<StopSignals> install();
    /// Readable once one of the signals has come.
    int descriptor() const { return readEnd.get(); }

private:
    StopSignals(Descriptor reading, Descriptor writing) : readEnd(std::move(reading)), writeEnd(std::move(writing)) {}

    Descriptor readEnd;
    Descriptor writeEnd;
};

}  // namespace sim
