#include "sw_drv/RTkernel/linux/Mutex.h"

#include <cerrno>
#include <new>

namespace threadfunc {

mutex::mutex() : handle(new (std::nothrow) pthread_mutex_t) {
    if (handle != nullptr) pthread_mutex_init(handle.get(), nullptr);
}

mutex::~mutex() {
    if (handle != nullptr) pthread_mutex_destroy(handle.get());
}

int mutex::lock() { return handle == nullptr ? ENOMEM : pthread_mutex_lock(handle.get()); }

bool mutex::tryLock() { return handle != nullptr && pthread_mutex_trylock(handle.get()) == 0; }

int mutex::unlock() { return handle == nullptr ? ENOMEM : pthread_mutex_unlock(handle.get()); }

}  // namespace threadfunc
