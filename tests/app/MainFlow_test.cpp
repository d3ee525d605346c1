// Whole runs of the program, each in a forked process, against a server played by hand.
#include "app/MainFlow.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AgApp/Directories.h"
#include "AgApp/SuiteVersions.h"
#include "app/Usage.h"
#include "tests/Hardware/HandServer.h"
#include "tests/app/ForkedRun.h"
#include "tests/support/TempFolder.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testsupport::Bytes;
using testsupport::bytes;
using testsupport::ForkedRun;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::waitFor;

namespace {

// What the forked process finds in place of the system's calls; set before it is forked.
std::function<int(const char*)> onSystem;
std::function<void()> onRealpath;
int refusedSignal = 0;
bool unresolvable = false;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {
int __wrap_system(const char* command);
void __wrap_sync();
char* __real_realpath(const char* path, char* resolved);
char* __wrap_realpath(const char* path, char* resolved);
int __real_sigaction(int signal, const struct sigaction* action, struct sigaction* old);
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old);
int __real_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses);
int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses);

int __wrap_system(const char* command) { return onSystem(command); }
void __wrap_sync() {}
char* __wrap_realpath(const char* path, char* resolved) {
    if (onRealpath) onRealpath();
    return __real_realpath(path, resolved);
}
int __wrap_sigaction(int signal, const struct sigaction* action, struct sigaction* old) {
    if (action == nullptr || signal != refusedSignal) return __real_sigaction(signal, action, old);
    errno = EINVAL;
    return -1;
}
int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** addresses) {
    return unresolvable ? EAI_NONAME : __real_getaddrinfo(host, service, hints, addresses);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

const Bytes kStatusRequest = bytes({0, 0, 0, 8, 0x03, 0xE9, 0, 8});
const Bytes kStatusReset = bytes({0, 0, 0, 8, 0x03, 0xEA, 0, 8});

Bytes statusPacket(int state, int progress) {
    return bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, state, progress, 0x2A, 0x39, 0x30, 0, 0});
}

std::string block(const std::string& state, int progress) {
    return "\x1b[6A"
           "Upload state:\x1b[0K\n"
           "    mode     MT CAN\x1b[0K\n"
           "    state    " +
           state +
           "\x1b[0K\n"
           "    progress " +
           std::to_string(progress) +
           "%\x1b[0K\n"
           "    adr      2a\x1b[0K\n"
           "    serial   12345\x1b[0K\n";
}

/// The next packet that is no status request: how many of those come in between is a matter of speed.
Bytes readCommand(HandConnection& connection) {
    for (;;) {
        Bytes packet = connection.readPacket();
        if (packet != kStatusRequest) return packet;
    }
}

/// The program with `arguments`; returns its exit status.
int runWith(std::vector<std::string> arguments) {
    std::vector<char*> argv{const_cast<char*>("dunmallow")};
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    return runProgram(static_cast<int>(argv.size()) - 1, argv.data());
}

/// The same in a forked process.
class Program : public ForkedRun {
public:
    explicit Program(const std::vector<std::string>& arguments) : ForkedRun([&] { return runWith(arguments); }) {}
};

class MainFlow : public testing::Test {
protected:
    MainFlow() {
        onSystem = [this](const char* command) {
            ran.write("command", command);
            server.listen();
            return 0;
        };
        onRealpath = nullptr;
        refusedSignal = 0;
        unresolvable = false;
    }

