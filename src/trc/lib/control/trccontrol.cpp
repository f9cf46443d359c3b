// The operations on a running trace as a whole: off, change, clear, attach.
// None of them waits for a writer; off waits for nobody at all, so that a
// trace can be ended whatever holds it.
#include <kelvo/facility.h>

#include "trcexport.h"
#include "trcfilter.h"
#include "trcheader.h"
#include "trchold.h"
#include "trclanes.h"
#include "trcprocess.h"
#include "trcring.h"

#include <cerrno>

namespace kelvo {
namespace {

// A clear waits this long for other readers to let the trace go.
constexpr int clearSeconds = 10;

int32_t fail(int error)
{
    errno = error;
    return -1;
}

void bumpGeneration(Live& live) { __atomic_add_fetch(&live.control->generation, 1u, __ATOMIC_RELEASE); }

bool running(const Live& live)
{
    return loadRelaxed(live.control->removed) == 0 && loadRelaxed(live.header->traceOff) == 0 &&
           !RingState::decode(loadRing(live)).closed;
}

// The live block when the trace runs: 0, ENOENT.
int findRunning(Live*& live)
{
    live = currentLive();
    return live != nullptr && running(*live) ? 0 : ENOENT;
}

int removeTrace()
{
    // A file trace whose file is gone can no longer be written, but it can
    // still be ended; so can a block that no longer makes sense.
    Live* live = currentLive();
    if (live != nullptr && live->fileHeader != nullptr)
        storeRelaxed(live->fileHeader->traceOff, int32_t{1});
    return retireBlock();
}

// Empties the lanes and the area of a trace held alone, as the settler.
int emptyTrace(Live& live)
{
    if (!holdLanes(live))
        return EAGAIN;
    lanesClear(live, settleWaitNs);
    releaseLanes(live);
    ringReset(live);
    storeRelaxed(live.header->traceFull, int32_t{0});
    if (live.fileHeader != nullptr)
        storeRelaxed(live.fileHeader->traceFull, int32_t{0});
    bumpGeneration(live);
    return 0;
}

int clearTrace()
{
    Live* live = nullptr;
    int rc = findRunning(live);
    if (rc != 0)
        return rc;
    if (live->area == nullptr)
        return EINVAL;
    rc = holdTake(*live);
    if (rc != 0)
        return rc;
    rc = holdAlone(*live, clearSeconds);
    // As the settler: a reader that comes now neither settles nor merges the
    // lanes (into the area, or into a dump's copy) while they are emptied.
    if (rc == 0 && settlerTake(*live)) {
        rc = emptyTrace(*live);
        settlerGive(*live);
    } else if (rc == 0) {
        rc = EAGAIN;
    }
    holdRelease(*live);
    return rc;
}

}  // namespace
}  // namespace kelvo

extern "C" {

KELVO_EXPORT int32_t trcOff(int32_t)
{
    int rc = kelvo::removeTrace();
    return rc == 0 ? 0 : kelvo::fail(rc);
}

KELVO_EXPORT int32_t trcChg(const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid, uint32_t thisPointer,
                            int32_t returnCode, int32_t maxSevereErrors, int32_t maxRecordSize, uint32_t flags,
                            const uint8_t* crashMask, const uint8_t* pauseMask, int32_t pauseAttrib)
{
    kelvo::Live* live = nullptr;
    int rc = kelvo::findRunning(live);
    if (rc != 0)
        return kelvo::fail(rc);
    kelvo::TraceSettings settings{mask,          pid,   tid,       cpid,      thisPointer, returnCode, maxSevereErrors,
                                  maxRecordSize, flags, crashMask, pauseMask, pauseAttrib};
    // Writers test every record again before the mask changes.
    kelvo::storeRelaxed(live->control->takesAll, 0u);
    kelvo::changeHeader(*live->header, settings);
    kelvo::storeRelaxed(live->control->takesAll, kelvo::takesEverything(*live->header) ? 1u : 0u);
    if (live->fileHeader != nullptr)
        kelvo::changeHeader(*live->fileHeader, settings);
    kelvo::storeRelaxed(live->control->keptFlags, kelvo::loadRelaxed(live->header->flags));
    kelvo::bumpGeneration(*live);
    return 0;
}

KELVO_EXPORT int32_t trcClear(int32_t)
{
    int rc = kelvo::clearTrace();
    return rc == 0 ? 0 : kelvo::fail(rc);
}

KELVO_EXPORT trcHeader_t* trcAttach(int32_t, int32_t, int32_t)
{
    kelvo::Live* live = kelvo::currentLive();
    return live == nullptr ? nullptr : live->header;
}

}  // extern "C"
