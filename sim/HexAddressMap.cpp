#include "sim/HexAddressMap.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {
constexpr std::uint32_t kSegmentBytes = 0x10000;
}

void HexAddressMap::setSegment(std::uint16_t paragraph) {
    base = std::uint64_t{paragraph} * 16;
    linear = false;
}

void HexAddressMap::setLinear(std::uint16_t upperHalf) {
    base = std::uint64_t{upperHalf} << 16;
    linear = true;
}

std::optional<HexAddressMap::Conflict> HexAddressMap::add(const HexRecord& record) {
    const auto byteCount = static_cast<std::uint32_t>(record.data.size());
    const std::uint32_t room = linear ? byteCount : kSegmentBytes - record.address;
    const std::uint32_t head = std::min(byteCount, room);
    if (auto conflict = addRun(base + record.address, head, 0)) return conflict;
    return addRun(base, byteCount - head, head);
}

std::optional<HexAddressMap::Conflict> HexAddressMap::addRun(std::uint64_t first, std::uint32_t byteCount,
                                                             std::uint32_t dataIndex) {
    if (byteCount == 0) return std::nullopt;
    const std::uint64_t last = first + byteCount - 1;
    if (auto conflict = checkAllowed(first, last, dataIndex)) return conflict;
    if (auto conflict = checkFree(first, last, dataIndex)) return conflict;
    insert(first, last);
    return std::nullopt;
}

std::optional<HexAddressMap::Conflict> HexAddressMap::checkAllowed(std::uint64_t first, std::uint64_t last,
                                                                   std::uint32_t dataIndex) const {
    if (first >= allowed.first && last <= allowed.last) return std::nullopt;
    const bool beginsOutside = first < allowed.first || first > allowed.last;
    const std::uint64_t wrong = beginsOutside ? first : std::uint64_t{allowed.last} + 1;
    return Conflict{dataIndex + static_cast<std::uint32_t>(wrong - first),
                    "an address from " + hexText(allowed.first, 8) + " to " + hexText(allowed.last, 8),
                    hexText(wrong, 8)};
}

std::optional<HexAddressMap::Conflict> HexAddressMap::checkFree(std::uint64_t first, std::uint64_t last,
                                                                std::uint32_t dataIndex) const {
    auto next = runs.upper_bound(first);
    if (next != runs.begin() && std::prev(next)->second >= first) --next;
    if (next == runs.end() || next->first > last) return std::nullopt;
    const std::uint64_t wrong = std::max(first, next->first);
    return Conflict{dataIndex + static_cast<std::uint32_t>(wrong - first), "an address that no earlier record fills",
                    hexText(wrong, 8)};
}

void HexAddressMap::insert(std::uint64_t first, std::uint64_t last) {
    auto next = runs.upper_bound(first);
    if (next != runs.end() && next->first == last + 1) {
        last = next->second;
        next = runs.erase(next);
    }
    if (next != runs.begin() && std::prev(next)->second + 1 == first) {
        std::prev(next)->second = last;
    } else {
        runs.emplace_hint(next, first, last);
    }
}

HexImage HexAddressMap::image() const {
    HexImage image;
    for (const auto& [first, last] : runs) {
        image.ranges.push_back({static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(last)});
        image.byteCount += last - first + 1;
    }
    return image;
}

}  // namespace sim
