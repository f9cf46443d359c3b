// Storing a record. The mask and the filters are tested before the trace
// semaphore is taken, so that records the trace does not want cost no lock;
// the state of the trace is tested again under it, so that no record is
// stored after trcOff has returned.
#include "trcstore.h"

#include "trcarea.h"
#include "trcnative.h"
#include "trcprocess.h"
#include "trcsem.h"

#include <kelvo/facility.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace kelvo {
namespace {

constexpr int32_t rcBytes = 4;

bool isSevereEvent(unsigned event) { return event >= 1 && event <= 4; }

int32_t returnCodeOf(const RecordSource& record)
{
    int32_t rc = 0;
    std::memcpy(&rc, record.data, std::min<uint32_t>(record.length, rcBytes));
    return rc;
}

bool stillTaking(const Live& live)
{
    const trcHeader_t& h = *live.header;
    return loadRelaxed(live.control->removed) == 0 && loadRelaxed(h.traceOff) == 0 &&
           !((loadRelaxed(h.flags) & TRC_KEEP_INITIAL) && loadRelaxed(h.traceFull) != 0);
}

void setTraceField(Live& live, int32_t trcHeader_t::*field)
{
    storeRelaxed(live.header->*field, int32_t{1});
    if (live.fileHeader != nullptr)
        storeRelaxed(live.fileHeader->*field, int32_t{1});
}

// Counts a severe error and stops the trace after the last one allowed.
void noteSevere(Live& live, const RecordSource& record, bool rcEvent)
{
    const trcHeader_t& h = *live.header;
    unsigned event = record.ids.id[1];
    int32_t sysErrRc = loadRelaxed(h.sysErrRc);
    bool severe = isSevereEvent(event) || (rcEvent && sysErrRc != 0 && returnCodeOf(record) == sysErrRc);
    if (!severe)
        return;
    int32_t count = ++live.control->severeErrors;
    int32_t allowed = loadRelaxed(h.maxSevereErrors);
    if (allowed != -1 && count >= allowed)
        setTraceField(live, &trcHeader_t::traceOff);
}

// Length of the record: its data cut to maxRecordSize and to a segment, a
// return code always kept whole.
int32_t recordLength(const Live& live, const RecordSource& record, bool rcEvent)
{
    int32_t smallest = TRC_RECORD_MIN + (rcEvent ? rcBytes : 0);
    int32_t largest = std::max(loadRelaxed(live.header->maxRecordSize), smallest);
    largest = std::min(largest, areaLargestRecord(live));
    int64_t wanted = TRC_RECORD_MIN + static_cast<int64_t>(record.length);
    return static_cast<int32_t>(std::clamp<int64_t>(wanted, smallest, largest));
}

// Writes the record behind its length word, field by field straight into
// the area: staging it on the stack and copying it costs a stalled load.
void fillRecord(Live& live, int32_t offset, const RecordSource& record, int32_t length,
                uint32_t flags)
{
    uint8_t* at = live.area + offset;
    auto* fixed = reinterpret_cast<trcRecord_t*>(at);
    const uint8_t* id = record.ids.id;
    fixed->ident1 = static_cast<uint32_t>(id[0]) << 24 | static_cast<uint32_t>(id[1]) << 16;
    fixed->ident2 = static_cast<uint32_t>(id[2]) << 24 | static_cast<uint32_t>(id[3]) << 16 |
                    static_cast<uint32_t>(id[4]) << 8 | id[5];
    fixed->thisPointer = record.thisPointer;
    fixed->pid = processId();
    fixed->tid = threadId();
    fixed->node = nodeOfProcess();
    fixed->cpid = companionOfThread();
    fixed->sec = 0;
    fixed->nsec = 0;
    if (flags & TRC_OPTION_T) {
        struct timespec now {};
        clock_gettime(CLOCK_REALTIME, &now);
        fixed->sec = static_cast<int32_t>(now.tv_sec);
        fixed->nsec = static_cast<int32_t>(now.tv_nsec);
    }
    uint32_t room = static_cast<uint32_t>(length - TRC_RECORD_MIN);
    uint32_t copied = std::min(room, record.length);
    if (copied != 0)
        std::memcpy(at + TRC_RECORD_FIXED, record.data, copied);
    int32_t padded = trcAligned(length) - 4;
    std::memset(at + TRC_RECORD_FIXED + copied, 0, static_cast<std::size_t>(padded - TRC_RECORD_FIXED) - copied);
}

// Stores into the record area. Returns 1 when the area is full.
int storeInArea(Live& live, const RecordSource& record, bool rcEvent, uint32_t flags)
{
    int32_t length = recordLength(live, record, rcEvent);
    int32_t aligned = trcAligned(length);
    int32_t offset = areaReserve(live, aligned, (flags & TRC_KEEP_INITIAL) != 0);
    if (offset < 0) {
        setTraceField(live, &trcHeader_t::traceFull);
        return 1;
    }
    fillRecord(live, offset, record, length, flags);
    areaPublish(live, offset, length, aligned);
    return 0;
}

void pauseThread(Live& live)
{
    uint32_t generation = loadRelaxed(live.control->generation);
    int32_t seconds = loadRelaxed(live.header->pauseAttrib);
    struct timespec start {};
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (stillTaking(live) && loadRelaxed(live.control->generation) == generation) {
        struct timespec now {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (seconds >= 0 && now.tv_sec - start.tv_sec >= seconds)
            return;
        struct timespec step {0, 10'000'000};
        nanosleep(&step, nullptr);
    }
}

void afterStore(Live& live, const RecordSource& record, uint32_t flags)
{
    const trcHeader_t& h = *live.header;
    if ((flags & TRC_USE_CRASH_MASK) && crashMaskSelects(h.crashMask, record.ids))
        std::abort();
    if ((flags & TRC_USE_PAUSE_MASK) && maskSelects(h.pauseMask, record.ids))
        pauseThread(live);
}

} // namespace

bool isReturnCodeEvent(unsigned event)
{
    return (event >= 10 && event <= 14) || (event >= 23 && event <= 63 && event % 10 == 3);
}

Live* traceFor(const RecordIds& ids, uint32_t thisPointer)
{
    Live* live = writerLive();
    if (live == nullptr || !stillTaking(*live) || !traceTakes(*live->header, ids, thisPointer))
        return nullptr;
    return live;
}

int storeRecord(Live& live, const RecordSource& record)
{
    bool rcEvent = isReturnCodeEvent(record.ids.id[1]);
    int rc = semLock(live);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    if (!stillTaking(live)) {
        semUnlock(live);
        return 1;
    }
    uint32_t flags = loadRelaxed(live.header->flags);
    int result = 0;
    if (live.area != nullptr)
        result = storeInArea(live, record, rcEvent, flags);
    if (result == 0)
        noteSevere(live, record, rcEvent);
    semUnlock(live);
    if (result != 0)
        return result;
    if (live.area == nullptr)
        nativeEmit(record, rcEvent);
    afterStore(live, record, flags);
    return 0;
}

} // namespace kelvo
