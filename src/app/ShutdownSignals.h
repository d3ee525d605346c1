#pragma once
/// SIGINT and SIGTERM to the event ring, and from there to the settings record.

#include <cstdint>

namespace CANFlasher {

/// Prepares the process for its end: installs the handler for SIGINT, then SIGTERM, empties the process's event ring
/// and makes shutDownEvent its handler. A signal that comes meanwhile counts. Returns false, after a line on standard
/// error, when the system refuses a handler.
[[nodiscard]] bool prepareShutdown();

/// The signal handler: posts EvtShutdown and prints one line on standard output with a single write, so that it may
/// interrupt anything, printf and malloc included. A pipe that nobody reads any more does no harm. `errno` is left as
/// it was.
void handleShutDownSignal(int signal);

/// The event handler: on EvtShutdown sets quitRequested of the process's settings; ignores every other event.
void shutDownEvent(std::uint32_t id, std::uint32_t parameter);

}  // namespace CANFlasher
