#include "sim/Pace.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::uint64_t kFrameBits = 131, kFrameDataBytes = 8, kMicrosecondsPerSecond = 1'000'000;

std::uint64_t divideUp(std::uint64_t value, std::uint64_t divisor) { return (value + divisor - 1) / divisor; }

/// Bytes programmed and time spent when a number of blocks is through.
struct Mark {
    std::uint64_t bytes;
    Duration elapsed;
};

Mark markOf(const Pace& pace, std::uint64_t byteCount, std::uint64_t blocks) {
    const std::uint64_t full = std::min(blocks, byteCount / pace.blockBytes);
    const auto rest = static_cast<std::uint32_t>(blocks > full ? byteCount % pace.blockBytes : 0);
    const Duration fullTime = blockTime(pace, pace.blockBytes) * static_cast<Duration::rep>(full);
    return {full * pace.blockBytes + rest, fullTime + (rest != 0 ? blockTime(pace, rest) : Duration(0))};
}

void appendProgramming(std::vector<Frame>& frames, const Pace& pace, std::uint64_t byteCount) {
    if (byteCount == 0) return frames.push_back({kProgramming, 100, Duration(0)});
    Duration before{0};
    for (std::uint64_t percent = 1; percent <= 100;) {
        const std::uint64_t blocks = divideUp(divideUp(percent * byteCount, 100), pace.blockBytes);
        const Mark mark = markOf(pace, byteCount, blocks);
        const std::uint64_t reached = mark.bytes * 100 / byteCount;
        frames.push_back({kProgramming, static_cast<std::uint8_t>(reached), mark.elapsed - before});
        before = mark.elapsed;
        percent = reached + 1;
    }
}

}  // namespace

Duration blockTime(const Pace& pace, std::uint32_t byteCount) {
    const std::uint64_t bits = (divideUp(byteCount, kFrameDataBytes) + 1) * kFrameBits;
    return pace.writeTime +
           Duration(static_cast<Duration::rep>(divideUp(bits * kMicrosecondsPerSecond, pace.bitsPerSecond)));
}

std::vector<Frame> undisturbedUpload(const Pace& pace, std::uint32_t byteCount) {
    std::vector<Frame> frames{
        {kPreparing, 0, Duration(0)},
        {kSearching, 0, pace.prepareTime},
        {kErasing, 0, pace.searchTime},
        {kProgramming, 0, pace.eraseTime},
    };
    appendProgramming(frames, pace, byteCount);
    frames.push_back({kDone, 100, pace.verifyTime});
    return frames;
}

}  // namespace sim
