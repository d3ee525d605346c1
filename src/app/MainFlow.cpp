#include "app/MainFlow.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <new>
#include <string_view>

#include "app/ConsoleViewer.h"
#include "app/EventRing.h"
#include "app/OptionParser.h"
#include "app/ShutdownSignals.h"
#include "sw_drv/RTkernel/linux/ProcessExit.h"

namespace CANFlasher {

namespace {

/// Says on standard error why an upload was not requested; nothing when it was. Returns the exit status. Never returns
/// when a report has ended the run meanwhile: the request failed because of that, and the screen shows how it ended.
int reportUpload(std::uint32_t result, const consoleViewer& viewer) {
    threadfunc::holdWhileProcessEnds();
    switch (result) {
        case kUploadFileNotFound:
            std::cerr << "Unable to find specified file" << std::endl;
            break;
        case kUploadInvalidAddress:
            std::cerr << "Invalid address" << std::endl;
            break;
        case kUploadServerNotReachable:
            // No quote behind the path: a path taken from the end of this line has been used as it is ever since.
            std::cerr << "Unable to locate server application: '" << viewer.serverPath() << std::endl;
            break;
        default:
            return EXIT_SUCCESS;
    }
    return EXIT_FAILURE;
}

int startAndRequest(consoleViewer& viewer, const FlasherOptions& options) {
    if (viewer.startServer(options.interfaceIndex) == 0) {
        std::cerr << "Unable to start server application" << std::endl;
        return EXIT_FAILURE;
    }
    return reportUpload(viewer.upload(options.mode, options.address, options.serialNumber, options.hexFile), viewer);
}

/// Polls without a sleep on purpose: nothing else runs on this thread, the upload ends the process from the viewer, and
/// terminals of the family show a run by the core it keeps busy. Prints and allocates nothing: the signal handler may
/// interrupt it anywhere.
void waitForShutdown(const FlasherOptions& options) {
    while (!options.quitRequested) dispatchEvent();
}

/// Called by operator new on any thread. With `_exit`, for `exit` would want memory and locks that this thread may
/// have; nothing is lost, since whatever is printed is flushed at once.
[[noreturn]] void endWithoutMemory() {
    constexpr std::string_view kLine = "dunmallow: out of memory\n";
    threadfunc::holdWhileProcessEnds();
    static_cast<void>(!write(STDERR_FILENO, kLine.data(), kLine.size()));
    _exit(EXIT_FAILURE);
}

}  // namespace

int runProgram(int argc, char* argv[]) {
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
