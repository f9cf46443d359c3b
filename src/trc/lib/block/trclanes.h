// Lanes: where writers on different processors store without sharing a
// word.
//
// One ring word that every write changes keeps every processor's writes
// waiting for one cache line, so that two threads write more slowly than
// one. A trace in the shared memory destination that wraps (the usual one)
// therefore has one lane per processor, up to maxLanes: a ring of its own,
// as large as the area, with its own control page, behind the area in the
// same block. A writer stores into the lane of the processor it runs on,
// exactly as it would into the area (trcring.h): the lane has its ring
// word, zones, loss counts and holders. Threads of one processor share a
// lane without sharing a line with any other processor.
//
// Readers never see a lane. A reader that takes the trace when nobody else
// reads the area holds every lane for a moment (writers drop and count
// meanwhile), puts each in order (trcsettle.h) and merges their records by
// time stamp into the area, the newest that fit, as if one ring had taken
// them in that order; then it lets the lanes go, and writers store into
// them while the area is read (trchold.h); a dump made meanwhile merges them
// into its own copy. Every thread's stamps rise strictly
// (trcstamp.h), so a thread that moved between processors keeps its order.
//
// A trace that keeps its initial records has no lanes: which records came
// first is a question of the whole trace, not of a lane. Nor has a file
// trace, whose file is the area, nor a machine of one processor.
#ifndef KELVO_TRCLANES_H
#define KELVO_TRCLANES_H

#include "trclive.h"

#include <sched.h>

#include <cstddef>
#include <cstdint>

namespace kelvo {

// The lanes of a new trace with these flags.
int32_t laneCountFor(Destination destination, uint32_t flags);

// Bytes of a block of the destination with an area of `bufferSize` and
// `lanes` lanes.
std::size_t blockBytesFor(Destination destination, int32_t bufferSize, int32_t lanes);

// The area size of a shared memory block of `size` bytes with `lanes`
// lanes; -1 when no usable size gives that block.
int64_t bufferSizeOfBlock(std::size_t size, int32_t lanes);

// True for a lane count that a block may have.
bool usableLaneCount(uint32_t lanes);

// Points lanes[0 .. live.laneCount) at the lanes of the block that `live`
// describes, whose first byte is `block`.
void lanesPoint(const Live& live, uint8_t* block, Live* lanes);

// Empties every lane of a block that no writer sees yet.
void lanesReset(Live& live);

// With every lane held: puts every lane in order (trcsettle.h), waiting at
// most `waitNs` in all for the writers that took a place.
void lanesSettle(Live& live, int64_t waitNs);

// With every lane held: waits as lanesSettle does, and empties every lane.
void lanesClear(Live& live, int64_t waitNs);

// The ring that this thread's writes go into: its processor's lane, or the
// area itself.
inline Live& ringOfWriter(Live& live)
{
    if (live.laneCount == 0)
        return live;
    int cpu = sched_getcpu();
    return live.lanes[static_cast<unsigned>(cpu < 0 ? 0 : cpu) & static_cast<unsigned>(live.laneCount - 1)];
}

// With the trace and every lane held: puts each lane in order, waiting at
// most `waitNs` in all for the writers that took a place, and merges the
// lanes into the area, unless no lane moved since the last merge.
void lanesGather(Live& live, int64_t waitNs);

// With every lane held: puts each lane in order as lanesGather does and
// merges them into `aside`, an area of the buffer's size that this process
// alone sees, leaving the shared area as it is.
void lanesGatherAside(Live& live, uint8_t* aside, int64_t waitNs);

}  // namespace kelvo

#endif
