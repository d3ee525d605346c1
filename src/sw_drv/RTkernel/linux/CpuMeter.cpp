#include "sw_drv/RTkernel/linux/CpuMeter.h"

#include "sw_drv/RTkernel/linux/Saturate.h"
#include "sw_drv/RTkernel/linux/TimeConversion.h"

namespace threadfunc {

namespace {

rusage usageNow() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage;
}

}  // namespace

void CpuMeter::start() {
    stopUsage = {};
    running = true;
    startUsage = usageNow();
}

void CpuMeter::stop() {
    stopUsage = usageNow();
    running = false;
}

double CpuMeter::seconds(int kind) const {
    const rusage end = running ? usageNow() : stopUsage;
    const double user = secondsBetween(end.ru_utime, startUsage.ru_utime);
    const double system = secondsBetween(end.ru_stime, startUsage.ru_stime);
    switch (kind) {
        case 0:
            return user;
        case 1:
            return system;
        case 2:
            return user + system;
        default:
            return -1.0;
    }
}

int CpuMeter::milliseconds(int kind) const { return saturate<int>(seconds(kind) * 1000); }

}  // namespace threadfunc
