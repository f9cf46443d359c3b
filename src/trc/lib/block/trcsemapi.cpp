// The trace semaphore as the tool takes it, around reading the live block: a
// hold for reading (trchold.h). Taking it never waits for a writer, and
// waits for another reader only within a bound; a report whose hold could
// not be had goes on over what it finds.
#include <kelvo/facility.h>

#include "trcexport.h"
#include "trcprocess.h"
#include "trchold.h"

#include <atomic>
#include <cerrno>

namespace {

// The block whose semaphore this process holds. A block removed since the
// tool attached it has no writers left, so the current block is the one to
// lock.
std::atomic<kelvo::Live*> held{nullptr};

}  // namespace

extern "C" {

KELVO_EXPORT int32_t trcSemAttach(void) { return kelvo::currentLive() == nullptr ? -1 : 0; }

KELVO_EXPORT int32_t trcSemP(void)
{
    kelvo::Live* live = kelvo::currentLive();
    if (live == nullptr)
        return -1;
    int rc = kelvo::holdTake(*live);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    held.store(live);
    return 0;
}

KELVO_EXPORT int32_t trcSemV(void)
{
    kelvo::Live* live = held.exchange(nullptr);
    if (live == nullptr) {
        errno = EPERM;
        return -1;
    }
    kelvo::holdRelease(*live);
    return 0;
}

}  // extern "C"
