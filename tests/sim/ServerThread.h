#pragma once
/// The server inside the test's process, on a thread of its own.

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "sim/Descriptor.h"
#include "sim/Journal.h"
#include "sim/Log.h"
#include "sim/Scenario.h"
#include "sim/Server.h"
#include "tests/support/TempFolder.h"

namespace simtest {

/// The file to write behind its end, as the journal and the log take it; made when it is missing.
sim::Descriptor appendTo(const std::string& path);

/// Serves a scenario on a free port from construction to `stop` or destruction.
class ServerThread {
public:
    explicit ServerThread(const std::string& scenarioText = "speed 1000");
    ~ServerThread();

    std::uint16_t port() const { return port_; }
    /// Ends the server and returns its exit status.
    int stop();
    /// Waits until the server ends by itself and returns its exit status.
    int wait();
    /// What the journal and the log hold by now.
    std::string journalText() const { return testsupport::readFile(folder / "journal"); }
    std::string logText() const { return testsupport::readFile(folder / "log"); }

private:
    testsupport::TempFolder folder;
    std::uint16_t port_ = 0;
    sim::Descriptor stopReading, stopWriting;
    sim::Log log;
    sim::Journal journal;
    std::unique_ptr<sim::Server> server;
    int status = -1;  // written by the thread, read after it was joined
    std::thread thread;
};

}  // namespace simtest
