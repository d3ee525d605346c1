#pragma once
/// The small event ring through which signals reach the main thread.

#include <array>
#include <atomic>
#include <cstdint>

namespace CANFlasher {

/// Event ids. 0 marks a free slot and is no event.
inline constexpr std::uint32_t EvtShutdown = 21;

/// The event that was taken last.
struct CurrentEvent {
    std::uint32_t id = 0;         ///< as posted; 0 when none was taken
    std::uint32_t parameter = 0;  ///< as posted
    std::uint32_t extra = 0;      ///< always 0
};

/// Ring of 200 events, oldest out first. Any thread may call any member, and so may a handler of SIGINT or SIGTERM
/// that interrupts one of them: the slots are touched only under the process-wide lock with both signals blocked on
/// the calling thread, so that a handler never waits for the lock of the code it interrupted. Nothing here allocates,
/// prints or waits for anything but that lock.
class EventRing {
public:
    /// Called with id and parameter of a dispatched event.
    using Handler = void (*)(std::uint32_t id, std::uint32_t parameter);

    constexpr EventRing() = default;

    /// Forgets all events, the current one included. The handler stays. Returns 1.
    std::uint32_t initEvents();

    /// `newHandler` is called by every later dispatchEvent; null: none. Returns 1.
    std::uint32_t setEventHandler(Handler newHandler);

    /// Adds an event. Returns 1, or 0 when it was dropped: the ring is full, `queue` is not 0 (there is only that one)
    /// or `id` is 0, which marks free slots.
    std::uint32_t postEvent(std::uint32_t queue, std::uint32_t id, std::uint32_t parameter);

    /// Takes the oldest event and calls the handler with it, without the lock. Returns 1, or 0 when there is none.
    /// Cheap while nothing was posted: then it looks at one flag only.
    std::uint32_t dispatchEvent();

    /// Takes the oldest event without calling the handler. Returns its id and fills `parameter`, or returns 0.
    std::uint32_t takeEvent(std::uint32_t& parameter);

    /// The same with the index of the queue: 0 when it is not 0.
    std::uint32_t takeEvent(std::uint32_t queue, std::uint32_t& parameter);

    /// Copies the event taken last. Returns 1, or 0 when none was taken since initEvents.
    std::uint32_t currentEvent(CurrentEvent& out) const;

    /// Returns 1 when an event waits, else 0.
    std::uint32_t eventWaiting();

private:
    static constexpr std::uint16_t kSlots = 200;

    struct Slot {
        std::uint32_t id = 0;
        std::uint32_t parameter = 0;
    };

    /// The slot after `index`.
    static std::uint16_t next(std::uint16_t index) { return index + 1 < kSlots ? std::uint16_t(index + 1) : 0; }
    bool takeOldest(Slot& taken);

    // All but `pending` is touched only while a Lock (see the source) exists.
    std::array<Slot, kSlots> slots{};
    std::uint16_t writeIndex = 0;
    std::uint16_t readIndex = 0;
    std::atomic<bool> pending{false};  // written under the lock, read by dispatchEvent without it
    CurrentEvent current{};
    std::uint32_t currentValid = 0;
    Handler handler = nullptr;
};

// The ring of this process; initEvents makes it ready. It lives as long as the process.

/// EventRing::initEvents of the process's ring.
std::uint32_t initEvents();
/// EventRing::setEventHandler of the process's ring.
std::uint32_t setEventHandler(EventRing::Handler handler);
/// EventRing::postEvent of the process's ring.
std::uint32_t postEvent(std::uint32_t queue, std::uint32_t id, std::uint32_t parameter);
/// EventRing::dispatchEvent of the process's ring.
std::uint32_t dispatchEvent();
/// EventRing::takeEvent of the process's ring.
std::uint32_t takeEvent(std::uint32_t& parameter);
/// EventRing::takeEvent of the process's ring.
std::uint32_t takeEvent(std::uint32_t queue, std::uint32_t& parameter);
/// EventRing::currentEvent of the process's ring.
std::uint32_t currentEvent(CurrentEvent& out);
/// EventRing::eventWaiting of the process's ring.
std::uint32_t eventWaiting();

}  // namespace CANFlasher
