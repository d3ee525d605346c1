#pragma once
/// The one gate through which the process ends. Two threads in `exit` at once are undefined in the C library.

namespace threadfunc {

/// Ends the process: the first caller runs `exit(status)`. Every later caller on another thread waits for ever in it
/// and its status is lost. Called again by the thread that is already inside (from what `exit` runs), it ends the
/// process at once with the new status. Safe from any thread; not from a signal handler.
[[noreturn]] void exitProcess(int status);

/// Takes the gate without ending anything. Returns false when a thread, also the calling one, has it already. Whoever
/// gets true must end the process. For those that must not wait; never waits, safe in a signal handler.
[[nodiscard]] bool claimProcessExit();

/// Returns at once unless another thread has the gate; then it waits for ever. For those about to report a failure:
/// while the process ends, connections fail because they are taken down, and that is nobody's fault. Safe from any
/// thread; not from a signal handler.
void holdWhileProcessEnds();

}  // namespace threadfunc
