#include "sim/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <system_error>

#include "sim/Background.h"
#include "sim/CommandLine.h"
#include "sim/Configuration.h"
#include "sim/Journal.h"
#include "sim/Listeners.h"
#include "sim/Log.h"
#include "sim/Server.h"

namespace sim {

namespace {

constexpr int kUsageStatus = 2;

int complain(const Failure& failure) {
    std::cerr << "corvane: " << printableText(failure.text) << std::endl;
    return failure.status;
}

int usageError(const std::string& wrong, const std::string& programName) {
    std::cerr << "corvane: " << printableText(wrong) << '\n' << usageText(programName) << std::flush;
    return kUsageStatus;
}

/// Opens for appending; without a path there is nothing to open.
Result<Descriptor> openForAppending(const std::string& path) {
    if (path.empty()) return Descriptor();
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666));
    if (!file.valid()) return Failure{1, path + ": " + std::generic_category().message(errno)};
    return file;
}

/// All that must be in order before the server may leave its starter.
struct Prepared {
    StopSignals signals;
    Listeners listeners;
    Log log;
    Journal journal;
};

Result<Prepared> prepare(const CommandLine& line, const Settings& settings) {
    Result<StopSignals> signals = StopSignals::install();
    if (!signals) return signals.failure();
    Result<Descriptor> log = openForAppending(settings.log);
    if (!log) return log.failure();
    Result<Descriptor> journal = openForAppending(settings.journal);
    if (!journal) return journal.failure();
    Result<Listeners> listeners = Listeners::reserve(line.port);
    if (!listeners) return listeners.failure();
    if (settings.listenDelay == Duration(0) && !settings.refuseConnections)
        if (auto failure = listeners->listen()) return *failure;
    return Prepared{std::move(*signals), std::move(*listeners), Log(!line.quiet, std::move(*log)),
                    Journal(std::move(*journal))};
}

void logStart(const CommandLine& line, const Prepared& parts) {
    parts.log.line("process " + std::to_string(getpid()) + ", port " + std::to_string(line.port) + ", CAN" +
                   std::to_string(line.interfaceIndex) +
                   (parts.listeners.listening() ? ", listens" : ", does not listen yet"));
}

int serve(const CommandLine& line, Scenario scenario) {
    Result<Prepared> parts = prepare(line, scenario.settings);
    if (!parts) return complain(parts.failure());
    if (!line.foreground) {
        const Result<bool> inChild = goToBackground();
        if (!inChild) return complain(inChild.failure());
        if (!*inChild) return 0;
    }
    logStart(line, *parts);
    return Server(std::move(parts->listeners), std::move(scenario), parts->log, parts->journal,
                  parts->signals.descriptor())
        .run();
}

}  // namespace

int runProgram(int argc, char** argv) {
    openStandardDescriptors();
    const std::string programName = argc > 0 ? argv[0] : "corvane";
    const auto read = readCommandLine(argc, argv);
    if (const auto* wrong = std::get_if<std::string>(&read)) return usageError(*wrong, programName);
    const auto& line = std::get<CommandLine>(read);
    if (line.help) {
        std::cout << usageText(programName) << std::flush;
        return 0;
    }
    if (!line.foreground) closeInheritedDescriptors();
    Result<Scenario> scenario = loadScenario(line, processEnvironment);
    if (!scenario) return complain(scenario.failure());
    if (scenario->settings.refuseStart)
        return complain({*scenario->settings.refuseStart, "refuses to start, as the scenario says"});
    return serve(line, std::move(*scenario));
}

}  // namespace sim
