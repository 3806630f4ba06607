// A mutex that a thread with a real-time priority may wait for.
#pragma once

#include <pthread.h>

namespace KxNContainer {

/// Who holds it has the priority of those who wait for it, so that nothing else keeps it from letting go
/// (pthread_mutexattr_setprotocol(3)). For std::lock_guard.
class InheritingMutex {
public:
    InheritingMutex() {
        pthread_mutexattr_t attributes;
        ::pthread_mutexattr_init(&attributes);
        ::pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        ::pthread_mutex_init(&mutex, &attributes);
        ::pthread_mutexattr_destroy(&attributes);
    }
    ~InheritingMutex() { ::pthread_mutex_destroy(&mutex); }
    InheritingMutex(const InheritingMutex&) = delete;
    InheritingMutex& operator=(const InheritingMutex&) = delete;

    void lock() { ::pthread_mutex_lock(&mutex); }
    void unlock() { ::pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex;
};

}  // namespace KxNContainer
