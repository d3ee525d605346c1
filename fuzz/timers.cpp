// Sequences of operations on timers, also from within their expiries: which values come and in which order, how often
// the timer thread is woken and how long it sleeps.
// Input: the clock's first reading (4 bytes), then operations of 3 bytes each (takeOperation).
#include "fuzz/Fuzz.h"
#include "fuzz/oracle/SteppedTimers.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::TimerModel model(input.number<std::int32_t>());
    fuzz::SteppedTimers timers(static_cast<std::int32_t>(model.now));
    for (int rounds = 0; rounds < 100 && !input.empty(); ++rounds) {
        const fuzz::TimerOperation operation = fuzz::takeOperation(input);
        if (operation.kind == fuzz::TimerOperation::None || !model.allows(operation)) {
            const std::int32_t sleepMs = model.pass(operation.number);
            fuzz::check(timers.pass(static_cast<std::int32_t>(model.now)) == sleepMs);
        } else {
            model.apply(operation);
            timers.apply(operation);
            fuzz::check(timers.interval(operation.timer) == model.interval(operation.timer));
        }
        fuzz::check(timers.takeEvents() == model.events && timers.wakes() == model.wakes);
        model.events.clear();
    }
    return 0;
}
