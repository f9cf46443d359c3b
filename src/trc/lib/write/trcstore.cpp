// Storing a record. Nothing here waits for another process: the mask and
// the filters are read without a lock, the time is read before the record
// takes its place, and the place is taken from the ring word with one
// compare-and-swap (trcring.h) of the area, or of the lane of the processor
// the writer runs on (trclanes.h). A record that cannot be placed at once (a
// reader holds the trace, the area keeps its initial records and is full)
// is dropped and counted; the next record stored is preceded by a record of
// the facility that says how many were lost and why.
#include "trcstore.h"

#include "trcclock.h"
#include "trcfacrec.h"
#include "trcfilter.h"
#include "trchold.h"
#include "trclanes.h"
#include "trcnative.h"
#include "trcprocess.h"
#include "trcring.h"
#include "trcstamp.h"

#include <kelvo/facility.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace kelvo {
namespace {

constexpr int32_t rcBytes = 4;
constexpr int64_t sweepIntervalNs = 100'000'000;

std::atomic<int64_t> nextSweepNs{0};

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
    int32_t count = __atomic_add_fetch(&live.control->severeErrors, 1, __ATOMIC_RELAXED);
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
    largest = std::min(largest, ringLargestRecord(live));
    int64_t wanted = TRC_RECORD_MIN + static_cast<int64_t>(record.length);
    return static_cast<int32_t>(std::clamp<int64_t>(wanted, smallest, largest));
}

// A reader that died holding the trace would keep every write out: writers
// that find it held look for dead holders now and then. True when that
// freed the trace.
bool sweepWhenDue(Live& live)
{
    int64_t now = coarseNs();
    int64_t due = nextSweepNs.load(std::memory_order_relaxed);
    if (now < due || !nextSweepNs.compare_exchange_strong(due, now + sweepIntervalNs))
        return false;
    holdSweep(live);
    return RingState::decode(loadRing(live)).holds == 0;
}

void countLoss(Live& live, uint32_t Control::*cause)
{
    __atomic_add_fetch(&(live.control->*cause), 1u, __ATOMIC_RELAXED);
    __atomic_add_fetch(&live.control->lostTotal, uint64_t{1}, __ATOMIC_RELAXED);
    ringMarkLoss(live);
}

// The causes of a loss, with their counts in the control page and the
// words that name them in the record of the facility that reports them.
struct LossCause {
    uint32_t Control::*count;
    const char* why;
};
constexpr LossCause lossCauses[] = {
    {&Control::lostHeld, "a reader held the trace"},
    {&Control::lostFull, "the buffer was full"},
    {&Control::lostBusy, "a slow writer held its place ahead"},
};
constexpr int causeCount = sizeof lossCauses / sizeof lossCauses[0];

// The losses not yet reported, taken for one record of the facility.
struct Losses {
    uint32_t count[causeCount] = {};
    uint32_t total() const
    {
        uint32_t sum = 0;
        for (uint32_t c : count)
            sum += c;
        return sum;
    }
};

Losses takeLosses(Live& live)
{
    Losses losses;
    for (int i = 0; i < causeCount; ++i)
        losses.count[i] = __atomic_exchange_n(&(live.control->*lossCauses[i].count), 0u, __ATOMIC_ACQ_REL);
    return losses;
}

void giveBackLosses(Live& live, const Losses& losses)
{
    for (int i = 0; i < causeCount; ++i)
        __atomic_add_fetch(&(live.control->*lossCauses[i].count), losses.count[i], __ATOMIC_RELAXED);
    ringMarkLoss(live);
}

// "lost 3 records while a reader held the trace", or with several causes
// "lost 5 records: 3 while a reader held the trace, 2 while ...".
std::size_t lossText(const Losses& losses, char* text, std::size_t size)
{
    int causes = 0;
    for (uint32_t c : losses.count)
        causes += c != 0 ? 1 : 0;
    std::size_t used = 0;
    auto put = [&](int n) { used += n < 0 ? 0 : std::min(static_cast<std::size_t>(n), size - 1 - used); };
    put(std::snprintf(text, size, "lost %u %s%s", losses.total(), losses.total() == 1 ? "record" : "records",
                      causes > 1 ? ":" : ""));
    const char* separator = " ";
    for (int i = 0; i < causeCount; ++i) {
        if (losses.count[i] == 0)
            continue;
        if (causes > 1)
            put(std::snprintf(text + used, size - used, "%s%u while %s", separator, losses.count[i],
                              lossCauses[i].why));
        else
            put(std::snprintf(text + used, size - used, " while %s", lossCauses[i].why));
        separator = ", ";
    }
    return used;
}

