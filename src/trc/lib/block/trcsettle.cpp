// Putting the record area in order for readers.
//
// The ring word says where the newest record ends and which lap the area is
// in; every record carries its lap in bits 15 to 0 of ident1. The area is
// walked forward from its start up to the end mark (this lap), and, when it
// has wrapped, over the segments above the end mark's segment (the lap
// before) and backward from the end of the end mark's segment down to the
// end mark, as the tool's walk reads that part. A slot is accepted when its
// first and trailing length words agree and, for a record, when its lap is
// the one expected there; anything else is waited for a little (its writer
// may be about to finish it) and then rewritten as a filler or a record of
// the facility, so that the tool's walk never meets a malformed record.
#include "trcsettle.h"

#include "trcclock.h"
#include "trcfacrec.h"
#include "trcring.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace kelvo {
namespace {

constexpr long pollNs = 50'000;
constexpr char abandonedText[] = "record abandoned by its writer";
constexpr char damagedText[] = "damaged records given up";

class Settler {
public:
    Settler(Live& live, int64_t waitNs) : live_(live), deadline_(monotonicNs() + waitNs), seg_(live.segmentSize) {}

    void run();

private:
    int32_t segmentStart(int32_t x) const { return x & ~(seg_ - 1); }
    int32_t segmentEnd(int32_t x) const { return segmentStart(x) + seg_; }

    bool isRecord(int32_t x, int32_t w, int32_t limit, uint16_t lap) const;
    bool isFiller(int32_t x, int32_t w, uint16_t lap) const;
    bool fits(int32_t x, int32_t length, int32_t limit) const;
    int32_t awaitChange(int32_t x, int32_t w);
    int32_t nextSlot(int32_t x, int32_t limit, uint16_t lap) const;
    void writeRecord(int32_t at, int32_t length, uint16_t lap, uint8_t function, const char* text);
    // Walks [x, stop) forward and returns where the walk ended: `stop`, or
    // an earlier offset that is then the new end mark.
    int32_t forward(int32_t x, int32_t stop, uint16_t lap);
    void backwardAboveEnd(int32_t end, uint16_t lap);

