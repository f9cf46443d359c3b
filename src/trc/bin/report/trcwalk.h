// The walk of a record area: finds where the written data ends and where the
// oldest record kept starts, how many bytes and trace records lie between,
// and visits the trace records in time order.
//
// A caller runs the steps one by one so that it can print between them:
//
//     trcWalk_t walk;
//     // print the "wrapped"/"truncated" label here
//     trcWalkBounds(header, area, areaSize, &walk);   // end, start, lost, size
//     // print walk.hasLostRecords and walk.usedBytes here
//     trcWalkCount(&walk, area);                     // may print message 421
//     // print walk.recordCount here
//     std::vector<const trcRecord_t*> index(walk.recordCount);
//     trcWalkFill(&walk, area, index.data(), walk.recordCount);
//
// or, to fill an index of its own entry type without copying records:
//
//     int32_t n = 0;
//     trcWalkEach(&walk, area, [&](const trcRecord_t* r) {
//         entries[n++].record = r;
//         return n < capacity;
//     });
//
// Offsets are bytes from the start of the record area; the area must start on
// a 4-byte boundary (the header is 3000 bytes, so a block that starts on one
// does) for the record pointers handed out to be usable as trcRecord_t.
//
// Whatever the bytes and the header hold, the walk reads and writes only the
// first areaSize bytes of the area and always ends:
//  - Finding the end reads words only while 4 bytes are left before
//    areaSize; fewer left ends the data there.
//  - Everything after it stays below `limit`, the smaller of the header's
//    bufferSize and areaSize (0 when bufferSize is 0 or negative). The
//    backward read for the start of a wrapped area begins at limit - 4, and
//    a filler that reaches limit sends the record walk back to offset 0.
//  - The record walk stops as broken at a length of 0 (after classifying
//    that record: one that is not on a segment boundary has been counted
//    and is handed out), and also at a negative
//    length, at a record that would run past limit, at an offset that is not
//    a multiple of 4, at a trace record whose 44 bytes of fixed part and
//    trailing word would not lie inside limit, and once it has covered
//    limit bytes without meeting endOffset (one full round of the area). So
//    it takes at most limit / 4 + 1 steps.
//  - Every record handed out lies inside the area with at least its first
//    44 bytes and, when its length is larger, all of its aligned size. Its
//    length may still be below 44 in a corrupt area (the record at which a
//    length of 0 broke the walk, for one), so readers of the variable part
//    must not trust it blindly.
// A well-formed area never meets any of these limits.
#ifndef KELVO_TRCWALK_H
#define KELVO_TRCWALK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kelvo/trcformat.h"

// What the walk has found about one record area, filled step by step.
struct trcWalk_t {
    int32_t endOffset;    // offset of the end mark, or where the data stops
    int32_t startOffset;  // offset of the oldest record kept
    bool hasLostRecords;  // wrapped, or truncated with the trace full
    int32_t usedBytes;    // bytes from start to end, fillers included
    int32_t recordCount;  // trace records from start to end; set by trcWalkCount
    // Fixed by trcWalkBounds for the steps after it.
    int32_t bufferSize;    // the header's bufferSize as it stands
    int32_t limit;         // bytes of the area the later steps may look at
    uint32_t segmentMask;  // segment size - 1
};

// Steps 1 to 3: finds endOffset, startOffset, hasLostRecords and usedBytes,
// and sets recordCount to 0. A record that would run past areaSize is cut
// off by storing a 0 word at its start, in the area itself, which is why the
// area is writable. Prints nothing.
void trcWalkBounds(const trcHeader_t* header, uint8_t* area, size_t areaSize, trcWalk_t* walk);

// Step 4: counts the trace records from startOffset to endOffset into
// recordCount. If the walk breaks before endOffset (see above), prints
// message 421 on standard output and keeps the count found so far.
void trcWalkCount(trcWalk_t* walk, const uint8_t* area);

// Stores the trace records in time order into records, at most capacity of
// them, and returns how many it stored. A broken walk ends the filling
// without a word; over the same bytes it yields exactly recordCount records.
int32_t trcWalkFill(const trcWalk_t* walk, const uint8_t* area, const trcRecord_t** records, int32_t capacity);

// ---- The record walk, step by step ---------------------------------------

// Position of one pass from startOffset to endOffset.
struct trcWalkPos_t {
    int32_t cur;     // offset of the record to look at next
    int32_t budget;  // bytes the pass may still cover; below 0: broken
};

enum trcWalkStep_t {
    TRC_WALK_DONE,    // cur has reached endOffset: the pass is complete
    TRC_WALK_RECORD,  // *at is the offset of a trace record
    TRC_WALK_FILLER,  // *at is the offset of a filler
    TRC_WALK_BROKEN,  // the pass cannot go on; nothing at *at
};

inline trcWalkPos_t trcWalkFirst(const trcWalk_t* walk) { return trcWalkPos_t{walk->startOffset, walk->limit}; }

// Looks at the record at pos->cur: returns whether it is a trace record or a
// filler and stores its offset in *at, then moves pos behind it (to offset 0
// behind a filler that closes the area, unless endOffset lies there). Once it
// has returned TRC_WALK_DONE or TRC_WALK_BROKEN it keeps returning that.
inline trcWalkStep_t trcWalkNext(const trcWalk_t* walk, const uint8_t* area, trcWalkPos_t* pos, int32_t* at)
{
    const int32_t cur = pos->cur;
    if (cur == walk->endOffset) {
        return TRC_WALK_DONE;
    }
    // cur is never negative: it starts at startOffset >= 0 and only moves
    // to offsets checked below.
    if (pos->budget < 0 || cur > walk->limit - 4 || (cur & 3) != 0) {
        return TRC_WALK_BROKEN;
    }
    int32_t length;
    std::memcpy(&length, area + cur, sizeof length);
    const int32_t aligned = trcAligned(length);
    // aligned <= budget <= limit and cur <= limit: no overflow below.
    if (aligned < 0 || aligned > pos->budget || aligned > walk->limit - cur) {
        pos->budget = -1;
        return TRC_WALK_BROKEN;
    }
    int32_t next = cur + aligned;
    trcWalkStep_t step;
    if ((static_cast<uint32_t>(next) & walk->segmentMask) != 0) {
        if (cur > walk->limit - TRC_RECORD_MIN) {
            pos->budget = -1;
            return TRC_WALK_BROKEN;
        }
        step = TRC_WALK_RECORD;
    } else {
        step = TRC_WALK_FILLER;
        if (next >= walk->limit && next != walk->endOffset) {
            next = 0;
        }
    }
    *at = cur;
    // A length of 0 before the end: the record has been classified as it
    // stands, but nothing behind it can be found.
    pos->budget = next == cur ? -1 : pos->budget - aligned;
    pos->cur = next;
    return step;
}

// Calls onRecord(const trcRecord_t*) for each trace record in time order
// until the pass ends or onRecord returns false. Returns true if the pass
// reached endOffset, false if it broke or onRecord stopped it.
template <typename OnRecord>
bool trcWalkEach(const trcWalk_t* walk, const uint8_t* area, OnRecord&& onRecord)
{
    trcWalkPos_t pos = trcWalkFirst(walk);
    int32_t at = 0;
    for (;;) {
        switch (trcWalkNext(walk, area, &pos, &at)) {
        case TRC_WALK_DONE:
            return true;
        case TRC_WALK_BROKEN:
            return false;
        case TRC_WALK_RECORD:
            if (!onRecord(reinterpret_cast<const trcRecord_t*>(area + at))) {
                return false;
            }
            break;
        case TRC_WALK_FILLER:
            break;
        }
    }
}

#endif
