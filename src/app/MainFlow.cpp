#include "app/MainFlow.h"

#include <cstdlib>
#include <iostream>

#include "app/ConsoleViewer.h"
#include "app/EventRing.h"
#include "app/OptionParser.h"
#include "app/ShutdownSignals.h"

namespace CANFlasher {

namespace {

/// Says on standard error why an upload was not requested; nothing when it was. Returns the exit status.
int reportUpload(std::uint32_t result, const consoleViewer& viewer) {
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

}  // namespace

int runProgram(int argc, char* argv[]) {
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