// Why a record was not placed.
enum class Refusal { none, closed, held, full, busy, lost };

Refusal refusalOf(const RingState& s, bool holding)
{
    if (s.closed)
        return Refusal::closed;
    if (s.holds != 0 && !holding)
        return Refusal::held;
    if (s.full)
        return Refusal::full;
    return Refusal::none;
}

void giveBackZones(Live& live, const Placement* places, int upTo)
{
    for (int i = 0; i < upTo; ++i) {
        if (ringEntersZone(live, places[i]))
            ringGiveBackZone(live, places[i]);
    }
}

// Claims the zones that the places enter; on failure nothing stays claimed.
bool claimZones(Live& live, const Placement* places, int count, int& claimed)
{
    for (claimed = 0; claimed < count; ++claimed) {
        if (ringEntersZone(live, places[claimed]) && !ringEnterZone(live, places[claimed])) {
            giveBackZones(live, places, claimed);
            return false;
        }
    }
    return true;
}

// Sets (or, after a failed swap, lets go) the tail guards that the places
// need.
void setTailGuards(Live& live, const Placement* places, int count, bool set)
{
    for (int i = 0; i < count; ++i) {
        uint64_t guard = ringTailGuardOf(live, places[i]);
        if (guard != 0 && set)
            ringSetTailGuard(live, guard);
        else if (guard != 0)
            ringDropTailGuard(live, guard);
    }
}

// Takes places for `count` records of the given sizes, in order, with one
// swap of the ring word. Clears the loss flag when `reportsLoss`. A reader
// that holds the ring (`holding`) may place records all the same.
Refusal reserve(Live& live, const int32_t* aligned, int count, bool keepInitial, bool reportsLoss, Placement* out,
                bool holding = false)
{
    uint64_t word = loadRing(live);
    for (;;) {
        RingState s = RingState::decode(word);
        Refusal refusal = refusalOf(s, holding);
        if (refusal != Refusal::none)
            return refusal;
        if (s.lossPending && !reportsLoss)
            return Refusal::lost;
        // An end that no record can start at is a stray write's: the next
        // reader puts the ring in order, and until then records are lost.
        if (!ringEndUsable(live, s))
            return Refusal::held;
        RingState next = s;
        next.lossPending = false;
        for (int i = 0; i < count; ++i) {
            if (!ringPlace(live, next, aligned[i], keepInitial, out[i]))
                return Refusal::full;
            if (!ringPassTail(live, out[i], aligned[i]))
                return Refusal::busy;
        }
        int claimed = 0;
        if (!claimZones(live, out, count, claimed))
            return Refusal::busy;
        setTailGuards(live, out, count, true);
        if (casRing(live, word, next.encode())) {
            for (int i = 0; i < count; ++i)
                if (ringEntersZone(live, out[i]))
                    ringNoteEntered(live, out[i]);
            return Refusal::none;
        }
        setTailGuards(live, out, count, false);
        giveBackZones(live, out, claimed);
    }
}

// Drops the record for `refusal`, counting it. 1: not stored.
int drop(Live& live, Refusal refusal)
{
    if (refusal == Refusal::held) {
        countLoss(live, &Control::lostHeld);
    } else if (refusal == Refusal::full) {
        countLoss(live, &Control::lostFull);
        ringMarkFull(live);
        setTraceField(live, &trcHeader_t::traceFull);
    } else if (refusal == Refusal::busy) {
        countLoss(live, &Control::lostBusy);
    }
    return 1;
}

