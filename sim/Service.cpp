#include "sim/Service.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "sim/ClientStage.h"

namespace sim {

const Service::CommandRow Service::kCommands[] = {
    {CmdPing, &Service::answerPing},         {CmdStatusRequest, &Service::answerStatusRequest},
    {CmdStatusReset, &Service::resetStatus}, {CmdByte, &Service::noteByte},
    {CmdUpload, &Service::beginUpload},
};

Service::Service(const Scenario& played, Clients& served, const Log& lines, Journal& record)
    : scenario(played), clients(served), log(lines), journal(record) {}

void Service::welcome(ClientId id, Instant now) {
    note(id, "connected");
    greetings.push_back({id, std::nullopt, false, Playback(scenario.onConnect, scenario.settings.speed, now)});
    advance(now);
}

void Service::handle(ClientId id, const Packet& packet, Instant now) {
    journal.packet(id, Mark::received, packet.bytes);
    if (!packet.payloadInside())
        return refuse(id, "payload offset " + std::to_string(packet.payloadOffset()) + " in a packet of " +
                              std::to_string(packet.bytes.size()) + " bytes; dropped");
    const auto& ignored = scenario.settings.ignored;
    const std::string name = std::to_string(packet.command()) + " (" + std::string(commandName(packet.command())) + ")";
    if (std::find(ignored.begin(), ignored.end(), packet.command()) != ignored.end())
        return note(id, "command " + name + " ignored, as the scenario says");
    for (const CommandRow& row : kCommands)
        if (row.command == packet.command()) return (this->*row.handle)(id, packet.payload(), now);
    note(id, "unknown command " + name + " ignored");
}

void Service::forget(ClientId id) {
    note(id, "gone");
    std::erase_if(greetings, [id](const Play& play) { return play.client == id; });
}

void Service::advance(Instant now) {
    for (Play& play : greetings) advancePlay(play, now);
    if (upload) advancePlay(*upload, now);
    std::erase_if(greetings, [](const Play& play) { return play.playback.finished(); });
    if (upload && upload->playback.finished()) upload.reset();
}

std::optional<Instant> Service::due() const {
    std::optional<Instant> next;
    const auto consider = [&next](const Play& play) {
        if (!play.playback.finished() && (!next || play.playback.due() < *next)) next = play.playback.due();
    };
    std::for_each(greetings.begin(), greetings.end(), consider);
    if (upload) consider(*upload);
    return next;
}

void Service::answerPing(ClientId id, std::span<const std::uint8_t> /*payload*/, Instant now) {
    send(id, CmdPing, std::array<std::uint8_t, 1>{0}, now);
}

void Service::answerStatusRequest(ClientId id, std::span<const std::uint8_t> /*payload*/, Instant now) {
    send(id, CmdStatus, statusPayload(status_), now);
}

// Clients reset the status before each upload. While one runs, that must not wipe its status for everybody.
void Service::resetStatus(ClientId id, std::span<const std::uint8_t> /*payload*/, Instant now) {
    if (upload) return note(id, "status reset ignored, an upload is running");
    change(Status(), now);
}

void Service::noteByte(ClientId id, std::span<const std::uint8_t> payload, Instant /*now*/) {
    if (payload.empty()) return refuse(id, "command 1003 (CmdByte) without its byte; dropped");
    note(id, "byte " + std::to_string(payload[0]));
}

void Service::beginUpload(ClientId id, std::span<const std::uint8_t> payload, Instant now) {
    auto request = parseUpload(payload);
    if (!request)
        return refuse(id,
                      "command 1004 (CmdUpload) without mode, address, serial number and a path that ends with the "
                      "packet's only NUL; dropped");
    note(id, "upload of " + request->path + ", mode " + std::to_string(request->mode) + ", address " +
                 std::to_string(request->address) + ", serial " + std::to_string(request->serial));
    if (upload) {
        note(id, "refused with Locked, an upload is running");
        const Status locked{request->mode, kLocked, 0, request->address, request->serial};
        return send(id, CmdStatus, statusPayload(locked), now);
    }
    upload = Play{id, std::move(request), false, Playback(scenario.onUpload, scenario.settings.speed, now)};
    advance(now);  // what comes behind this packet finds its effect
}

void Service::refuse(ClientId id, std::string_view reason) {
    journal.event(id, Mark::refused, reason);
    note(id, reason);
}

void Service::note(ClientId id, std::string_view text) const {
    log.line("client " + std::to_string(id) + ": " + std::string(text));
}

void Service::advancePlay(Play& play, Instant now) {
    ClientStage stage(*this, play, now);
    play.playback.advance(now, stage);
}

void Service::change(const Status& next, Instant now) {
    if (next == status_) return;
    if (next.state != status_.state)
        log.line("state " + std::to_string(next.state) + " (" + std::string(stateName(next.state)) + "), " +
                 std::to_string(next.progress) + " %");
    status_ = next;
    clients.broadcast(packet(CmdStatus, statusPayload(status_)), now);
}

void Service::send(ClientId id, std::uint16_t command, std::span<const std::uint8_t> payload, Instant now) {
    if (Connection* client = clients.find(id)) client->sendPacket(packet(command, payload), now);
}

Bytes Service::packet(std::uint16_t command, std::span<const std::uint8_t> payload) const {
    return makePacket(command, payload, scenario.settings.payloadOffset);
}

}  // namespace sim
