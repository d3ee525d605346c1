#include "app/ConsoleViewer.h"

#include <unistd.h>

#include <iostream>

#include "app/StatusBlock.h"

namespace CANFlasher {

namespace {

/// Done, or an error: everything from ErrDeviceNotFound to the largest signed value.
bool isFinalState(std::uint32_t state) { return state == Done || state - ErrDeviceNotFound <= 0x7FFFFF9BU; }

}  // namespace

consoleViewer::consoleViewer(bool followUpload, int port, const char* host)
    : CANFlasherClient(port, host), exitAfterFirstDraw(followUpload ? 0 : 1) {}

// Here and not only in the base: a status painted meanwhile must not find this part gone.
consoleViewer::~consoleViewer() {
    showReports();  // the thread that one waits on is joined
    shutDown();
}

void consoleViewer::drawStatus(const TStatus& status) { CANFlasher::drawStatus(std::cout, status, firstDraw); }

void consoleViewer::statusChanged(const TStatus& status) {
    held.wait(true);
    if (outcome == Outcome::failed) return;
    drawStatus(status);
    if (exitAfterFirstDraw == 1) return finish();
    if (status.state == Locked) return finish();
    if (firstDraw) return;  // never: painting has just cleared it
    if (isFinalState(status.state)) finish();
}

/// The status is 0 for every end of an upload: scripts tell a refused command line from an upload that ran.
void consoleViewer::finish() {
    if (!settle(Outcome::ended)) return;
    std::cout << std::endl;
    threadfunc::exitProcess(0);
}

void consoleViewer::holdReports() { held = true; }

void consoleViewer::showReports() {
    held = false;
    held.notify_all();
}

void consoleViewer::giveUp() {
    while (!settle(Outcome::failed)) pause();
    showReports();
}

/// Whether the run comes to `reached`: false when it has come to the other outcome before.
bool consoleViewer::settle(Outcome reached) {
    auto before = Outcome::open;
    return outcome.compare_exchange_strong(before, reached) || before == reached;
}

}  // namespace CANFlasher
