#include "tests/faults/Injection.h"

#include <sys/select.h>

#include <cerrno>
#include <cstdlib>
#include <new>

namespace faults {

namespace {

Plan plan;
std::atomic<Tally*> tally{nullptr};

bool counts(Kind kind, Trait trait) {
    if (kind == Kind::shortCount) return trait == Trait::countsAndWaits || trait == Trait::sends;
    if (kind == Kind::interrupted) return trait != Trait::none;
    return kind == Kind::delay || trait != Trait::onlyWaits;
}

bool isStruck(long number) {
    return number == plan.first || (plan.forever && number > plan.first) || (plan.second != 0 && number == plan.second);
}

void waitThreeMilliseconds() {
    timeval time{0, 3000};
    ::select(0, nullptr, nullptr, nullptr, &time);  // not a wrapped call
}

}  // namespace

int (*onSystem)(const char* command) = nullptr;

void arm(const Plan& newPlan, Tally& newTally) {
    plan = newPlan;
    tally = &newTally;
}

void disarm() { tally = nullptr; }

bool aCallFailed() {
    const Tally* const here = tally;
    return here != nullptr && here->failed;
}

bool aCallStopped() {
    const Tally* const here = tally;
    return here != nullptr && here->struck != 0 && plan.kind != Kind::delay;
}

Action next(const char* call, Trait trait) {
    Tally* const here = tally;
    if (here == nullptr || Pause::active() || !counts(plan.kind, trait)) return Action::goOn;
    if (!isStruck(++here->calls)) return Action::goOn;
    ++here->struck;
    here->lastStruck = call;
    if (plan.kind == Kind::error || (plan.kind == Kind::shortCount && trait == Trait::sends)) here->failed = true;
    switch (plan.kind) {
        case Kind::error:
            return Action::fail;
        case Kind::shortCount:
            return Action::moveOneByte;
        case Kind::interrupted:
            return Action::interrupt;
        case Kind::delay: {
            const int before = errno;
            waitThreeMilliseconds();
            errno = before;
        }
    }
    return Action::goOn;
}

namespace {

bool allocationFails() {
    Tally* const here = tally;  // before: the run may end meanwhile
    if (next("operator new", Trait::none) != Action::fail) return false;
    here->outOfMemory = true;
    return true;
}

void* allocateOrThrow(std::size_t size) {
    for (;;) {
        void* const memory = allocationFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
        if (memory != nullptr) return memory;
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) throw std::bad_alloc();
        handler();
    }
}

void* allocateOrNull(std::size_t size) { return allocationFails() ? nullptr : std::malloc(size == 0 ? 1 : size); }

}  // namespace

}  // namespace faults

// Replaced for the whole program: the C++ library's own allocations are struck as well.
void* operator new(std::size_t size) { return faults::allocateOrThrow(size); }
void* operator new[](std::size_t size) { return faults::allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return faults::allocateOrNull(size); }
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return faults::allocateOrNull(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
