#include "fuzz/oracle/HostileRun.h"

#include <array>

#include "sim/Wire.h"

namespace fuzz {

namespace {

using CANFlasher::TStatus;

constexpr TStatus kDefaultStatus{0, 1, 0, 254, 0xFFFFFFFF};
constexpr const char* kHexFile = "/etc/passwd";  // a regular file; nobody reads it
constexpr std::array kPaths{kHexFile, "/", "/no/such/file", kHexFile};

std::uint32_t number(Bytes bytes, bool lowFirst) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) value = value * 256 + bytes[lowFirst ? bytes.size() - 1 - i : i];
    return value;
}

/// Takes a whole packet off the front; an empty one when there is none.
Bytes takePacket(Bytes& stream) {
    if (stream.size() < 8) return {};
    const std::uint32_t length = number(stream.first(4), false);
    if (length < 8 || length > stream.size()) return {};
    const Bytes packet = stream.first(length);
    stream = stream.subspan(length);
    return packet;
}

/// Adds the reports that stand whole in what a server wrote to one connection.
void addReports(Bytes stream, std::vector<TStatus>& reports) {
    for (Bytes packet = takePacket(stream); !packet.empty(); packet = takePacket(stream)) {
        const std::size_t offset = number(packet.subspan(6, 2), false);
        if (number(packet.subspan(4, 2), false) != 1000 || offset + 8 > packet.size()) continue;
        const Bytes payload = packet.subspan(offset);
        reports.push_back({payload[0], payload[1], payload[2], payload[3], number(payload.subspan(4, 4), true)});
    }
}

/// What differs from the one before, the first from the default.
std::vector<TStatus> changes(const std::vector<TStatus>& reports) {
    std::vector<TStatus> changed{kDefaultStatus};
    for (const TStatus& report : reports)
        if (!(report == changed.back())) changed.push_back(report);
    changed.erase(changed.begin());
    return changed;
}

}  // namespace

ToldClient::ToldClient() : CANFlasherClient(2000, "127.0.0.1") {
    stepTimer.setInterval(0);
    pollTimer.setInterval(1);
}

std::vector<TStatus> ToldClient::told() const {
    const std::lock_guard lock(toldMutex);
    return statuses;
}

void ToldClient::statusChanged(const TStatus& status) {
    const std::lock_guard lock(toldMutex);
    statuses.push_back(status);
}

HostileRun::HostileRun(bool faithfulRun) : faithful(faithfulRun) { client.keepConnection = faithful; }

void HostileRun::step(Input& input) {
    const int operation = input.byte() % 16;
    switch (operation) {
        case 0:
            return server.send(input.bytes(input.byte()));
        case 1:
            return sendPacket(1000, input.bytes(8));
        case 2: {
            const auto command = input.number<std::uint16_t>();
            return sendPacket(command, input.bytes(input.byte()));
        }
        case 10:
            return server.shutdownWriting();
        case 11:
            return server.close();
        case 12:
            server.refuses = input.byte() % 2 == 0;
            return;
        case 13:
            return server.await();
        default:
            return operation < 10 ? useClient(operation, input) : server.readAll();
    }
}

void HostileRun::useClient(int operation, Input& input) {
    switch (operation) {
        case 3:
            client.connectToServer();
            break;
        case 4:
            client.closeSocket(true);
            break;
        case 5: {
            const std::size_t path = input.byte() % kPaths.size();
            const auto mode = static_cast<CANFlasher::TMode>(input.byte() % 4);
            if (!faithful) client.upload(mode, input.number<std::int8_t>(), 0x01020304, kPaths[path]);
            break;
        }
        case 6:
            if (!faithful) client.sendStatusReset();
            break;
        case 7:
            client.sendCommandByte(input.byte());
            break;
        case 8:
            client.handlePingTick();
            break;
        default: {
            const unsigned command = 1U + input.byte() % 3U;  // the end mark is the client's own
            if (!faithful) static_cast<void>(client.updateQueue.tryPut(static_cast<CANFlasher::TUpdCmd>(command)));
        }
    }
}

void HostileRun::sendPacket(std::uint16_t command, Bytes payload) { server.send(sim::makePacket(command, payload)); }

void HostileRun::finish() {
    client.closeSocket(true);  // hands over what has come
    client.shutDown();
    server.readAll();
    std::vector<TStatus> said;
    for (const PairedServer::End& end : server.ends()) {
        addReports(end.written, said);
        checkReceived(end.received);
    }
    checkTold(said);
}

void HostileRun::checkTold(const std::vector<TStatus>& said) {
    const std::vector<TStatus> told = client.told();
    if (faithful) return check(told == changes(said));
    // A reset shows the default, at any moment. What else is told was said, each report once and in its order.
    auto left = said.begin();
    for (const TStatus& status : told) {
        if (status == kDefaultStatus) continue;
        left = std::find(left, said.end(), status);
        check(left != said.end());
        ++left;
    }
}

void HostileRun::checkReceived(Bytes received) const {
    for (Bytes packet = takePacket(received); !packet.empty(); packet = takePacket(received)) {
        const std::uint32_t command = number(packet.subspan(4, 2), false);
        check(number(packet.subspan(6, 2), false) == 8);
        const Bytes payload = packet.subspan(8);
        if (command == 1001 || command == 1002) {
            check(payload.empty());
        } else if (command == 1003 || command == 1) {
            check(payload.size() == 1);
        } else {
            check(command == 1004);
            const auto request = sim::parseUpload(payload);
            check(request && request->path == kHexFile && request->serial == 0x01020304 && request->mode < 4);
        }
    }
    check(received.empty());
}

}  // namespace fuzz