    std::vector<std::string> upload(const std::string& path, std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments{"-u", path, "-p", std::to_string(server.port()), "-s", "127.0.0.1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    std::vector<std::string> goodUpload() const {
        return upload(hexFile, {"-a", "0x2A", "-n", "12345", "-m", "MTCAN"});
    }
    /// The command that the process ran; empty: none.
    std::string command() const { return testsupport::readFile(ran / "command"); }

    testsupport::TempFolder ran;
    testsupport::TempFolder folder;
    const std::string hexFile = folder.write("a.hex", ":00000001FF\n");
    HandServer server{HandServer::Start::later};
};

// ---- an upload that ends by itself

struct EndRow {
    const char* why;
    int state;
    const char* text;
};
class MainFlowEnd : public MainFlow, public testing::WithParamInterface<EndRow> {};

TEST_P(MainFlowEnd, IsShownAndTheStatusIsZero) {
    Program program(goodUpload());
    HandConnection connection = server.accept();
    EXPECT_EQ(connection.readPacket(), kStatusRequest);
    EXPECT_TRUE(connection.write(statusPacket(1, 0)));
    EXPECT_EQ(readCommand(connection), kStatusReset);
    const int length = static_cast<int>(8 + hexFile.size() + 7);
    EXPECT_EQ(readCommand(connection),
              bytes({0, 0, 0, length, 0x03, 0xEC, 0, 8, 1, 0x2A, 0x39, 0x30, 0, 0}, hexFile, 1));
    EXPECT_TRUE(connection.write(statusPacket(5, 42)));
    EXPECT_TRUE(connection.write(statusPacket(GetParam().state, 43)));
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(),
              "\n\n\n\n\n\n\n" + block("Idle", 0) + block("Programming", 42) + block(GetParam().text, 43) + "\n");
    EXPECT_EQ(program.standardError(), "");
    EXPECT_EQ(command(), "start-stop-daemon -n corvane -a " + AgApp::getBinDirectory() + "/corvane -S -- -q -i 0 -p " +
                             std::to_string(server.port()));
    EXPECT_TRUE(connection.endsAfterMore());
}

INSTANTIATE_TEST_SUITE_P(Rows, MainFlowEnd,
                         testing::Values(EndRow{"done", 6, "Done"}, EndRow{"locked", 0, "Locked"},
                                         EndRow{"error", 102, "Error! Timed out while waiting for response."}),
                         [](const auto& row) { return std::string(row.param.why); });

// ---- failures

TEST_F(MainFlow, AServerThatRunsAlreadyIsAFailure) {
    server.listen();
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "Unable to start server application\n");
    EXPECT_EQ(program.standardOutput(), "");
    EXPECT_EQ(command(), "");
    EXPECT_TRUE(server.accept().endsByPeer());
}

TEST_F(MainFlow, WhatAServerThatRunsAlreadyTellsIsNotShown) {
    server.listen();
    for (int round = 0; round < 20; ++round) {
        Program program(goodUpload());
        HandConnection connection = server.accept();
        connection.write(statusPacket(6, 100));  // too late, maybe
        EXPECT_EQ(program.wait(), 1);
        EXPECT_EQ(program.standardError(), "Unable to start server application\n");
        EXPECT_EQ(program.standardOutput(), "");
    }
}

TEST_F(MainFlow, AServerThatCannotBeStartedIsAFailure) {
    onSystem = [](const char*) { return 256; };
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "system(): Success\nUnable to start server application\n");
    EXPECT_EQ(program.standardOutput(), "");
}

TEST_F(MainFlow, AServerThatDoesNotListenIsAFailure) {
    onSystem = [](const char*) { return 0; };
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "Unable to start server application\n");
}

struct FailureRow {
    const char* why;
    const char* file;
    std::vector<std::string> more;
    const char* message;
};
class MainFlowFailure : public MainFlow, public testing::WithParamInterface<FailureRow> {};

TEST_P(MainFlowFailure, IsOneLineAndTheConnectionEndsWithoutAByte) {
    Program program(upload(folder / GetParam().file, GetParam().more));
    HandConnection connection = server.accept();
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), GetParam().message);
    EXPECT_EQ(program.standardOutput(), "");
    EXPECT_TRUE(connection.endsByPeer());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MainFlowFailure,
    testing::Values(FailureRow{"missingFile", "b.hex", {"-a", "1"}, "Unable to find specified file\n"},
                    FailureRow{"missingFileComesBeforeTheAddress", "b.hex", {}, "Unable to find specified file\n"},
                    FailureRow{"withoutAddress", "a.hex", {}, "Invalid address\n"},
                    FailureRow{"addressTooHigh", "a.hex", {"-a", "255"}, "Invalid address\n"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST_F(MainFlow, AnEmptyPathIsAFileThatIsNotFound) {
    Program program(upload("", {"-a", "1"}));
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "Unable to find specified file\n");
    EXPECT_NE(command(), "") << "found out only after the server was started";
}

TEST_F(MainFlow, AServerThatIsGoneByTheRequestIsNamedWithoutAClosingQuote) {
    onRealpath = [this] {
        ran.write("requested", "yes");
        std::this_thread::sleep_for(500ms);  // the end of the link gets through
    };
    Program program(goodUpload());
    HandConnection connection = server.accept();
    EXPECT_TRUE(waitFor([&] { return testsupport::readFile(ran / "requested") == "yes"; }));
    connection.close();
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(),
              "Unable to locate server application: '" + AgApp::getBinDirectory() + "/corvane\n");
}

