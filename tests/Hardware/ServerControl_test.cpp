// Starting and stopping the server application.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>

#include "tests/Hardware/HandServer.h"
#include "tests/Hardware/Intercept.h"
#include "tests/Hardware/RecordingClient.h"
#include "tests/support/CapturedOutput.h"
#include "tests/support/TempFolder.h"

using namespace CANFlasher;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testsupport::HandConnection;
using testsupport::HandServer;
using testsupport::RecordingClient;

namespace {

std::string startCommand(const RecordingClient& client, int port, const char* interface) {
    return "system: start-stop-daemon -n corvane -a " + client.serverPath() + " -S -- -q -i " + interface + " -p " +
           std::to_string(port);
}

class ServerControl : public testing::Test {
protected:
    HandServer server{HandServer::Start::later};
    RecordingClient client{server.port()};
    testsupport::RecordedCalls calls;
};

TEST_F(ServerControl, StartRunsTheToolThenConnects) {
    calls.onSystem = [this](const char*) {
        server.listen();
        return 0;
    };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_NE(client.startServer(0), 0U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
    EXPECT_THAT(calls.calls(), ElementsAre("connect", startCommand(client, server.port(), "0"), "sync", "connect"));
    EXPECT_TRUE(server.accept().isOpen());
    EXPECT_EQ(client.connectCalls, 1) << "the first attempt is the socket layer's own";
}

TEST_F(ServerControl, StartWaitsAHundredMillisecondsBeforeItConnects) {
    std::chrono::steady_clock::time_point toolEnded;
    calls.onSystem = [&](const char*) {
        server.listen();
        toolEnded = std::chrono::steady_clock::now();
        return 0;
    };
    std::chrono::steady_clock::duration waited{};
    client.onConnect = [&] {
        waited = std::chrono::steady_clock::now() - toolEnded;
        return true;
    };
    EXPECT_NE(client.startServer(0), 0U);
    EXPECT_GE(waited, 100ms);
    EXPECT_LT(waited, 5s);
}

TEST_F(ServerControl, StartTriesToConnectForAboutFourHundredMilliseconds) {
    calls.onSystem = [](const char*) { return 0; };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(client.startServer(3), 0U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 400ms);
    EXPECT_THAT(calls.calls(), ElementsAre("connect", startCommand(client, server.port(), "3"), "sync", "connect",
                                           "connect", "connect", "connect", "connect", "connect"));
}

TEST_F(ServerControl, StartSucceedsWithAServerThatListensLate) {
    calls.onSystem = [](const char*) { return 0; };
    int attempts = 0;
    client.onConnect = [&] {
        server.listen();
        ++attempts;
        return client.CANFlasherClient::connectToServer();
    };
    EXPECT_NE(client.startServer(0), 0U);
    EXPECT_EQ(attempts, 1);
}

TEST_F(ServerControl, AServerThatIsReachableAlreadyIsAFailureWithoutAnyCommand) {
    server.listen();
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    EXPECT_EQ(client.startServer(0), 0U);
    EXPECT_THAT(calls.calls(), ElementsAre("connect"));
    HandConnection connection = server.accept();
    EXPECT_TRUE(connection.isSilentFor(20ms)) << "the connection stands until somebody closes it";
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(ServerControl, AConnectionThatStandsIsAFailureToo) {
    server.listen();
    ASSERT_TRUE(client.connectToServer());
    EXPECT_EQ(client.startServer(0), 0U);
    EXPECT_THAT(calls.calls(), ElementsAre("connect"));
}

TEST_F(ServerControl, TheInterfaceIsWrittenAsGiven) {
    calls.onSystem = [](const char*) { return 1; };
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    client.startServer(-1);
    EXPECT_THAT(calls.calls(), ElementsAre("connect", startCommand(client, server.port(), "-1"), "sync"));
}

struct FailureRow {
    const char* why;
    int result;
    int error;
    const char* text;
};
class ServerControlFailure : public ServerControl, public testing::WithParamInterface<FailureRow> {
protected:
    ServerControlFailure() {
        calls.onSystem = [](const char*) {
            if (GetParam().error != 0) errno = GetParam().error;
            return GetParam().result;
        };
    }
    testsupport::CapturedOutput standardError{STDERR_FILENO};
};

TEST_P(ServerControlFailure, EndsTheStartBehindSyncWithoutConnecting) {
    EXPECT_EQ(client.startServer(0), 0U);
    EXPECT_EQ(standardError.text(), GetParam().text);
    EXPECT_THAT(calls.calls(), ElementsAre("connect", startCommand(client, server.port(), "0"), "sync"));
}

TEST_P(ServerControlFailure, IsReportedByControl) {
    EXPECT_EQ(client.controlServer(false, 0), 0U);
    EXPECT_EQ(standardError.text(), GetParam().text);
    EXPECT_EQ(calls.count("sync"), 1);
}

TEST_P(ServerControlFailure, IsComplainedOfBeforeTheDisksAreFlushed) {
    std::string complaint;
    calls.onSync = [&] { complaint = standardError.text(); };
    EXPECT_EQ(client.controlServer(true, 0), 0U);
    EXPECT_EQ(complaint, GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Rows, ServerControlFailure,
                         testing::Values(FailureRow{"exitStatus", 256, 0, "system(): Success\n"},
                                         FailureRow{"killed", 9, 0, "system(): Success\n"},
                                         FailureRow{"noProcess", -1, EAGAIN,
                                                    "system(): Resource temporarily unavailable\n"}),
                         [](const auto& row) { return std::string(row.param.why); });

TEST_F(ServerControl, ControlStartsWithoutConnecting) {
    calls.onSystem = [](const char*) { return 0; };
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    EXPECT_EQ(client.controlServer(true, 2), 1U);
    EXPECT_THAT(calls.calls(), ElementsAre(startCommand(client, server.port(), "2"), "sync"));
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(ServerControl, ControlStopsWithABlankAtTheEnd) {
    calls.onSystem = [](const char*) { return 0; };
    EXPECT_EQ(client.controlServer(false, 2), 1U);
    EXPECT_THAT(calls.calls(),
                ElementsAre("system: start-stop-daemon -n corvane -a " + client.serverPath() + " -K ", "sync"));
}

/// A folder in front of PATH with a start-stop-daemon that writes its arguments down, one a line.
class FakeTool {
public:
    explicit FakeTool(const std::string& ending) {
        const std::string script =
            folder.write("start-stop-daemon", "#!/bin/sh\nfor a; do printf '%s\\n' \"$a\" >> '" + folder.path() +
                                                  "/arguments'; done\n" + ending);
        chmod(script.c_str(), 0755);
    }
    std::string arguments() const { return testsupport::readFile(folder / "arguments"); }

private:
    testsupport::TempFolder folder;
    testsupport::ScopedEnvironment path{"PATH", (folder.path() + ":/usr/bin:/bin").c_str()};
};

TEST_F(ServerControl, TheShellFindsTheToolOnItsSearchPath) {
    const FakeTool tool("exit 0\n");
    EXPECT_EQ(client.controlServer(true, -1), 1U);
    EXPECT_EQ(tool.arguments(), "-n\ncorvane\n-a\n" + client.serverPath() + "\n-S\n--\n-q\n-i\n-1\n-p\n" +
                                    std::to_string(server.port()) + "\n");
}

TEST_F(ServerControl, TheToolsExitStatusIsItsResult) {
    const FakeTool tool("exit 3\n");
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    EXPECT_EQ(client.controlServer(false, 0), 0U);
    EXPECT_EQ(tool.arguments(), "-n\ncorvane\n-a\n" + client.serverPath() + "\n-K\n");
    EXPECT_EQ(standardError.text().find("system(): "), 0U) << standardError.text();
}

TEST_F(ServerControl, AMissingToolIsAFailure) {
    const testsupport::TempFolder empty;
    const testsupport::ScopedEnvironment path("PATH", empty.path().c_str());
    const testsupport::CapturedOutput standardError(STDERR_FILENO);
    EXPECT_EQ(client.startServer(0), 0U);
    EXPECT_NE(standardError.text().find("start-stop-daemon"), std::string::npos) << "the shell's own complaint";
    EXPECT_NE(standardError.text().find("\nsystem(): "), std::string::npos);
}

TEST(ServerPath, IsTheBinFolderOfTheInstallation) {
    const testsupport::ScopedEnvironment home("HOME", "/home/op");
    const RecordingClient client(2000);
    EXPECT_EQ(client.serverPath(), getuid() == 0 ? "/usr/local/varnex/bin/corvane" : "/home/op/.varnex/bin/corvane");
}

TEST(ServerPath, IsFixedAtConstruction) {
    const RecordingClient client(2000);
    const std::string before = client.serverPath();
    const testsupport::ScopedEnvironment home("HOME", "/somewhere/else");
    EXPECT_EQ(client.serverPath(), before);
}

}  // namespace
