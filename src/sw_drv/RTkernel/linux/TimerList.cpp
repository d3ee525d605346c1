#include "sw_drv/RTkernel/linux/TimerList.h"

#include <algorithm>
#include <iterator>

namespace threadfunc {

std::int32_t dueTime(std::int32_t now, std::int32_t ms) {
    const std::int32_t delay = std::clamp(ms, std::int32_t{0}, kLongestDelayMs);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(now) + static_cast<std::uint32_t>(delay));
}

std::int32_t timeUntil(std::int32_t due, std::int32_t now) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(due) - static_cast<std::uint32_t>(now));
}

bool TimerList::insert(TimerEntry& entry) {
    const auto sameOrLater = std::find_if(entries.begin(), entries.end(), [&entry](const TimerEntry* listed) {
        return timeUntil(listed->due, entry.due) >= 0;
    });
    const auto inserted = entries.insert(sameOrLater, &entry);
    return inserted == entries.begin();
}

void TimerList::remove(TimerEntry& entry) { entries.remove(&entry); }

std::list<TimerEntry*> TimerList::popDue(std::int32_t now) {
    const auto firstLater = std::find_if(entries.begin(), entries.end(),
                                         [now](const TimerEntry* listed) { return timeUntil(listed->due, now) > 0; });
    std::list<TimerEntry*> due;
    due.splice(due.end(), entries, entries.begin(), firstLater);
    return due;
}

std::int32_t TimerList::nextTimeoutMs(std::int32_t now) const {
    if (entries.empty()) return kIdleTimeoutMs;
    return std::clamp(timeUntil(entries.front()->due, now), std::int32_t{0}, kIdleTimeoutMs);
}

}  // namespace threadfunc
