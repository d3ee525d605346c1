#pragma once
/// Plays a sequence of steps in time. Pure but for the stage: the clock is an argument.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/Clock.h"
#include "sim/Scenario.h"

namespace sim {

/// What a sequence acts on.
class Stage {
public:
    virtual ~Stage() = default;

    /// Does a step, any but Wait and Normal. False ends the sequence.
    virtual bool perform(const Step& step) = 0;
    /// Reads the hex file of the upload. Returns the reports of its undisturbed upload; none when the file is bad (the
    /// stage has reported that itself), which ends the sequence.
    virtual std::optional<std::vector<Frame>> beginUpload() = 0;
    /// Shows the next report of the undisturbed upload.
    virtual void show(const Frame& frame) = 0;
};

/// One run of one sequence. Times count from one due moment to the next, so that a late call catches up.
class Playback {
public:
    /// Borrows `sequence`. `factor` is 1 or more: all times are divided by it.
    Playback(std::span<const Step> sequence, std::uint32_t factor, Instant begin)
        : steps(sequence), speed(factor), due_(begin) {}

    /// Does everything that is due at `now`, in order.
    void advance(Instant now, Stage& stage);

    /// True once all steps are done and all their time is over.
    bool finished() const { return finished_; }
    /// When there is something to do next; only while not finished.
    Instant due() const { return due_; }

private:
    void take(const Step& step, Stage& stage);
    void takeNormal(const Normal& normal, Stage& stage);
    bool passed(const Moment& moment) const;
    void end() { next = steps.size(); }
    void postpone(Duration time) { due_ += time / static_cast<Duration::rep>(speed); }

    std::span<const Step> steps;
    std::uint32_t speed;
    Instant due_;
    std::size_t next = 0;
    std::optional<std::vector<Frame>> frames;  // of the undisturbed upload, once it began
    std::size_t nextFrame = 0;
    bool finished_ = false;
    bool frameWaited = false;  // the time before the next frame is over
};

}  // namespace sim
