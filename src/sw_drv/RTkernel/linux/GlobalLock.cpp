#include "sw_drv/RTkernel/linux/GlobalLock.h"

#include <pthread.h>

#include <mutex>

namespace threadfunc {

namespace {

pthread_mutex_t processLock = PTHREAD_MUTEX_INITIALIZER;  // never destroyed: used while the process ends
std::once_flag prepared;

// Without memory for the attributes the lock stays what it is, a default one: good enough for all who lock it once.
void makeRecursive() {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) return;
    if (pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0)
        pthread_mutex_init(&processLock, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

}  // namespace

int globalLock() {
    std::call_once(prepared, makeRecursive);
    return pthread_mutex_lock(&processLock);
}

int globalUnlock() { return pthread_mutex_unlock(&processLock); }

}  // namespace threadfunc