TEST_F(MainFlow, ARunThatEndsBeforeTheRequestHasNothingToComplainOf) {
    onRealpath = [this] {
        ran.write("requested", "yes");
        std::this_thread::sleep_for(300ms);  // both reports are painted
    };
    ForkedRun program([this] {
        std::atexit([] { std::this_thread::sleep_for(1s); });  // longer than all attempts to connect
        return runWith(goodUpload());
    });
    HandConnection connection = server.accept();
    EXPECT_TRUE(waitFor([&] { return testsupport::readFile(ran / "requested") == "yes"; }));
    EXPECT_TRUE(connection.write(statusPacket(5, 42)));
    EXPECT_TRUE(connection.write(statusPacket(6, 43)));
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(), "\n\n\n\n\n\n\n" + block("Programming", 42) + block("Done", 43) + "\n");
    EXPECT_EQ(program.standardError(), "");
}

TEST_F(MainFlow, WithoutMemoryTheRunEndsWithALine) {
    if (testsupport::instrumentedBuild()) GTEST_SKIP() << "the sanitizers end the process themselves";
    onRealpath = [] {
        // On 32 bits some of these may be had.
        volatile std::size_t quarter = std::numeric_limits<std::size_t>::max() / 4;
        for ([[maybe_unused]] char* volatile memory = nullptr;;) memory = new char[quarter];
    };
    Program program(goodUpload());
    HandConnection connection = server.accept();
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "dunmallow: out of memory\n");
    EXPECT_TRUE(connection.endsByPeer());
}

TEST_F(MainFlow, AHostWithoutAddressEndsTheProcess) {
    unresolvable = true;
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "getaddrinfo(127.0.0.1): Name or service not known\n");
    EXPECT_EQ(command(), "");
}

class MainFlowRefusedSignal : public MainFlow, public testing::WithParamInterface<int> {};

TEST_P(MainFlowRefusedSignal, EndsTheProcessBeforeAnythingIsStarted) {
    refusedSignal = GetParam();
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "setting up termination signal: Invalid argument\n");
    EXPECT_EQ(command(), "");
}

INSTANTIATE_TEST_SUITE_P(Signals, MainFlowRefusedSignal, testing::Values(SIGINT, SIGTERM),
                         testing::PrintToStringParamName());

// ---- runs without an upload

TEST_F(MainFlow, WithoutAHexFileNothingHappens) {
    Program program({"-p", std::to_string(server.port()), "-a", "1"});
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput() + program.standardError(), "");
    EXPECT_EQ(command(), "");
}

TEST_F(MainFlow, WithoutAHexFileTheSignalHandlersAreStillTried) {
    refusedSignal = SIGTERM;
    Program program({});
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "setting up termination signal: Invalid argument\n");
}

/// What the program prints when it is asked how it is used.
std::string usage() {
    std::ostringstream text;
    printUsage(text, "dunmallow", FlasherOptions{});
    return text.str();
}

struct BeforeHandlersRow {
    const char* why;
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errors;
};
class MainFlowBeforeHandlers : public MainFlow, public testing::WithParamInterface<BeforeHandlersRow> {};

