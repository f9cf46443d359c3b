// Merging the lanes into the area for readers; see trclanes.h.
//
// Each lane, once put in order, is read oldest record first, the way the
// tool walks an area: when it has wrapped, the records above its end mark in
// the end mark's segment (read backward by their trailing words), then the
// segments above that one, then from offset 0 up to the end mark; otherwise
// from the start marker up to the end mark. The lanes' records are merged
// by time stamp, and the area is written afresh as one ring would have been
// written in that order, from its start marker on, so that it wraps where
// the lanes hold more than it does. Only the newest records that can fit are
// copied at all.
//
// The lanes stay mapped into every traced program, and a stray write may
// land in one while it is merged: every record is checked before it is
// taken, and its length words are stored again in the area, so the area
// that readers walk is whole whatever the lanes hold.
#include "trclanes.h"

#include "trcring.h"
#include "trcsettle.h"
#include "trcstore.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace kelvo {
namespace {

struct Slot {
    int32_t at = 0;
    int32_t length = 0;
    int64_t ns = 0;  // the record's time stamp
};

// The records of one lane, oldest first.
class LaneReader {
public:
    explicit LaneReader(const Live& lane);
    bool next(Slot& out);

private:
    int32_t segmentStart(int32_t x) const { return x & ~(lane_.segmentSize - 1); }
    int32_t segmentEnd(int32_t x) const { return segmentStart(x) + lane_.segmentSize; }
    int32_t word(int32_t x) const { return ringWord(lane_, x); }
    bool isRecord(int32_t x, int32_t w, int32_t limit) const;
    void readBackward(int32_t end);
    Slot slotAt(int32_t x, int32_t length) const;

