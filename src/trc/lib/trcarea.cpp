// Record placement. The area holds, from offset 0, a chain of records that
// ends at a zero word, the end mark; each segment is closed by a filler, and
// after the last segment the chain goes on at offset 0. Behind the end mark
// lie the records of the last lap, read by their trailing length words.
//
// A writer may be killed at any instant, so every step leaves a chain that
// readers walk to the end: new bytes go only into space that no reader
// looks at, and a single word store links them in last. Space is taken from
// the last lap by zeroing the trailing word of the last record consumed,
// which ends the backward reading of the old records above it.
#include "trcarea.h"

namespace kelvo {
namespace {

int32_t* word(Live& live, int32_t offset)
{
    return reinterpret_cast<int32_t*>(live.area + offset);
}

int32_t readWord(Live& live, int32_t offset)
{
    return __atomic_load_n(word(live, offset), __ATOMIC_RELAXED);
}

void writeWord(Live& live, int32_t offset, int32_t value)
{
#ifdef KELVO_AREA_STORE_HOOK
    areaStoreHook();
#endif
    __atomic_store_n(word(live, offset), value, __ATOMIC_RELEASE);
}

// Takes the records of the last lap that lie below `need` out of the view
// of readers. When the chain of the last lap is broken, the whole last lap
// is given up.
void consumeOld(Live& live, int32_t need)
{
    Control& c = *live.control;
    int32_t at = c.oldStart;
    if (at >= need)
        return;
    while (at < need) {
        int32_t a = trcAligned(readWord(live, at));
        if (a <= 0 || a > live.bufferSize - at) {
            at = live.bufferSize;
            break;
        }
        at += a;
    }
    writeWord(live, at - 4, 0);
    c.oldStart = at;
}

// Closes the segment at the end mark with a filler up to `segmentEnd`.
void closeSegment(Live& live, int32_t segmentEnd)
{
    Control& c = *live.control;
    int32_t at = c.endOffset;
    int32_t size = segmentEnd - at;
    if (segmentEnd < live.bufferSize) {
        consumeOld(live, segmentEnd + 4);
        writeWord(live, segmentEnd, 0);
    } else {
        consumeOld(live, segmentEnd);
    }
    writeWord(live, segmentEnd - 4, size);
    writeWord(live, at, size);
    c.endOffset = segmentEnd;
}

// The chain has reached the end of the area: it goes on at offset 0, over
// the oldest record (or the start marker). Readers drop the record at the
// end mark by themselves, so it needs no consuming, and its trailing word
// must stay: until the end mark is stored, that record is still shown.
void wrap(Live& live)
{
    Control& c = *live.control;
    int32_t first = trcAligned(readWord(live, 0));
    writeWord(live, 0, 0);
    c.endOffset = 0;
    c.oldStart = first > 0 && first < live.bufferSize ? first : live.bufferSize;
}

// Segment sizes are powers of two.
int32_t segmentEndOf(const Live& live, int32_t offset)
{
    return (offset & ~(live.segmentSize - 1)) + live.segmentSize;
}

int32_t findEnd(Live& live)
{
    int32_t at = 0;
    for (;;) {
        int32_t a = trcAligned(readWord(live, at));
        if (a <= 0)
            return at;
        if (a > live.bufferSize - at) {
            writeWord(live, at, 0);
            return at;
        }
        at += a;
        if (at == live.bufferSize)
            return at;
    }
}

int32_t findOldStart(Live& live, int32_t end)
{
    if (readWord(live, 0) == TRC_START_MARKER)
        return live.bufferSize;
    int32_t t = live.bufferSize - 4;
    for (;;) {
        int32_t a = trcAligned(readWord(live, t));
        int32_t p = t - a;
        if (a <= 0 || p <= end)
            break;
        t = p;
    }
    return t + 4;
}

} // namespace

void areaReset(Live& live)
{
    Control& c = *live.control;
    writeWord(live, live.bufferSize - 4, 0);
    writeWord(live, 0, 0);
    writeWord(live, TRC_START_MARKER, 0);
    writeWord(live, 4, TRC_START_MARKER);
    writeWord(live, 0, TRC_START_MARKER);
    c.endOffset = TRC_START_MARKER;
    c.oldStart = live.bufferSize;
}

void areaRecover(Live& live)
{
    Control& c = *live.control;
    c.endOffset = findEnd(live);
    c.oldStart = findOldStart(live, c.endOffset);
}

int32_t areaReserve(Live& live, int32_t aligned, bool keepInitial)
{
    Control& c = *live.control;
    for (;;) {
        if (c.endOffset >= live.bufferSize) {
            if (keepInitial)
                return -1;
            wrap(live);
        }
        int32_t at = c.endOffset;
        int32_t segmentEnd = segmentEndOf(live, at);
        if (aligned + 4 <= segmentEnd - at) {
            consumeOld(live, at + aligned + 4);
            return at;
        }
        if (keepInitial && segmentEnd == live.bufferSize)
            return -1;
        closeSegment(live, segmentEnd);
    }
}

void areaPublish(Live& live, int32_t offset, int32_t length, int32_t aligned)
{
    writeWord(live, offset + aligned - 4, length);
    writeWord(live, offset + aligned, 0);
    writeWord(live, offset, length);
    live.control->endOffset = offset + aligned;
}

int32_t areaLargestRecord(const Live& live)
{
    return live.segmentSize - 4 - (live.segmentSize == live.bufferSize ? TRC_START_MARKER : 0);
}

} // namespace kelvo
