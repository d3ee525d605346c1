#include "tests/faults/Injection.h"

#include <sys/select.h>

#include <cerrno>
#include <cstdlib>
#include <new>

namespace faults {

namespace {

Plan armedPlan;
std::atomic<Tally*> sharedTally{nullptr};

bool counts(Kind kind, Trait trait) {
    if (kind == Kind::shortCount) return trait == Trait::countsAndWaits || trait == Trait::sends;
    if (kind == Kind::interrupted) return trait != Trait::none;
    return kind == Kind::delay || trait != Trait::onlyWaits;
}

bool isStruck(long number) {
    return number == armedPlan.first || (armedPlan.forever && number > armedPlan.first) ||
           (armedPlan.second != 0 && number == armedPlan.second);
}

void waitThreeMilliseconds() {
    timeval time{0, 3000};
    ::select(0, nullptr, nullptr, nullptr, &time);  // not a wrapped call
}

}  // namespace

int (*onSystem)(const char* command) = nullptr;

void arm(const Plan& newPlan, Tally& newTally) {
    armedPlan = newPlan;
    sharedTally = &newTally;
}

void disarm() { sharedTally = nullptr; }

bool aCallFailed() {
    const Tally* const here = sharedTally;
    return here != nullptr && here->failed;
}

bool aCallStopped() {
    const Tally* const here = sharedTally;
    return here != nullptr && here->struck != 0 && armedPlan.kind != Kind::delay;
}

Action next(const char* call, Trait trait) {
    Tally* const here = sharedTally;
    if (here == nullptr || Pause::active() || !counts(armedPlan.kind, trait)) return Action::goOn;
    if (!isStruck(++here->calls)) return Action::goOn;
    ++here->struck;
    here->lastStruck = call;
    if (armedPlan.kind == Kind::error || (armedPlan.kind == Kind::shortCount && trait == Trait::sends))
        here->failed = true;
    switch (armedPlan.kind) {
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
    Tally* const here = sharedTally;  // before: the run may end meanwhile
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
