#include "sw_drv/RTkernel/linux/Stopwatch.h"

#include "sw_drv/RTkernel/linux/Clock.h"
#include "sw_drv/RTkernel/linux/Saturate.h"

namespace threadfunc {

Stopwatch::Stopwatch(bool startNow) {
    if (startNow) start();
}

void Stopwatch::start() {
    startTime = secondsSinceStart();
    running = true;
}

void Stopwatch::stop() {
    stopTime = secondsSinceStart();
    running = false;
}

double Stopwatch::elapsed() const { return (running ? secondsSinceStart() : stopTime) - startTime; }

int Stopwatch::elapsedMs() const { return saturate<int>(elapsed() * 1000); }

}  // namespace threadfunc
