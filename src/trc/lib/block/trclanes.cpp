// Where the lanes lie in the block, and how many a trace gets; see
// trclanes.h.
//
// Behind the area, padded to a cache line, lane i takes a control page and
// an area of the trace's buffer size. So a block of n lanes over an area of
// b bytes has fixed + pad + n * controlBytes + (n + 1) * b bytes, and b is
// found again from the block's size and n alone.
#include "trclanes.h"

#include "trcclock.h"
#include "trcring.h"
#include "trcsettle.h"
#include "trcsize.h"

#include <unistd.h>

namespace kelvo {
namespace {

constexpr std::size_t fixedBytes = controlBytes + TRC_HEADER_SIZE;
// Lane control pages start on a cache line: buffer sizes are multiples of
// 64, so rounding the fixed part up is enough.
constexpr std::size_t laneBase = (fixedBytes + 63) / 64 * 64;
static_assert(fixedBytes == 7096 && laneBase == 7104);

std::size_t laneStride(int32_t bufferSize) { return controlBytes + static_cast<std::size_t>(bufferSize); }

}  // namespace

int32_t laneCountFor(Destination destination, uint32_t flags)
{
    if (destination != Destination::shared || (flags & TRC_KEEP_INITIAL) != 0)
        return 0;
    long processors = sysconf(_SC_NPROCESSORS_CONF);
    if (processors >= maxLanes)
        return maxLanes;
    return processors >= 2 ? 2 : 0;
}

bool usableLaneCount(uint32_t lanes)
{
    return lanes <= static_cast<uint32_t>(maxLanes) && (lanes & (lanes - 1)) == 0 && lanes != 1;
}

std::size_t blockBytesFor(Destination destination, int32_t bufferSize, int32_t lanes)
{
    if (destination != Destination::shared)
        return fixedBytes;
    if (lanes == 0)
        return fixedBytes + static_cast<std::size_t>(bufferSize);
    return laneBase + static_cast<std::size_t>(bufferSize) + static_cast<std::size_t>(lanes) * laneStride(bufferSize);
}

int64_t bufferSizeOfBlock(std::size_t size, int32_t lanes)
{
    std::size_t fixed = lanes == 0 ? fixedBytes : laneBase + static_cast<std::size_t>(lanes) * controlBytes;
    if (size <= fixed)
        return -1;
    std::size_t rest = size - fixed;
    auto areas = static_cast<std::size_t>(lanes) + 1;
    if (rest % areas != 0 || !usableBufferSize(static_cast<int64_t>(rest / areas)))
        return -1;
    return static_cast<int64_t>(rest / areas);
}

void lanesPoint(const Live& live, uint8_t* block, Live* lanes)
{
    for (int32_t i = 0; i < live.laneCount; ++i) {
        uint8_t* lane = block + laneBase + static_cast<std::size_t>(live.bufferSize) +
                        static_cast<std::size_t>(i) * laneStride(live.bufferSize);
        Live& l = lanes[i];
        l = Live{};
        l.control = reinterpret_cast<Control*>(lane);
        l.header = live.header;
        l.area = lane + controlBytes;
        l.bufferSize = live.bufferSize;
        l.segmentSize = live.segmentSize;
        l.destination = Destination::shared;
        l.mappedBytes = laneStride(live.bufferSize);
    }
}

void lanesReset(Live& live)
{
    for (int32_t i = 0; i < live.laneCount; ++i)
        ringReset(live.lanes[i]);
}

void lanesSettle(Live& live, int64_t waitNs)
{
    int64_t until = monotonicNs() + waitNs;
    for (int32_t i = 0; i < live.laneCount; ++i) {
        int64_t left = until - monotonicNs();
        ringSettle(live.lanes[i], left > 0 ? left : 0);
    }
}

void lanesClear(Live& live, int64_t waitNs)
{
    // The writers that took a place finish before the lane is emptied, so
    // that no record lands behind the new end mark.
    lanesSettle(live, waitNs);
    lanesReset(live);
}

}  // namespace kelvo