// Writes the record at its place and counts it in its zone. False when the
// others had given the place up and entered its zone again before the
// record was whole: nothing more was stored, and the record is lost.
bool writeRecord(Live& live, const Placement& p, const RecordSource& record, int32_t length, Stamp stamp)
{
    const uint8_t* id = record.ids.id;
    RecordFields fields{static_cast<uint32_t>(id[0]) << 24 | static_cast<uint32_t>(id[1]) << 16,
                        static_cast<uint32_t>(id[2]) << 24 | static_cast<uint32_t>(id[3]) << 16 |
                            static_cast<uint32_t>(id[4]) << 8 | id[5],
                        record.thisPointer,
                        processId(),
                        threadId(),
                        nodeOfProcess(),
                        companionOfThread(),
                        stamp.sec,
                        stamp.nsec,
                        record.data,
                        record.length};
    if (!ringWriteRecord(live, p.at, p.lap, fields, length, true))
        return false;
    ringCountCommit(live, p.at, p.lap, trcAligned(length));
    return true;
}

// Writes the filler before the place, if any, and the record; false as
// writeRecord.
bool writePlaced(Live& live, const Placement& p, const RecordSource& record, int32_t length, Stamp stamp)
{
    if (p.fillerSize != 0) {
        if (!ringWriteFillerBefore(live, p, true))
            return false;
        if (ringOwnFiller(live, p) == 0)
            ringCountCommit(live, p.fillerAt, ringFillerLap(p), p.fillerSize);
    }
    return writeRecord(live, p, record, length, stamp);
}

// The losses not yet reported, taken for a record of the facility that
// reports them; false when there are none after all (the loss flag is then
// cleared).
bool takeLossReport(Live& live, Losses& losses, char (&text)[160], RecordSource& report)
{
    losses = takeLosses(live);
    if (losses.total() == 0) {
        ringClearLoss(live);
        Losses late = takeLosses(live);
        if (late.total() != 0)
            giveBackLosses(live, late);
        return false;
    }
    std::size_t textLength = lossText(losses, text, sizeof text);
    report = RecordSource{
        RecordIds{{facilityProduct, facilityEvent, facilityComponent, facilityClass, functionRecordsLost, 0}}, 0,
        reinterpret_cast<const uint8_t*>(text), static_cast<uint32_t>(textLength)};
    return true;
}

int32_t reportLengthOf(const RecordSource& report) { return static_cast<int32_t>(TRC_RECORD_MIN + report.length); }

// Stores the record behind a record of the facility that reports the
// losses before it.
int storeAfterLoss(Live& live, const RecordSource& record, int32_t length, bool keepInitial, Stamp stamp)
{
    Losses losses;
    char text[160];
    RecordSource report{};
    if (!takeLossReport(live, losses, text, report))
        return -2;  // nothing to report after all: store as usual
    int32_t reportLength = reportLengthOf(report);
    int32_t aligned[2] = {trcAligned(reportLength), trcAligned(length)};
    Placement places[2];
    Refusal refusal = reserve(live, aligned, 2, keepInitial, true, places);
    if (refusal != Refusal::none) {
        giveBackLosses(live, losses);
        return drop(live, refusal);
    }
    if (!writePlaced(live, places[0], report, reportLength, stamp))
        giveBackLosses(live, losses);
    return writePlaced(live, places[1], record, length, stamp) ? 0 : drop(live, Refusal::busy);
}

// The ring word this thread expects: the one its last place left. A thread
// alone finds it right and takes its place without reading the word first;
// among others, the failed swap brings the word and its line in one step.
KELVO_FAST_TLS uint64_t expectedRing;

// True when `word` lets a record of `aligned` bytes go straight behind the
// end mark: no flag, no hold, room left in the end mark's segment.
bool fitsQuickly(const Live& live, uint64_t word, int32_t aligned)
{
    constexpr uint64_t anyFlag = uint64_t{0xFF} << 48 | closedBit | fullBit | lossBit;
    auto end = static_cast<uint32_t>(word);
    if ((word & anyFlag) != 0 || end >= static_cast<uint32_t>(live.bufferSize) || end % 4 != 0)
        return false;
    uint32_t segmentEnd =
        (end & ~static_cast<uint32_t>(live.segmentSize - 1)) + static_cast<uint32_t>(live.segmentSize);
    return static_cast<uint32_t>(aligned) + 4 <= segmentEnd - end &&
           ringClearOfTail(live, static_cast<uint16_t>(word >> 32), end + static_cast<uint32_t>(aligned) + 4);
}

