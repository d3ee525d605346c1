#include "app/EventRing.h"

#include "app/SignalBlock.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

namespace CANFlasher {

static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets the pending flag");

namespace {

/// Exclusive use of the ring. The signals are blocked before the lock is asked for and delivered only after it is
/// given back: a handler that interrupted pthread_mutex_lock or unlock half-way would wait for itself for ever.
class Lock {
public:
    Lock() { threadfunc::globalLock(); }
    ~Lock() { threadfunc::globalUnlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    SignalBlock signals;  // built before the body of the constructor runs, ends after that of the destructor
};

constinit EventRing processRing;

}  // namespace

std::uint32_t EventRing::initEvents() {
    const Lock lock;
    pending = false;
    current = {};
    currentValid = 0;
    for (Slot& slot : slots) slot.id = 0;
    writeIndex = 0;
    readIndex = 0;
    return 1;
}

std::uint32_t EventRing::setEventHandler(Handler newHandler) {
    const Lock lock;
    handler = newHandler;
    return 1;
}

std::uint32_t EventRing::postEvent(std::uint32_t queue, std::uint32_t id, std::uint32_t parameter) {
    if (queue != 0 || id == 0) return 0;
    const Lock lock;
    Slot& slot = slots[writeIndex];
    if (slot.id != 0) return 0;
    slot = {id, parameter};
    writeIndex = next(writeIndex);
    pending = true;
    return 1;
}

std::uint32_t EventRing::dispatchEvent() {
    if (!pending) return 0;
    Slot taken;
    Handler called = nullptr;
    {
        const Lock lock;
        if (!takeOldest(taken)) return 0;
        called = handler;
    }
    if (called != nullptr) called(taken.id, taken.parameter);
    return 1;
}

std::uint32_t EventRing::takeEvent(std::uint32_t& parameter) {
    const Lock lock;
    Slot taken;
    if (!takeOldest(taken)) return 0;
    parameter = taken.parameter;
    return taken.id;
}

std::uint32_t EventRing::takeEvent(std::uint32_t queue, std::uint32_t& parameter) {
    return queue == 0 ? takeEvent(parameter) : 0;
}

std::uint32_t EventRing::currentEvent(CurrentEvent& out) const {
    const Lock lock;
    out = current;
    return currentValid;
}

std::uint32_t EventRing::eventWaiting() {
    const Lock lock;
    if (slots[readIndex].id != 0) return 1;
    pending = false;
    return 0;
}

/// Under the lock: moves the oldest event into `taken` and makes it the current one. False when the ring is empty.
bool EventRing::takeOldest(Slot& taken) {
    Slot& slot = slots[readIndex];
    if (slot.id == 0) {
        pending = false;
        return false;
    }
    taken = slot;
    slot.id = 0;
    readIndex = next(readIndex);
    current = {taken.id, taken.parameter, 0};
    currentValid = 1;
    return true;
}

std::uint32_t initEvents() { return processRing.initEvents(); }
std::uint32_t setEventHandler(EventRing::Handler handler) { return processRing.setEventHandler(handler); }
std::uint32_t postEvent(std::uint32_t queue, std::uint32_t id, std::uint32_t parameter) {
    return processRing.postEvent(queue, id, parameter);
}
std::uint32_t dispatchEvent() { return processRing.dispatchEvent(); }
std::uint32_t takeEvent(std::uint32_t& parameter) { return processRing.takeEvent(parameter); }
std::uint32_t takeEvent(std::uint32_t queue, std::uint32_t& parameter) {
    return processRing.takeEvent(queue, parameter);
}
std::uint32_t currentEvent(CurrentEvent& out) { return processRing.currentEvent(out); }
std::uint32_t eventWaiting() { return processRing.eventWaiting(); }

}  // namespace CANFlasher