TEST_P(MainFlowBeforeHandlers, TheCommandLineIsReadAndMayEndTheRun) {
    refusedSignal = SIGINT;
    Program program(GetParam().arguments);
    EXPECT_EQ(program.wait(), GetParam().status);
    EXPECT_EQ(program.standardOutput(), GetParam().output);
    EXPECT_EQ(program.standardError(), GetParam().errors);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, MainFlowBeforeHandlers,
    testing::Values(BeforeHandlersRow{"help", {"-h"}, 0, "", usage()},
                    BeforeHandlersRow{"unknownOption", {"-x"}, 1, "", usage()},
                    BeforeHandlersRow{
                        "port", {"-p", "80"}, 1, "", "Invalid port number: 80\nValid range        : [2000..65535]80\n"},
                    BeforeHandlersRow{"version",
                                      {"-v"},
                                      1,
                                      AgApp::getVersionLabel() + "\n",
                                      "setting up termination signal: Invalid argument\n"}),
    [](const auto& row) { return std::string(row.param.why); });

TEST_F(MainFlow, VersionAloneIsPrintedAndThatIsAll) {
    Program program({"-v"});
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(), AgApp::getVersionLabel() + "\n");
    EXPECT_EQ(program.standardError(), "");
}

TEST_F(MainFlow, HelpEndsWithZeroAndARefusedOptionWithOne) {
    Program help({"-h"});
    EXPECT_EQ(help.wait(), 0);
    EXPECT_EQ(help.standardError().find("Usage: dunmallow [<option>]*\n"), 0U);
    EXPECT_EQ(help.standardOutput(), "");
    Program refused({"-x"});
    EXPECT_EQ(refused.wait(), 1);
    EXPECT_EQ(refused.standardError(), help.standardError());
    Program port({"-p", "80", "-u", hexFile});
    EXPECT_EQ(port.wait(), 1);
    EXPECT_EQ(port.standardError(), "Invalid port number: 80\nValid range        : [2000..65535]80\n");
    EXPECT_EQ(command(), "");
}

// ---- the wait

class MainFlowSignal : public MainFlow, public testing::WithParamInterface<int> {
protected:
    const std::string line = "Dunmallow: handleShutDownSignal( " + std::to_string(GetParam()) + " )\n";
};

TEST_P(MainFlowSignal, EndsAnUploadCleanly) {
    Program program(goodUpload());
    HandConnection connection = server.accept();
    readCommand(connection);
    readCommand(connection);
    connection.write(statusPacket(5, 42));
    const std::string painted = "\n\n\n\n\n\n\n" + block("Programming", 42);
    EXPECT_TRUE(waitFor([&] { return program.standardOutput() == painted; }));
    program.send(GetParam());
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(), painted + line);
    EXPECT_EQ(program.standardError(), "");
    EXPECT_TRUE(connection.endsAfterMore());
}

TEST_P(MainFlowSignal, EndsTheWaitWithADirectoryAsHexFile) {
    Program program(upload(folder.path(), {"-a", "1"}));
    HandConnection connection = server.accept();
    EXPECT_TRUE(connection.isSilentFor(300ms)) << "the connection stands, no byte is sent";
    connection.write(statusPacket(4, 3));
    const std::string painted = "\n\n\n\n\n\n\n" + block("Erasing FLASH", 3);
    EXPECT_TRUE(waitFor([&] { return program.standardOutput() == painted; })) << "reports that come are painted";
    program.send(GetParam());
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(), painted + line);
    EXPECT_EQ(program.standardError(), "");
}

TEST_P(MainFlowSignal, BeforeTheWaitIsAnsweredInTheWait) {
    onSystem = [this](const char*) {
        server.listen();
        raise(GetParam());
        return 0;
    };
    onRealpath = [this] { ran.write("requested", "yes"); };
    Program program(goodUpload());
    const HandConnection connection = server.accept();
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(testsupport::readFile(ran / "requested"), "yes") << "the upload is still requested";
    EXPECT_EQ(program.standardOutput(), line);
    EXPECT_EQ(program.standardError(), "");
}

TEST_P(MainFlowSignal, DuringAFailedStartChangesNothing) {
    onSystem = [](const char*) {
        raise(GetParam());
        return 256;
    };
    Program program(goodUpload());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_EQ(program.standardError(), "system(): Success\nUnable to start server application\n");
    EXPECT_EQ(program.standardOutput(), line);
}

INSTANTIATE_TEST_SUITE_P(Signals, MainFlowSignal, testing::Values(SIGINT, SIGTERM), testing::PrintToStringParamName());