    Live& live_;
    int64_t deadline_;
    int32_t seg_;
    int32_t lastSec_ = 0;
    int32_t lastNsec_ = 0;
};

bool Settler::fits(int32_t x, int32_t length, int32_t limit) const
{
    if (length < TRC_RECORD_MIN)
        return false;
    int64_t a = trcAligned(length);
    return a <= limit - x && x + a + 4 <= segmentEnd(x);
}

bool Settler::isRecord(int32_t x, int32_t w, int32_t limit, uint16_t lap) const
{
    if (!fits(x, w, limit))
        return false;
    int32_t a = trcAligned(w);
    return ringWord(live_, x + a - 4) == w && (static_cast<uint32_t>(ringWord(live_, x + 4)) & lapBits) == lap;
}

bool Settler::isFiller(int32_t x, int32_t w, uint16_t lap) const
{
    if (w < 4 || w % 4 != 0 || w != segmentEnd(x) - x)
        return false;
    if (w >= 12 && static_cast<uint32_t>(ringWord(live_, x + 4)) != lap)
        return false;
    return w == 4 || ringWord(live_, x + w - 4) == w;
}

// A slot that is pending, or not yet anything, may belong to a writer that
// is about to finish it: look again until the word changes or time is up.
int32_t Settler::awaitChange(int32_t x, int32_t w)
{
    while (monotonicNs() < deadline_) {
        struct timespec pause {
            0, pollNs
        };
        nanosleep(&pause, nullptr);
        int32_t now = ringWord(live_, x);
        if (now != w)
            return now;
    }
    return w;
}

// The first offset behind x where a slot of this lap starts; `limit` when
// none does. Slots take 44 bytes at least.
int32_t Settler::nextSlot(int32_t x, int32_t limit, uint16_t lap) const
{
    bool closesSegment = limit == segmentEnd(x);
    for (int64_t y = x + int64_t{TRC_RECORD_MIN}; y < limit; y += 4) {
        auto at = static_cast<int32_t>(y);
        int32_t w = ringWord(live_, at);
        if (isRecord(at, w, limit, lap))
            return at;
        if (isPending(w) && pendingLap(w) == (lap & 0x7FFF) && fits(at, pendingLength(w), limit))
            return at;
        if (closesSegment && w >= 12 && isFiller(at, w, lap))
            return at;
    }
    return limit;
}

void Settler::writeRecord(int32_t at, int32_t length, uint16_t lap, uint8_t function, const char* text)
{
    // The slot's own time is unknown: it lies after the record before it,
    // or, at the start of the area, before now.
    if (lastSec_ == 0 && lastNsec_ == 0) {
        int64_t now = clockNs(CLOCK_REALTIME);
        lastSec_ = static_cast<int32_t>(now / 1'000'000'000);
        lastNsec_ = static_cast<int32_t>(now % 1'000'000'000);
    }
    RecordFields fields{uint32_t{facilityProduct} << 24 | uint32_t{facilityEvent} << 16,
                        uint32_t{facilityComponent} << 24 | uint32_t{facilityClass} << 16 | uint32_t{function} << 8,
                        0,
                        0,
                        0,
                        -1,
                        0,
                        lastSec_,
                        lastNsec_,
                        reinterpret_cast<const uint8_t*>(text),
                        static_cast<uint32_t>(std::strlen(text))};
    ringWriteRecord(live_, at, lap, fields, length);
    __atomic_add_fetch(&live_.control->lostTotal, uint64_t{1}, __ATOMIC_RELAXED);
}

int32_t Settler::forward(int32_t x, int32_t stop, uint16_t lap)
{
    while (x < stop) {
        int32_t limit = std::min(segmentEnd(x), stop);
        bool closesSegment = limit == segmentEnd(x);
        int32_t w = ringWord(live_, x);
        bool good = isRecord(x, w, limit, lap) || (closesSegment && isFiller(x, w, lap));
        if (!good) {
            w = awaitChange(x, w);
            good = isRecord(x, w, limit, lap) || (closesSegment && isFiller(x, w, lap));
        }
        if (good) {
            if (w != segmentEnd(x) - x) {
                const auto* r = reinterpret_cast<const trcRecord_t*>(live_.area + x);
                lastSec_ = r->sec;
                lastNsec_ = r->nsec;
            }
            x += trcAligned(w);
            continue;
        }
        // A writer that took this slot and did not finish it within the
        // wait: the slot keeps its length, so a writer that resumes later
        // still writes the same first and trailing words, and only the text
        // of this record can change under a reader.
        if (isPending(w) && fits(x, pendingLength(w), limit)) {
            writeRecord(x, pendingLength(w), lap, functionRecordAbandoned, abandonedText);
            x += trcAligned(pendingLength(w));
            continue;
        }
        int32_t y = nextSlot(x, limit, lap);
        if (y == segmentEnd(x)) {
            ringWriteFiller(live_, x, y - x, lap);
        } else if (y - x >= TRC_RECORD_MIN) {
            writeRecord(x, y - x, lap, functionRecordsDamaged, damagedText);
        } else {
            return x;  // too little room before the end mark: it moves here
        }
        x = y;
    }
    return x;
}

// The part of the end mark's segment above the end mark holds the oldest
// records, read backwards by their trailing words. The first slot that does
// not agree with itself ends that reading: its trailing word becomes 0.
void Settler::backwardAboveEnd(int32_t end, uint16_t lap)
{
    int32_t start = segmentStart(end);
    int32_t top = start + seg_;
    int32_t t = top - 4;
    while (t > end) {
        int32_t w = ringWord(live_, t);
        int32_t a = trcAligned(w);
        if (w <= 0)
            return;
        int64_t s = int64_t{t} + 4 - a;
        if (s - 4 <= end)
            return;
        bool closes = t + 4 == top;
        bool good =
            ringWord(live_, static_cast<int32_t>(s)) == w &&
            (closes ? isFiller(static_cast<int32_t>(s), w, lap) : isRecord(static_cast<int32_t>(s), w, top, lap));
        if (!good) {
            ringStore(live_, t, 0);
            return;
        }
        t = static_cast<int32_t>(s) - 4;
    }
}

void Settler::run()
{
    uint64_t word = loadRing(live_);
    RingState s = RingState::decode(word);
    if (!ringEndUsable(live_, s)) {
        // Only a stray write into the control page leads here: nothing that
        // the ring word says can be believed, so the area starts afresh.
        ringReset(live_);
        return;
    }
    auto end = static_cast<int32_t>(s.end);
    int32_t from = 0;
    if (!s.wrapped) {
        ringStore(live_, 4, TRC_START_MARKER);
        ringStore(live_, 0, TRC_START_MARKER);
        from = TRC_START_MARKER;
    }
    int32_t reached = forward(from, end, s.lap);
    ringStore(live_, reached, 0);
    if (reached != end) {
        // Writers cannot take a place while the trace is held, so only the
        // end moves here.
        RingState moved = s;
        moved.end = static_cast<uint32_t>(reached);
        for (uint64_t seen = word;;) {
            RingState now = RingState::decode(seen);
            moved.holds = now.holds;
            moved.lossPending = now.lossPending;
            moved.closed = now.closed;
            if (casRing(live_, seen, moved.encode()))
                break;
        }
    }
    if (!s.wrapped)
        return;
    uint16_t older = previousLap(s.lap);
    int32_t above = segmentEnd(reached);
    if (above < live_.bufferSize)
        forward(above, live_.bufferSize, older);
    backwardAboveEnd(reached, older);
}

}  // namespace

void ringSettle(Live& live, int64_t waitNs)
{
    if (live.area == nullptr)
        return;
    Settler(live, waitNs).run();
    RingState s = RingState::decode(loadRing(live));
    if (ringEndUsable(live, s))
        ringRecount(live, s);
}

void ringRestoreHeader(Live& live)
{
    uint32_t kept = live.control->keptFlags &
                    (TRC_DEST_SHARED | TRC_DEST_FILE | TRC_DEST_NATIVE | TRC_KEEP_LAST | TRC_KEEP_INITIAL);
    for (trcHeader_t* h : {live.header, live.fileHeader}) {
        if (h == nullptr)
            continue;
        storeRelaxed(h->bufferSize, live.bufferSize);
        uint32_t flags = loadRelaxed(h->flags);
        storeRelaxed(h->flags, (flags & ~0x1Fu) | kept);
    }
}

}  // namespace kelvo
