#include "sw_drv/RTkernel/linux/Semaphore.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iostream>
#include <string>

#include "sw_drv/RTkernel/linux/WholeText.h"

namespace threadfunc {

semaphore::semaphore(unsigned value) : handle(std::make_unique<sem_t>()) {
    sem_init(handle.get(), 0, std::min<unsigned>(value, SEM_VALUE_MAX));
}

semaphore::~semaphore() { sem_destroy(handle.get()); }

void semaphore::wait() {
    while (sem_wait(handle.get()) != 0) {
        if (errno == EINTR) continue;
        // On standard output, unlike all else in the kit: logs of terminals in the field are searched for it there.
        printWhole(std::cout, {"sem_wait() ", std::to_string(errno), "\n"});
        return;
    }
}

bool semaphore::tryWait() { return sem_trywait(handle.get()) == 0; }

int semaphore::post() { return sem_post(handle.get()); }

int semaphore::value() const {
    int count = 0;
    sem_getvalue(handle.get(), &count);
    return count;
}

}  // namespace threadfunc