TEST_F(MainFlow, EachSignalPrintsItsLineAndTheFirstEndsTheWait) {
    onSystem = [this](const char*) {
        raise(SIGTERM);
        raise(SIGINT);
        server.listen();
        return 0;
    };
    Program program(goodUpload());
    const HandConnection connection = server.accept();
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(),
              "Dunmallow: handleShutDownSignal( 15 )\nDunmallow: handleShutDownSignal( 2 )\n");
}

TEST_F(MainFlow, AServerThatClosesLeavesTheFlowWaiting) {
    Program program(goodUpload());
    HandConnection connection = server.accept();
    connection.readPacket();
    connection.write(statusPacket(5, 42));
    connection.close();
    EXPECT_TRUE(server.isLeftAloneFor(1500ms)) << "the poll does not open it again";
    EXPECT_TRUE(program.isRunning());
    program.send(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(MainFlow, AnUnknownStateThatEndsTheWorkKeepsWaitingOnANewConnection) {
    Program program(goodUpload());
    HandConnection connection = server.accept();
    readCommand(connection);
    readCommand(connection);
    connection.write(statusPacket(5, 42));
    connection.write(statusPacket(7, 42));
    HandConnection next = server.accept();
    EXPECT_EQ(next.readPacket(), kStatusRequest) << "the next poll connects again";
    next.write(statusPacket(6, 100));
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardOutput(),
              "\n\n\n\n\n\n\n" + block("Programming", 42) + block("unknown", 42) + block("Done", 100) + "\n");
}

/// Number behind `name` in the status file of the process's first thread.
long fieldOf(pid_t process, const std::string& name) {
    const std::string id = std::to_string(process);
    std::istringstream text(testsupport::readFile("/proc/" + id + "/task/" + id + "/status"));
    for (std::string word; text >> word;) {
        long value = 0;
        if (word == name + ":" && text >> value) return value;
    }
    return -1;
}

/// Processor time of the process's first thread in clock ticks.
long processorTicks(pid_t process) {
    const std::string id = std::to_string(process);
    const std::string text = testsupport::readFile("/proc/" + id + "/task/" + id + "/stat");
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return user + system;
}

// Kept on purpose: the wait polls and keeps a core busy.
TEST_F(MainFlow, TheWaitPollsWithoutASleep) {
    Program program(upload(folder.path(), {"-a", "1"}));
    HandConnection connection = server.accept();
    ASSERT_TRUE(connection.isSilentFor(100ms));
    const long switches = fieldOf(program.id(), "voluntary_ctxt_switches");
    const long ticks = processorTicks(program.id());
    EXPECT_TRUE(waitFor([&] { return processorTicks(program.id()) >= ticks + 20; }));
    EXPECT_LT(fieldOf(program.id(), "voluntary_ctxt_switches"), switches + 20);
    program.send(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
}

// A final report and a signal at the same moment once had two threads in exit.
TEST_F(MainFlow, AFinalReportAndASignalTogetherEndTheProcessOnce) {
    for (int round = 0; round < 8; ++round) {
        HandServer own(HandServer::Start::later);
        onSystem = [&own](const char*) {
            own.listen();
            return 0;
        };
        std::vector<std::string> arguments = goodUpload();
        arguments.insert(arguments.end(), {"-p", std::to_string(own.port())});
        Program program(arguments);
        HandConnection connection = own.accept();
        connection.readPacket();
        connection.write(statusPacket(5, 42));
        connection.write(statusPacket(6, 100));
        std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
        program.send(SIGTERM);
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(program.standardError(), "");
    }
}

TEST_F(MainFlow, ABurstOfReportsDoesNotKeepASignalFromEndingTheRun) {
    Program program(goodUpload());
    HandConnection connection = server.accept();
    Bytes burst;
    for (int i = 0; i < 2000; ++i) {
        const Bytes packet = statusPacket(i % 2 == 0 ? 5 : 7, i % 100);
        burst.insert(burst.end(), packet.begin(), packet.end());
    }
    connection.write(burst);
    EXPECT_TRUE(waitFor([&] { return !program.standardOutput().empty(); }));
    program.send(SIGTERM);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.standardError(), "");
}

}  // namespace
