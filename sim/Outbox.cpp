#include "sim/Outbox.h"

#include <algorithm>

namespace sim {

void Outbox::put(std::span<const std::uint8_t> packet, Instant now) {
    waitingBytes += packet.size();
    if (!delivery.cuts.empty()) return putCut(packet);
    if (delivery.gather <= 1) return putWhole(packet);
    if (gatheredCount == 0) gatheredSince = now;
    gathered.insert(gathered.end(), packet.begin(), packet.end());
    if (++gatheredCount == delivery.gather) releaseGathered();
}

void Outbox::putCut(std::span<const std::uint8_t> packet) {
    std::size_t begin = 0;
    for (const std::size_t cut : delivery.cuts) {
        if (cut >= packet.size()) break;
        pieces.push_back({Bytes(packet.begin() + static_cast<std::ptrdiff_t>(begin),
                                packet.begin() + static_cast<std::ptrdiff_t>(cut)),
                          begin != 0});
        begin = cut;
    }
    pieces.push_back({Bytes(packet.begin() + static_cast<std::ptrdiff_t>(begin), packet.end()), begin != 0});
}

void Outbox::putWhole(std::span<const std::uint8_t> packet) {
    if (pieces.empty()) pieces.push_back({{}, false});
    pieces.back().bytes.insert(pieces.back().bytes.end(), packet.begin(), packet.end());
}

void Outbox::releaseGathered() {
    if (gathered.empty()) return;
    pieces.push_back({std::move(gathered), false});
    gathered.clear();
    gatheredCount = 0;
}

std::span<const std::uint8_t> Outbox::ready(Instant now) {
    if (gatheredCount != 0 && now >= gatheredSince + delivery.gatherWithin) releaseGathered();
    if (pieces.empty()) return {};
    if (pieces.front().pauseBefore && frontWritten == 0 && now < notBefore) return {};
    return std::span<const std::uint8_t>(pieces.front().bytes).subspan(frontWritten);
}

void Outbox::written(std::size_t byteCount, Instant now) {
    waitingBytes -= byteCount;
    frontWritten += byteCount;
    if (pieces.empty() || frontWritten < pieces.front().bytes.size()) return;
    pieces.pop_front();
    frontWritten = 0;
    notBefore = now + delivery.cutPause;
}

std::optional<Instant> Outbox::due() const {
    std::optional<Instant> next;
    if (!pieces.empty() && pieces.front().pauseBefore && frontWritten == 0) next = notBefore;
    if (gatheredCount != 0) {
        const Instant release = gatheredSince + delivery.gatherWithin;
        next = next ? std::min(*next, release) : release;
    }
    return next;
}

}  // namespace sim