    const Live& lane_;
    std::vector<int32_t> older_;  // above the end mark, newest first
    // Forward runs: [from, to) pairs still to be walked, the current first.
    int32_t runs_[2][2] = {};
    int runCount_ = 0;
    int run_ = 0;
    int32_t x_ = 0;
};

LaneReader::LaneReader(const Live& lane) : lane_(lane)
{
    RingState s = RingState::decode(loadRing(lane));
    if (!ringEndUsable(lane, s))
        return;
    auto end = static_cast<int32_t>(s.end);
    if (!s.wrapped) {
        runs_[runCount_][0] = TRC_START_MARKER;
        runs_[runCount_++][1] = end;
    } else {
        readBackward(end);
        int32_t above = segmentEnd(end);
        if (above < lane.bufferSize) {
            runs_[runCount_][0] = above;
            runs_[runCount_++][1] = lane.bufferSize;
        }
        runs_[runCount_][0] = 0;
        runs_[runCount_++][1] = end;
    }
    x_ = runs_[0][0];
}

bool LaneReader::isRecord(int32_t x, int32_t w, int32_t limit) const
{
    if (w < TRC_RECORD_MIN)
        return false;
    int64_t a = trcAligned(w);
    return a <= limit - x && x + a + 4 <= segmentEnd(x) && word(static_cast<int32_t>(x + a - 4)) == w;
}

void LaneReader::readBackward(int32_t end)
{
    int32_t top = segmentEnd(end);
    int32_t t = top - 4;
    while (t > end) {
        int32_t w = word(t);
        if (w <= 0)
            return;
        int64_t s = int64_t{t} + 4 - trcAligned(w);
        if (s - 4 <= end || word(static_cast<int32_t>(s)) != w)
            return;
        bool filler = t + 4 == top && w == top - s;
        if (!filler) {
            if (!isRecord(static_cast<int32_t>(s), w, top))
                return;
            older_.push_back(static_cast<int32_t>(s));
        }
        t = static_cast<int32_t>(s) - 4;
    }
}

Slot LaneReader::slotAt(int32_t x, int32_t length) const
{
    trcRecord_t r;
    std::memcpy(&r, lane_.area + x, sizeof r);
    return Slot{x, length, int64_t{r.sec} * 1'000'000'000 + r.nsec};
}

bool LaneReader::next(Slot& out)
{
    while (!older_.empty()) {
        int32_t x = older_.back();
        older_.pop_back();
        int32_t w = word(x);
        if (isRecord(x, w, segmentEnd(x))) {
            out = slotAt(x, w);
            return true;
        }
    }
    while (run_ < runCount_) {
        int32_t to = runs_[run_][1];
        if (x_ >= to) {
            if (++run_ < runCount_)
                x_ = runs_[run_][0];
            continue;
        }
        int32_t limit = std::min(segmentEnd(x_), to);
        int32_t w = word(x_);
        if (isRecord(x_, w, limit)) {
            out = slotAt(x_, w);
            x_ += trcAligned(w);
            return true;
        }
        // A filler, or bytes that make no record: the rest of the segment.
        x_ = segmentEnd(x_);
    }
    return false;
}

// Writes records into the area in order, as writers place them in a ring.
// When records were lost before the first one written, the area starts as
// one that has wrapped over a lap of fillers, so that readers see that the
// oldest records are gone.
class AreaWriter {
public:
    AreaWriter(Live& area, bool lost);
    void put(const Live& lane, const Slot& slot);
    void finish();

private:
    Live& area_;
    RingState state_;
};

AreaWriter::AreaWriter(Live& area, bool lost) : area_(area)
{
    state_.lap = nextLap(RingState::decode(loadRing(area)).lap);
    if (!lost) {
        state_.end = TRC_START_MARKER;
        ringStore(area, 4, TRC_START_MARKER);
        ringStore(area, 0, TRC_START_MARKER);
        return;
    }
    state_.lap = nextLap(state_.lap);
    for (int32_t at = 0; at < area.bufferSize; at += area.segmentSize)
        ringWriteFiller(area, at, area.segmentSize, previousLap(state_.lap));
    state_.end = 0;
    state_.wrapped = true;
}

void AreaWriter::put(const Live& lane, const Slot& slot)
{
    int32_t aligned = trcAligned(slot.length);
    Placement p;
    if (!ringPlace(area_, state_, aligned, false, p))
        return;
    if (p.fillerSize != 0)
        ringWriteFillerBefore(area_, p);
    uint8_t* to = area_.area + p.at;
    std::memcpy(to, lane.area + slot.at, static_cast<std::size_t>(aligned));
    auto* record = reinterpret_cast<trcRecord_t*>(to);
    record->ident1 = (record->ident1 & ~lapBits) | state_.lap;
    ringStore(area_, p.at + aligned - 4, slot.length);
    ringCommit(area_, p.at, slot.length);
}

// Stores the end mark and the ring word; the holds and flags that writers
// and readers set meanwhile are kept.
void AreaWriter::finish()
{
    ringStore(area_, static_cast<int32_t>(state_.end), 0);
    uint64_t seen = loadRing(area_);
    for (;;) {
        RingState now = RingState::decode(seen);
        RingState next = state_;
        next.holds = now.holds;
        next.closed = now.closed;
        next.full = now.full;
        next.lossPending = now.lossPending;
        if (casRing(area_, seen, next.encode()))
            return;
    }
}

// Room that the merged records may take in the area: the area less the
// start marker and the end mark.
int64_t roomOf(const Live& live) { return int64_t{live.bufferSize} - TRC_START_MARKER - 4; }

void merge(Live& live)
{
    int32_t n = live.laneCount;
    int64_t total = 0;
    bool lost = false;
    for (int32_t i = 0; i < n; ++i) {
        lost = lost || RingState::decode(loadRing(live.lanes[i])).wrapped;
        LaneReader reader(live.lanes[i]);
        for (Slot s; reader.next(s);)
            total += trcAligned(s.length);
    }
    int64_t skip = total - roomOf(live);
    std::vector<LaneReader> readers;
    readers.reserve(static_cast<std::size_t>(n));
    Slot heads[maxLanes];
    bool has[maxLanes] = {};
    for (int32_t i = 0; i < n; ++i) {
        readers.emplace_back(live.lanes[i]);
        has[i] = readers[i].next(heads[i]);
    }
    AreaWriter writer(live, lost || skip > 0);
    for (;;) {
        int32_t first = -1;
        for (int32_t i = 0; i < n; ++i)
            if (has[i] && (first < 0 || heads[i].ns < heads[first].ns))
                first = i;
        if (first < 0)
            break;
        if (skip > 0)
            skip -= trcAligned(heads[first].length);
        else
            writer.put(live.lanes[first], heads[first]);
        has[first] = readers[first].next(heads[first]);
    }
    writer.finish();
}

uint64_t laneKey(const Live& lane) { return loadRing(lane) & ~notAreaBits; }

bool lanesMoved(const Live& live)
{
    for (int32_t i = 0; i < live.laneCount; ++i)
        if (laneKey(live.lanes[i]) != __atomic_load_n(&live.lanes[i].control->settled, __ATOMIC_ACQUIRE))
            return true;
    return false;
}

void settleLanes(Live& live, int64_t waitNs)
{
    lanesSettle(live, waitNs);
    for (int32_t i = 0; i < live.laneCount; ++i)
        storeLossReport(live.lanes[i]);
}

}  // namespace

void lanesGather(Live& live, int64_t waitNs)
{
    if (!lanesMoved(live))
        return;
    settleLanes(live, waitNs);
    merge(live);
    ringRestoreHeader(live);
    for (int32_t i = 0; i < live.laneCount; ++i)
        __atomic_store_n(&live.lanes[i].control->settled, laneKey(live.lanes[i]), __ATOMIC_RELEASE);
}

void lanesGatherAside(Live& live, uint8_t* aside, int64_t waitNs)
{
    settleLanes(live, waitNs);
    // A view of the block whose area and ring word are this process's own.
    // The lanes are not marked as merged: the shared area still lacks what
    // they hold, and its next reader merges them.
    Control control{};
    Live view = live;
    view.control = &control;
    view.area = aside;
    view.fileHeader = nullptr;
    merge(view);
    // An area that has not wrapped is written up to its end mark only: the
    // rest of the copy must not carry whatever the reader's memory held.
    RingState s = RingState::decode(control.ring);
    if (!s.wrapped && s.end < static_cast<uint32_t>(live.bufferSize))
        std::memset(aside + s.end, 0, static_cast<std::size_t>(live.bufferSize) - s.end);
}

}  // namespace kelvo
