// The trace semaphore. A holder may die at any point; the robust mutex then
// passes to the next taker at once, which re-derives the write position
// from the area before it marks the mutex usable again.
#include "trcsem.h"

#include "trcarea.h"

#include <cerrno>
#include <ctime>

namespace kelvo {
namespace {

constexpr int lockSpins = 16;

int afterLock(Live& live, int rc)
{
    if (rc == EOWNERDEAD) {
        if (live.area != nullptr)
            areaRecover(live);
        pthread_mutex_consistent(&live.control->mutex);
        return 0;
    }
    return rc;
}

} // namespace

int semInit(Control& control)
{
    pthread_mutexattr_t attr;
    int rc = pthread_mutexattr_init(&attr);
    if (rc != 0)
        return rc;
    rc = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    if (rc == 0)
        rc = pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    if (rc == 0)
        rc = pthread_mutex_init(&control.mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return rc;
}

int semLock(Live& live)
{
    // A holder keeps the semaphore for a few dozen nanoseconds, far less
    // than a sleep in the kernel and the wake-up behind it cost: try a while
    // before blocking.
    for (int attempt = 0; attempt < lockSpins; ++attempt) {
        int rc = pthread_mutex_trylock(&live.control->mutex);
        if (rc != EBUSY)
            return afterLock(live, rc);
        for (int i = 0; i < attempt + 1; ++i)
            __builtin_ia32_pause();
    }
    return afterLock(live, pthread_mutex_lock(&live.control->mutex));
}

int semLockWithin(Live& live, int seconds)
{
    struct timespec until {};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += seconds;
    int rc = afterLock(live, pthread_mutex_timedlock(&live.control->mutex, &until));
    return rc == ETIMEDOUT ? EAGAIN : rc;
}

void semUnlock(Live& live)
{
    pthread_mutex_unlock(&live.control->mutex);
}

} // namespace kelvo
