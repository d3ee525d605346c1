#include "app/MainFlow.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <new>
#include <string>

#include "app/BrokenPipesIgnored.h"
#include "app/ConsoleViewer.h"
#include "app/EventRing.h"
#include "app/OptionParser.h"
#include "app/ShutdownSignals.h"
#include "app/SignalBlock.h"
#include "sw_drv/RTkernel/linux/ProcessExit.h"
#include "sw_drv/RTkernel/linux/WriteAll.h"

namespace CANFlasher {

namespace {

/// Gives up the run: says on standard error why nothing is uploaded and returns the exit status. Never returns when the
/// run has ended meanwhile: whatever failed did so because of that, and the screen shows how it ended. In one write,
/// whatever signal comes and also when nobody reads it.
int fail(consoleViewer& viewer, const std::string& reason) {
    viewer.giveUp();
    threadfunc::holdWhileProcessEnds();
    const SignalBlock whileWriting;
    const BrokenPipesIgnored untilItIsWritten;
    std::cerr << reason + '\n' << std::flush;
    return EXIT_FAILURE;
}

/// The exit status for what the request of an upload returned.
int reportUpload(std::uint32_t result, consoleViewer& viewer) {
    switch (result) {
        case kUploadFileNotFound:
            return fail(viewer, "Unable to find specified file");
        case kUploadInvalidAddress:
            return fail(viewer, "Invalid address");
        case kUploadServerNotReachable:
            // No quote behind the path: a path taken from the end of this line has been used as it is ever since.
            return fail(viewer, "Unable to locate server application: '" + viewer.serverPath());
        default:
            return EXIT_SUCCESS;
    }
}

int startAndRequest(consoleViewer& viewer, const FlasherOptions& options) {
    viewer.holdReports();  // a server that runs already may tell how an upload of somebody else's ended
    if (viewer.startServer(options.interfaceIndex) == 0) return fail(viewer, "Unable to start server application");
    viewer.showReports();
    return reportUpload(viewer.upload(options.mode, options.address, options.serialNumber, options.hexFile), viewer);
}

/// Polls without a sleep on purpose: nothing else runs on this thread, the upload ends the process from the viewer, and
/// terminals of the family show a run by the core it keeps busy. Prints and allocates nothing: the signal handler may
/// interrupt it anywhere.
void waitForShutdown(const FlasherOptions& options) {
    while (!options.quitRequested) dispatchEvent();
}

/// Standard streams that were closed lead nowhere from now on; else the connection to the server, or a pipe, would take
/// their number and with it the program's texts.
void openClosedStandardStreams() {
    int lowest = open("/dev/null", O_RDWR);
    while (lowest >= 0 && lowest <= STDERR_FILENO) lowest = open("/dev/null", O_RDWR);
    if (lowest >= 0) close(lowest);
}

/// Called by operator new on any thread. With `_exit`, for `exit` would want memory and locks that this thread may
/// have; nothing is lost, since whatever is printed is flushed at once.
[[noreturn]] void endWithoutMemory() {
    threadfunc::holdWhileProcessEnds();
    threadfunc::writeAll(STDERR_FILENO, "dunmallow: out of memory\n");
    _exit(EXIT_FAILURE);
}

}  // namespace

int runProgram(int argc, char* argv[]) {
    openClosedStandardStreams();
    std::set_new_handler(endWithoutMemory);
    if (const auto status = parseOptions(argc, argv, flasherOptions, std::cout, std::cerr)) return *status;
    if (!prepareShutdown()) return EXIT_FAILURE;
    if (flasherOptions.hexFile == nullptr) return EXIT_SUCCESS;
    return runUpload(flasherOptions);
}

int runUpload(FlasherOptions& options) {
    consoleViewer viewer(true, options.port, options.hostName);
    const int status = startAndRequest(viewer, options);
    if (status != EXIT_SUCCESS) {
        viewer.closeSocket(false);
        options.quitRequested = true;
    }
    waitForShutdown(options);
    return status;
}

}  // namespace CANFlasher