// The common case on the raw ring word: nobody holds the trace, nothing to
// report, and the record fits behind the end mark in its segment. False
// when the general way must decide.
bool reserveQuickly(Live& live, int32_t aligned, Placement& out)
{
    uint64_t word = expectedRing;
    bool guessed = true;
    for (;;) {
        if (!fitsQuickly(live, word, aligned)) {
            if (!guessed)
                return false;
            word = loadRing(live);
            guessed = false;
            continue;
        }
        uint64_t next = word + static_cast<uint32_t>(aligned);
        if (casRing(live, word, next)) {
            expectedRing = next;
            out.at = static_cast<int32_t>(static_cast<uint32_t>(word));
            out.fillerSize = 0;
            out.lap = static_cast<uint16_t>(word >> 32);
            return true;
        }
        guessed = false;
    }
}

// Stores into the record area. 0: stored; 1: dropped.
int storeInArea(Live& live, const RecordSource& record, bool rcEvent, uint32_t flags, Stamp stamp)
{
    int32_t length = recordLength(live, record, rcEvent);
    int32_t aligned = trcAligned(length);
    Placement place;
    if (reserveQuickly(live, aligned, place)) [[likely]]
        return writeRecord(live, place, record, length, stamp) ? 0 : drop(live, Refusal::busy);
    bool keepInitial = (flags & TRC_KEEP_INITIAL) != 0;
    for (;;) {
        Refusal refusal = reserve(live, &aligned, 1, keepInitial, false, &place);
        if (refusal == Refusal::none)
            return writePlaced(live, place, record, length, stamp) ? 0 : drop(live, Refusal::busy);
        if (refusal == Refusal::held && sweepWhenDue(live))
            continue;
        if (refusal != Refusal::lost)
            return drop(live, refusal);
        int rc = storeAfterLoss(live, record, length, keepInitial, stamp);
        if (rc != -2)
            return rc;
    }
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
        struct timespec step {
            0, 10'000'000
        };
        nanosleep(&step, nullptr);
    }
}

// A crash or a pause is asked for by on or chg in the header and in the
// control page alike: a stray write into one of them makes no program abort
// or pause.
void afterStore(Live& live, const RecordSource& record, uint32_t flags)
{
    const trcHeader_t& h = *live.header;
    flags &= loadRelaxed(live.control->keptFlags);
    if ((flags & TRC_USE_CRASH_MASK) && crashMaskSelects(h.crashMask, record.ids))
        std::abort();
    if ((flags & TRC_USE_PAUSE_MASK) && maskSelects(h.pauseMask, record.ids))
        pauseThread(live);
}

}  // namespace

void storeLossReport(Live& ring)
{
    if (!RingState::decode(loadRing(ring)).lossPending)
        return;
    Losses losses;
    char text[160];
    RecordSource report{};
    if (!takeLossReport(ring, losses, text, report))
        return;
    int32_t length = reportLengthOf(report);
    int32_t aligned = trcAligned(length);
    Placement place;
    // Only lanes are reported so, and a lane never keeps its initial records.
    if (reserve(ring, &aligned, 1, false, true, &place, true) != Refusal::none ||
        !writePlaced(ring, place, report, length, stampNow()))
        giveBackLosses(ring, losses);
}

Live* traceFor(const RecordIds& ids, uint32_t thisPointer)
{
    Live* live = writerLive();
    if (live == nullptr || !stillTaking(*live))
        return nullptr;
    if (loadRelaxed(live->control->takesAll) == 0 && !traceTakes(*live->header, ids, thisPointer))
        return nullptr;
    return live;
}

int storeRecord(Live& live, const RecordSource& record)
{
    Stamp stamp = stampNow();
    bool rcEvent = trcIsRcEvent(record.ids.id[1]);
    uint32_t flags = loadRelaxed(live.header->flags);
    if (live.area != nullptr) {
        int result = storeInArea(ringOfWriter(live), record, rcEvent, flags, stamp);
        if (result != 0)
            return result;
    }
    noteSevere(live, record, rcEvent);
    if (live.area == nullptr)
        nativeEmit(record, rcEvent);
    afterStore(live, record, flags);
    return 0;
}

}  // namespace kelvo
