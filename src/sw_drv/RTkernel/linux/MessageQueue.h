#pragma once
/// The bounded queue through which threads hand work to each other.

#include <cstdint>
#include <deque>
#include <utility>

#include "sw_drv/RTkernel/linux/Mutex.h"
#include "sw_drv/RTkernel/linux/Semaphore.h"

namespace threadfunc {

/// First in, first out, at most `capacity` values. Any number of threads may put and get at once; nobody polls, and a
/// waiting caller holds no lock. `guard` is innermost: nothing else is locked while it is held.
///
/// usedSlots + freeSlots = capacity and usedSlots = values held, between operations: a unit is taken before the
/// sequence changes and given after, so the counts may lag the sequence by one and never lead it.
///
/// The queue owns values, not what they point to: an owner of pointers drains its queue before destroying it. Copying
/// and moving a T must not throw. Destroyed by its owner when no other thread uses it.
template <typename T>
class queue_template {
    std::deque<T> items GUARDED_BY(guard);

public:
    /// The bound given at construction, 0 to 2147483647 (larger values count as that). With 0 every `tryPut` fails
    /// and every `put` waits for ever.
    const std::uint32_t capacity;

    /// Empty, with room for `bound` values.
    explicit queue_template(unsigned bound) : capacity(bound), usedSlots(0), freeSlots(bound) {}
    virtual ~queue_template() = default;
    queue_template(const queue_template&) = delete;
    queue_template& operator=(const queue_template&) = delete;

    /// Appends `value`; waits while the queue is full.
    void put(const T& value) {
        freeSlots.wait();
        append(value);
        usedSlots.post();
    }

    /// Appends `value` if there is room; returns false at once, with the queue unchanged, when it is full.
    [[nodiscard]] bool tryPut(const T& value) {
        const MutexLock lock(guard);
        if (!freeSlots.tryWait()) return false;
        items.push_back(value);
        usedSlots.post();  // before the unlock: whoever gets `guard` next finds the counts right
        return true;
    }

    /// Removes the oldest value and returns it; waits while the queue is empty.
    T get() {
        usedSlots.wait();
        T value = takeFront();
        freeSlots.post();
        return value;
    }

    /// Removes the oldest value into `value`; returns false at once, with `value` untouched, when the queue is empty.
    [[nodiscard]] bool tryGet(T& value) {
        const MutexLock lock(guard);
        if (!usedSlots.tryWait()) return false;
        value = std::move(items.front());
        items.pop_front();
        freeSlots.post();
        return true;
    }

    /// Values that a consumer may take now. Like `space` a glimpse: other threads may have changed it already.
    int size() const { return usedSlots.value(); }
    /// Values that a producer may add now.
    int space() const { return freeSlots.value(); }

private:
    void append(const T& value) EXCLUDES(guard) {
        const MutexLock lock(guard);
        items.push_back(value);
    }

    T takeFront() EXCLUDES(guard) {
        const MutexLock lock(guard);
        T value = std::move(items.front());
        items.pop_front();
        return value;
    }

    semaphore usedSlots;
    semaphore freeSlots;
    mutex guard;
};

}  // namespace threadfunc
