#pragma once
/// One life of the flasher client, used by a fuzz input, beside a server that the same input plays.

#include <mutex>
#include <string>
#include <vector>

#include "Hardware/CANFlasherClient.h"
#include "fuzz/PairedSocket.h"

namespace fuzz {

/// Keeps what it is told.
class ToldClient : public CANFlasher::CANFlasherClient {
public:
    ToldClient();
    ~ToldClient() override { shutDown(); }

    std::vector<TStatus> told() const;

    using CANFlasherClient::handlePingTick;
    using CANFlasherClient::shutDown;
    using CANFlasherClient::updateQueue;

protected:
    void statusChanged(const TStatus& status) override;

private:
    mutable std::mutex toldMutex;
    std::vector<TStatus> statuses;
};

class HostileRun {
public:
    /// A faithful run leaves out what makes the client tell other things than the server says, or end a connection.
    explicit HostileRun(bool faithful);

    /// Takes the next operation (its number modulo 16) and what belongs to it off the input:
    /// 0 bytes (length, bytes), 1 a report (8 bytes), 2 any packet (command, length, payload) from the server;
    /// 3 connect, 4 close, 5 upload (path, mode, address), 6 reset the status, 7 a command byte, 8 a ping,
    /// 9 a command for the worker; 10 the server stops writing, 11 closes, 12 refuses or accepts (odd);
    /// 13 it waits, any other reads.
    void step(Input& input);

    /// Ends the client, then checks what was told and what the server received.
    void finish();

private:
    void useClient(int operation, Input& input);
    void sendPacket(std::uint16_t command, Bytes payload);
    void checkTold(const std::vector<CANFlasher::TStatus>& said);
    void checkReceived(Bytes received) const;

    PairedServer server;
    const bool faithful;
    ToldClient client;
};

}  // namespace fuzz
