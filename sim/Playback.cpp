#include "sim/Playback.h"

namespace sim {

void Playback::advance(Instant now, Stage& stage) {
    while (!finished_ && due_ <= now) {
        if (next < steps.size()) {
            take(steps[next], stage);
        } else {
            finished_ = true;  // a wait at the end of a sequence belongs to it
        }
    }
}

void Playback::take(const Step& step, Stage& stage) {
    if (const auto* normal = std::get_if<Normal>(&step)) return takeNormal(*normal, stage);
    ++next;
    if (const auto* wait = std::get_if<Wait>(&step)) {
        postpone(wait->time);
    } else if (!stage.perform(step)) {
        end();
    }
}

// Takes one frame, or the time before it, a call: so all that is due goes through the one loop of advance().
void Playback::takeNormal(const Normal& normal, Stage& stage) {
    if (!frames) frames = stage.beginUpload();
    if (!frames) return end();
    if (nextFrame == frames->size() || passed(normal.until) ||
        (frameWaited && (*frames)[nextFrame].state > normal.until.state)) {
        ++next;  // a later state, whose time has come, waits for the next step
    } else if (!frameWaited) {
        frameWaited = true;
        postpone((*frames)[nextFrame].after);
    } else {
        stage.show((*frames)[nextFrame++]);
        frameWaited = false;
    }
}

bool Playback::passed(const Moment& moment) const {
    if (nextFrame == 0) return false;
    const Frame& shown = (*frames)[nextFrame - 1];
    if (shown.state != moment.state) return shown.state > moment.state;
    return moment.percent && shown.progress >= *moment.percent;
}

}  // namespace sim
