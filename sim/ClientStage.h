#pragma once
/// The stage of one play: steps become packets of the client that began it, and reports to all.

#include <optional>
#include <vector>

#include "sim/Playback.h"
#include "sim/Service.h"

namespace sim {

/// Lives for one call of Playback::advance.
class Service::ClientStage : public Stage {
public:
    /// Borrows both.
    ClientStage(Service& owner, Play& current, Instant moment) : service(owner), play(current), now(moment) {}

    bool perform(const Step& step) override;
    std::optional<std::vector<Frame>> beginUpload() override;
    void show(const Frame& frame) override;

private:
    Status base() const;
    void report(const Status& next);

    // One overload a step; a step that Playback plays itself does nothing here.
    void act(const ShowStatus& step);
    void act(const Wait& /*step*/) {}
    void act(const Normal& /*step*/) {}
    void act(const Report& step);
    void act(const Greet& step);
    void act(const SendBytes& step);
    void act(const SendPacket& step);
    void act(const SendHalf& step);
    void act(const Silence& step);
    void act(const Speak& step);
    void act(const Close& step);
    void act(const Reset& step);
    void act(const Die& step);
    void act(const Exit& step);

    Connection* client() const { return service.clients.find(play.client); }

    Service& service;
    Play& play;
    Instant now;
};

}  // namespace sim
