#include "sim/ClientStage.h"

#include <unistd.h>

#include <csignal>
#include <limits>

#include "sim/HexFile.h"

namespace sim {

bool Service::ClientStage::perform(const Step& step) {
    std::visit([this](const auto& kind) { act(kind); }, step);
    return !service.exitStatus_;
}

std::optional<std::vector<Frame>> Service::ClientStage::beginUpload() {
    const Settings& settings = service.scenario.settings;
    const auto loaded = loadHexFile(play.request->path, settings.addresses);
    if (const auto* problem = std::get_if<HexFileProblem>(&loaded)) {
        service.log.line(problem->text);
        show({problem->state, 0, Duration(0)});
        return std::nullopt;
    }
    const auto byteCount = static_cast<std::uint32_t>(std::get<HexImage>(loaded).byteCount);
    service.log.line(play.request->path + ": " + std::to_string(byteCount) + " bytes");
    return undisturbedUpload(settings.pace, settings.bytes.value_or(byteCount));
}

void Service::ClientStage::show(const Frame& frame) {
    Status next = base();
    next.state = frame.state;
    next.progress = frame.progress;
    report(next);
}

// What an upload shows first carries its own mode, address and serial number; they are not announced before.
Status Service::ClientStage::base() const {
    Status status = service.status_;
    if (!play.request || play.reported) return status;
    status.mode = play.request->mode;
    status.progress = 0;
    status.address = play.request->address;
    status.serial = play.request->serial;
    return status;
}

void Service::ClientStage::report(const Status& next) {
    play.reported = true;
    service.change(next, now);
}

void Service::ClientStage::act(const ShowStatus& step) {
    Status next = base();
    next.mode = step.mode.value_or(next.mode);
    next.state = step.state.value_or(next.state);
    next.progress = step.progress.value_or(next.progress);
    next.address = step.address.value_or(next.address);
    next.serial = step.serial.value_or(next.serial);
    report(next);
}

void Service::ClientStage::act(const Report& /*step*/) {
    service.clients.broadcast(service.packet(CmdStatus, statusPayload(service.status_)), now);
}

void Service::ClientStage::act(const Greet& /*step*/) {
    Identity identity = service.scenario.settings.identity;
    if (identity.processId == 0) identity.processId = static_cast<std::uint32_t>(getpid());
    service.send(play.client, CmdConnectionInfo, connectionInfoPayload(identity), now);
}

void Service::ClientStage::act(const SendBytes& step) {
    if (client() != nullptr) client()->sendRaw(step.bytes, now);
}

void Service::ClientStage::act(const SendPacket& step) { service.send(play.client, step.command, step.payload, now); }

void Service::ClientStage::act(const SendHalf& step) {
    if (client() == nullptr) return;
    Bytes bytes = service.packet(CmdStatus, statusPayload(service.status_));
    bytes.resize(step.byteCount);
    client()->sendRaw(bytes, now);
    client()->setSilent(true);
}

void Service::ClientStage::act(const Silence& /*step*/) {
    if (client() != nullptr) client()->setSilent(true);
}

void Service::ClientStage::act(const Speak& /*step*/) {
    if (client() != nullptr) client()->setSilent(false);
}

void Service::ClientStage::act(const Close& /*step*/) {
    if (client() != nullptr) client()->close(now, "closed by the scenario");
}

void Service::ClientStage::act(const Reset& /*step*/) {
    if (client() == nullptr) return;
    client()->flush(now);
    client()->reset();
}

void Service::ClientStage::act(const Die& /*step*/) {
    service.clients.flush(now);
    kill(getpid(), SIGKILL);
}

void Service::ClientStage::act(const Exit& step) { service.exitStatus_ = step.status; }

}  // namespace sim
