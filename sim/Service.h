#pragma once
/// What the server does: its answers, its status, and the sequences it plays.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Clients.h"
#include "sim/Clock.h"
#include "sim/Journal.h"
#include "sim/Log.h"
#include "sim/PacketAssembler.h"
#include "sim/Playback.h"
#include "sim/Scenario.h"
#include "sim/Status.h"
#include "sim/Wire.h"

namespace sim {

/// The protocol between packets and clients. Knows no sockets and never waits; the clock is an argument.
class Service {
public:
    /// Borrows everything.
    Service(const Scenario& played, Clients& served, const Log& lines, Journal& record);

    /// A client has come: its sequence begins.
    void welcome(ClientId id, Instant now);
    /// A packet of a client.
    void handle(ClientId id, const Packet& packet, Instant now);
    /// A client has gone. An upload that it began goes on: a lost connection must not leave a device half programmed.
    void forget(ClientId id);
    /// Plays what is due.
    void advance(Instant now);

    /// When the next step is due, none while nothing plays.
    std::optional<Instant> due() const;
    /// Set once a scenario ended the server.
    std::optional<int> exitStatus() const { return exitStatus_; }
    const Status& status() const { return status_; }

private:
    /// One sequence in progress.
    struct Play {
        ClientId client;
        std::optional<UploadRequest> request;  // of an upload
        bool reported = false;                 // the upload has shown something
        Playback playback;
    };
    class ClientStage;

    struct CommandRow {
        std::uint16_t command;
        void (Service::*handle)(ClientId, std::span<const std::uint8_t>, Instant);
    };
    static const CommandRow kCommands[];

    void answerPing(ClientId id, std::span<const std::uint8_t> payload, Instant now);
    void answerStatusRequest(ClientId id, std::span<const std::uint8_t> payload, Instant now);
    void resetStatus(ClientId id, std::span<const std::uint8_t> payload, Instant now);
    void noteByte(ClientId id, std::span<const std::uint8_t> payload, Instant now);
    void beginUpload(ClientId id, std::span<const std::uint8_t> payload, Instant now);

    void refuse(ClientId id, std::string_view reason);
    void note(ClientId id, std::string_view text) const;
    void advancePlay(Play& play, Instant now);
    void change(const Status& next, Instant now);
    void send(ClientId id, std::uint16_t command, std::span<const std::uint8_t> payload, Instant now);
    Bytes packet(std::uint16_t command, std::span<const std::uint8_t> payload) const;

    const Scenario& scenario;
    Clients& clients;
    const Log& log;
    Journal& journal;
    Status status_;
    std::optional<Play> upload;
    std::vector<Play> greetings;
    std::optional<int> exitStatus_;
};

}  // namespace sim
