// Finding and ordering the records of a record area. The layout rules and the
// limits that keep corrupt areas harmless are described in trcwalk.h.
#include "trcwalk.h"

#include <cstdio>

#include "trcmsg.h"
#include "trcmsgid.h"

namespace {

int32_t loadWord(const uint8_t* area, int64_t offset)
{
    int32_t word;
    std::memcpy(&word, area + offset, sizeof word);
    return word;
}

void storeWord(uint8_t* area, int64_t offset, int32_t word) { std::memcpy(area + offset, &word, sizeof word); }

// Offsets are 32-bit; an area beyond that range is walked only up to it.
int64_t clampAreaSize(size_t areaSize)
{
    return areaSize > static_cast<size_t>(INT32_MAX) ? INT32_MAX : static_cast<int64_t>(areaSize);
}

// Follows the chain of lengths from offset 0 up to the first length that is
// 0 or negative, or up to the end of the loaded bytes. A record that would
// run past them is cut off by a 0 word at its start. Every round moves the
// offset forward by at least 4, so the loop ends.
int32_t findEnd(uint8_t* area, int64_t areaSize)
{
    int64_t end = 0;
    while (areaSize - end >= 4) {
        const int32_t aligned = trcAligned(loadWord(area, end));
        if (aligned <= 0) {
            break;
        }
        if (end + aligned > areaSize) {
            storeWord(area, end, 0);
            break;
        }
        end += aligned;
    }
    return static_cast<int32_t>(end);
}

// Reads the trailing length words backwards from the end of the area down
// to the record that reaches to the end mark, and returns the offset of the
// record behind that one. t only ever decreases and stays above endOffset,
// so the loop ends and reads inside [0, limit).
int32_t findWrappedStart(const uint8_t* area, int32_t limit, int32_t endOffset)
{
    int64_t t = static_cast<int64_t>(limit) - 4;
    if (t >= 0) {
        for (;;) {
            const int32_t aligned = trcAligned(loadWord(area, t));
            const int64_t p = t - aligned;
            if (p <= endOffset || aligned <= 0) {
                break;
            }
            t = p;
        }
    }
    const int64_t start = t + 4;
    return start >= limit ? 0 : static_cast<int32_t>(start);
}

}  // namespace

void trcWalkBounds(const trcHeader_t* header, uint8_t* area, size_t areaSize, trcWalk_t* walk)
{
    const int64_t loaded = clampAreaSize(areaSize);
    walk->bufferSize = header->bufferSize;
    walk->limit =
        static_cast<int32_t>(header->bufferSize <= 0 ? 0 : (header->bufferSize < loaded ? header->bufferSize : loaded));
    walk->segmentMask = static_cast<uint32_t>(trcSegmentSize(header->bufferSize)) - 1u;
    walk->recordCount = 0;

    walk->endOffset = findEnd(area, loaded);

    if (loaded >= 4 && loadWord(area, 0) == TRC_START_MARKER) {
        walk->startOffset = TRC_START_MARKER;
        walk->hasLostRecords = (header->flags & TRC_KEEP_INITIAL) != 0 && header->traceFull != 0;
    } else {
        walk->startOffset = findWrappedStart(area, walk->limit, walk->endOffset);
        walk->hasLostRecords = true;
    }

    int64_t used = static_cast<int64_t>(walk->endOffset) - walk->startOffset;
    if (used < 0) {
        used += header->bufferSize;
    }
    walk->usedBytes = static_cast<int32_t>(used);
}

void trcWalkCount(trcWalk_t* walk, const uint8_t* area)
{
    int32_t count = 0;
    const bool complete = trcWalkEach(walk, area, [&count](const trcRecord_t*) {
        ++count;
        return true;
    });
    walk->recordCount = count;
    if (!complete) {
        std::fputs(trcMsgGet(msgCorrupt), stdout);
    }
}

int32_t trcWalkFill(const trcWalk_t* walk, const uint8_t* area, const trcRecord_t** records, int32_t capacity)
{
    int32_t filled = 0;
    if (capacity <= 0) {
        return 0;
    }
    trcWalkEach(walk, area, [&](const trcRecord_t* record) {
        records[filled++] = record;
        return filled < capacity;
    });
    return filled;
}
