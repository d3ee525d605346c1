#include "app/ConsoleViewer.h"

#include <iostream>

#include "app/StatusBlock.h"

namespace CANFlasher {

namespace {

/// Done, or an error: everything from ErrDeviceNotFound to the largest signed value.
bool isFinalState(std::uint32_t state) { return state == Done || state - ErrDeviceNotFound <= 0x7FFFFF9BU; }

/// The status is 0 for every end of an upload: scripts tell a refused command line from an upload that ran.
[[noreturn]] void finish() {
    std::cout << std::endl;
    threadfunc::exitProcess(0);
}

}  // namespace

consoleViewer::consoleViewer(bool followUpload, int port, const char* host)
    : CANFlasherClient(port, host), exitAfterFirstDraw(followUpload ? 0 : 1) {}

// Here and not only in the base: a status painted meanwhile must not find this part gone.
consoleViewer::~consoleViewer() { shutDown(); }

void consoleViewer::drawStatus(const TStatus& status) { CANFlasher::drawStatus(std::cout, status, firstDraw); }

void consoleViewer::statusChanged(const TStatus& status) {
    drawStatus(status);
    if (exitAfterFirstDraw == 1) finish();
    if (status.state == Locked) finish();
    if (firstDraw) return;  // never: painting has just cleared it
    if (isFinalState(status.state)) finish();
}

}  // namespace CANFlasher
