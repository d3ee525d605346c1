#include "tests/sim/ServerThread.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>
#include <variant>

#include "sim/ScenarioParser.h"
#include "tests/sim/TestClient.h"

namespace simtest {

sim::Descriptor appendTo(const std::string& path) {
    return sim::Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
}

namespace {

sim::Scenario scenarioOf(const std::string& text) {
    auto result = sim::parseScenario(text);
    if (const auto* problem = std::get_if<sim::ScenarioProblem>(&result))
        throw std::runtime_error("scenario: expected " + problem->expected + ", got " + problem->got);
    return std::get<sim::Scenario>(std::move(result));
}

/// Another process may take a port between finding and reserving it.
sim::Listeners reserveFree(std::uint16_t& port) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        port = freePort();
        auto reserved = sim::Listeners::reserve(port);
        if (reserved) return std::move(*reserved);
    }
    throw std::runtime_error("no free port");
}

}  // namespace

ServerThread::ServerThread(const std::string& scenarioText)
    : log(false, appendTo(folder / "log")), journal(appendTo(folder / "journal")) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    stopReading.reset(ends[0]);
    stopWriting.reset(ends[1]);
    sim::Scenario scenario = scenarioOf(scenarioText);
    sim::Listeners listeners = reserveFree(port_);
    if (scenario.settings.listenDelay == sim::Duration(0) && !scenario.settings.refuseConnections) listeners.listen();
    server = std::make_unique<sim::Server>(std::move(listeners), std::move(scenario), log, journal, stopReading.get());
    thread = std::thread([this] { status = server->run(); });
}

ServerThread::~ServerThread() { stop(); }

int ServerThread::stop() {
    const char mark = 0;
    [[maybe_unused]] const ssize_t ignored = write(stopWriting.get(), &mark, 1);
    return wait();
}

int ServerThread::wait() {
    if (thread.joinable()) thread.join();
    server.reset();
    return status;
}

}  // namespace simtest
