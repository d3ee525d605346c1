// The client and the whole program with failing calls.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "app/MainFlow.h"
#include "platform/linux/base/ProprietarySocketClient.h"
#include "sw_drv/RTkernel/linux/ProcessExit.h"
#include "tests/Hardware/HandServer.h"
#include "tests/faults/Scenarios.h"

using testsupport::Bytes;
using testsupport::bytes;

namespace faults {

namespace {

std::unique_ptr<testsupport::HandServer> server;

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

/// One packet there and back, when all goes well.
bool exchange(Client& client) {
    if (!client.connectToServer()) return true;
    const int before = client.received;
    auto* packet = new (std::nothrow) ProprietarySocketCommon::TPacket(4, 77);
    const bool sent = packet != nullptr && packet->hasPayload(4) && [&] {
        for (int i = 0; i < 4; ++i) packet->getPayload()[i] = 'x';
        return client.sendPacket(packet, false);
    }();
    delete packet;
    for (int i = 0; sent && i < 40 && client.received == before && client.connectToServer(); ++i) threadfunc::sleep(1);
    LinkStatus status;
    client.getLinkStatus(&status, true);
    return !client.unexpected || wrong("a packet that nobody sent");
}

}  // namespace

void prepareServer() { server = std::make_unique<testsupport::HandServer>(testsupport::HandServer::Start::later); }

void echoPackets() {
    server->listen();
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

bool aConnectionCarriesPackets() {
    {
        const Pause own;
        threadfunc::sleep(5);  // the peer listens
    }
    Client client(server->port(), "127.0.0.1");
    bool right = exchange(client);
    client.closeSocket(true);
    right = exchange(client) && right;
    const bool wasConnected = client.connectToServer();
    client.closeSocket(false);
    if (wasConnected && client.connectToServer()) right = wrong("connected after it was closed for good");
    std::vector<ServerConnectionEntry> servers;
    ProprietarySocketClient::getServerConnectionList(servers);
    return right;
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

bool anUploadIsShownToItsEnd() {
    onSystem = [](const char*) {
        server->listen();
        return 0;
    };
    std::vector<std::string> arguments{"dunmallow", "-u", "/proc/self/exe", "-a", "0x2A", "-s", "127.0.0.1", "-p"};
    std::vector<char*> argv;
    {
        const Pause own;
        arguments.push_back(std::to_string(server->port()));
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
    }
    std::atexit(disarm);  // what runs after the program is not its own
    threadfunc::exitProcess(CANFlasher::runProgram(static_cast<int>(argv.size()) - 1, argv.data()));
}

}  // namespace faults
