// The operations on a running trace as a whole: off, change, clear, attach.
// Each holds the trace semaphore while it changes the block, so that a
// writer sees the trace before or after the change, never in between.
#include <kelvo/facility.h>

#include "trcarea.h"
#include "trcexport.h"
#include "trcheader.h"
#include "trcprocess.h"
#include "trcsem.h"

#include <unistd.h>

#include <cerrno>

namespace kelvo {
namespace {

constexpr int offAttempts = 3;

int32_t fail(int error)
{
    errno = error;
    return -1;
}

void bumpGeneration(Live& live)
{
    __atomic_add_fetch(&live.control->generation, 1u, __ATOMIC_RELEASE);
}

// Takes the semaphore of the live block when the trace runs: 0, ENOENT.
int lockRunning(Live*& live)
{
    live = currentLive();
    if (live == nullptr)
        return ENOENT;
    int rc = semLock(*live);
    if (rc != 0)
        return rc;
    if (live->control->removed != 0 || live->header->traceOff != 0) {
        semUnlock(*live);
        return ENOENT;
    }
    return 0;
}

// Marks the block removed and unlinks its name, both under the semaphore:
// the name is unlinked only by the one who removed it.
// Maps the block of a file trace whose file is gone. Like every mapping it
// is kept for the life of the process, here in a list of its own.
Live* mapLiveToEnd()
{
    static Live* kept = nullptr;
    Live* live = mapLive(false);
    if (live != nullptr) {
        live->older = kept;
        kept = live;
    }
    return live;
}

int removeTrace()
{
    for (int attempt = 0; attempt < offAttempts; ++attempt) {
        Live* live = currentLive();
        // A file trace whose file was removed can no longer be written, but
        // it must still be possible to end it.
        if (live == nullptr)
            live = mapLiveToEnd();
        if (live == nullptr)
            return ENOENT;
        int rc = semLock(*live);
        if (rc != 0)
            return rc;
        if (live->control->removed != 0) {
            semUnlock(*live);
            continue;
        }
        __atomic_store_n(&live->control->removed, 1u, __ATOMIC_RELEASE);
        storeRelaxed(live->header->traceOff, int32_t{1});
        if (live->fileHeader != nullptr)
            storeRelaxed(live->fileHeader->traceOff, int32_t{1});
        bumpGeneration(*live);
        unlink(instancePath().c_str());
        semUnlock(*live);
        return 0;
    }
    return ENOENT;
}

} // namespace
} // namespace kelvo

extern "C" {

KELVO_EXPORT int32_t trcOff(int32_t)
{
    int rc = kelvo::removeTrace();
    return rc == 0 ? 0 : kelvo::fail(rc);
}

KELVO_EXPORT int32_t trcChg(const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid,
                            uint32_t thisPointer, int32_t returnCode, int32_t maxSevereErrors,
                            int32_t maxRecordSize, uint32_t flags, const uint8_t* crashMask,
                            const uint8_t* pauseMask, int32_t pauseAttrib)
{
    kelvo::Live* live = nullptr;
    int rc = kelvo::lockRunning(live);
    if (rc != 0)
        return kelvo::fail(rc);
    kelvo::TraceSettings settings{mask, pid, tid, cpid, thisPointer, returnCode, maxSevereErrors,
                                  maxRecordSize, flags, crashMask, pauseMask, pauseAttrib};
    kelvo::changeHeader(*live->header, settings);
    if (live->fileHeader != nullptr)
        kelvo::changeHeader(*live->fileHeader, settings);
    kelvo::bumpGeneration(*live);
    kelvo::semUnlock(*live);
    return 0;
}

KELVO_EXPORT int32_t trcClear(int32_t)
{
    kelvo::Live* live = nullptr;
    int rc = kelvo::lockRunning(live);
    if (rc != 0)
        return kelvo::fail(rc);
    if (live->area == nullptr) {
        kelvo::semUnlock(*live);
        return kelvo::fail(EINVAL);
    }
    kelvo::areaReset(*live);
    kelvo::storeRelaxed(live->header->traceFull, int32_t{0});
    if (live->fileHeader != nullptr)
        kelvo::storeRelaxed(live->fileHeader->traceFull, int32_t{0});
    kelvo::bumpGeneration(*live);
    kelvo::semUnlock(*live);
    return 0;
}

KELVO_EXPORT trcHeader_t* trcAttach(int32_t, int32_t, int32_t)
{
    kelvo::Live* live = kelvo::currentLive();
    return live == nullptr ? nullptr : live->header;
}

} // extern "C"
