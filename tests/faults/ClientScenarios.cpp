// The client and the whole program with failing calls.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "app/MainFlow.h"
#include "platform/linux/base/ProprietarySocketClient.h"
#include "sw_drv/RTkernel/linux/ProcessExit.h"
#include "tests/Hardware/HandServer.h"
#include "tests/faults/Injection.h"
#include "tests/faults/Scenarios.h"

using testsupport::Bytes;
using testsupport::bytes;

namespace faults {

namespace {

using testsupport::HandServer;

HandServer* server = nullptr;  // not destroyed by exit: another thread than the body's may end the process

void replaceServer(HandServer::Start start) {
    delete server;
    server = new HandServer(start);
}

class Client : public ProprietarySocketClient {
public:
    using ProprietarySocketClient::ProprietarySocketClient;
    ~Client() override { closeSocket(false); }
    void handleRxPacket(TPacket*& packet) override {
        if (packet->getCommand() != 77) unexpected = true;
        delete packet;
        packet = nullptr;
        ++received;
    }
    std::atomic<int> received{0};
    std::atomic<bool> unexpected{false};
};

bool sendFourLetters(Client& client) {
    auto* packet = new (std::nothrow) ProprietarySocketCommon::TPacket(4, 77);
    const bool sent = packet != nullptr && packet->hasPayload(4) && [&] {
        for (int i = 0; i < 4; ++i) packet->getPayload()[i] = 'x';
        return client.sendPacket(packet, false);
    }();
    delete packet;
    return sent;
}

/// One packet there and back, when all goes well.
void exchange(Client& client) {
    if (!done(client.connectToServer(), "connectToServer")) return;
    const int before = client.received;
    const bool sent = done(sendFourLetters(client), "sendPacket");
    // What a failed call cost does not come; everything else does, however slow the machine is.
    const auto patience = [] { return aCallFailed() ? 40 : 10000; };
    for (int i = 0; sent && client.received == before && client.connectToServer() && i < patience(); ++i)
        pauseOneMillisecond();
    done(client.received != before, "no packet came back");
    LinkStatus status;
    client.getLinkStatus(&status, true);
    must(!client.unexpected, "a packet that nobody sent");
}

}  // namespace

void prepareServer() { replaceServer(HandServer::Start::listening); }
void prepareLaterServer() { replaceServer(HandServer::Start::later); }

void echoPackets() {
    for (;;) {
        testsupport::HandConnection connection = server->accept();
        if (!connection.isOpen()) return;
        // The name and version of the server come first, as they do from a real one.
        connection.write(bytes({0, 0, 0, 26, 0, 2, 0, 8, 7, 0, 0, 0}, "\6ostrel\0031.0\2ab"));
        for (;;) {
            const Bytes packet = connection.readPacket();
            if (packet.size() < 8 || !connection.write(packet)) break;
        }
    }
}

void aConnectionCarriesPackets() {
    Client client(server->port(), "127.0.0.1");
    exchange(client);
    client.closeSocket(true);
    exchange(client);
    const bool wasConnected = done(client.connectToServer(), "connectToServer");
    client.closeSocket(false);
    must(!wasConnected || !client.connectToServer(), "connected after it was closed for good");
    std::vector<ServerConnectionEntry> servers;
    ProprietarySocketClient::getServerConnectionList(servers);
}

void playUpload() {
    const Bytes running = bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 5, 42, 0x2A, 0x39, 0x30, 0, 0});
    const Bytes done = bytes({0, 0, 0, 16, 0x03, 0xE8, 0, 8, 1, 6, 100, 0x2A, 0x39, 0x30, 0, 0});
    for (;;) {
        testsupport::HandConnection connection = server->accept();
        for (;;) {
            const Bytes packet = connection.readPacket();
            if (packet.size() < 8) break;
            const bool isUpload = packet[4] == 0x03 && packet[5] == 0xEC;
            if (isUpload && !(connection.write(running) && connection.write(done))) break;
        }
    }
}

void anUploadIsShownToItsEnd() {
    onSystem = [](const char*) {
        server->listen();
        return 0;
    };
    std::vector<std::string> arguments;
    std::vector<char*> argv;
    {
        const Pause own;
        arguments = {"dunmallow", "-u", "/proc/self/exe", "-a", "0x2A", "-s", "127.0.0.1", "-p"};
        arguments.push_back(std::to_string(server->port()));
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
    }
    std::atexit(disarm);  // what runs after the program is not its own
    const int status = CANFlasher::runProgram(static_cast<int>(argv.size()) - 1, argv.data());
    lookForLeftovers();
    if (!isWrong()) threadfunc::exitProcess(status);
}

}  // namespace faults
