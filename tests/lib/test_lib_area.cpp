// Record placement stopped between any two of its stores, as when a writer
// is killed: the area must stay readable by the tool's walk at every point,
// and a writer that re-derives the position from the area goes on from it.
#include "libtest.h"

#include "trcarea.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace libtest;

namespace kelvo {

// Stores that placement may still make; -1: no limit.
int storesLeft = -1;
struct Killed {};

void areaStoreHook()
{
    if (storesLeft == 0)
        throw Killed{};
    if (storesLeft > 0)
        --storesLeft;
}

} // namespace kelvo

namespace {

using kelvo::Live;

// An area of its own with the control fields placement uses.
struct Area {
    explicit Area(int32_t size) : bytes(static_cast<std::size_t>(size) / 4), control{}
    {
        live.control = &control;
        live.area = reinterpret_cast<uint8_t*>(bytes.data());
        live.bufferSize = size;
        live.segmentSize = trcSegmentSize(size);
        kelvo::areaReset(live);
    }
    Area(const Area& other) : bytes(other.bytes), control(other.control), live(other.live)
    {
        live.control = &control;
        live.area = reinterpret_cast<uint8_t*>(bytes.data());
    }
    Area& operator=(const Area&) = delete;

    std::vector<uint32_t> bytes;
    kelvo::Control control;
    Live live{};
};

// Places pattern record n as the library's writer does; false when full.
bool place(Area& a, uint32_t n, bool keepInitial = false)
{
    std::string text = patternText(n);
    int32_t length = std::min<int32_t>(TRC_RECORD_MIN + static_cast<int32_t>(text.size()),
                                       kelvo::areaLargestRecord(a.live));
    int32_t aligned = trcAligned(length);
    int32_t at = kelvo::areaReserve(a.live, aligned, keepInitial);
    if (at < 0)
        return false;
    trcRecord_t fixed{};
    fixed.ident1 = 1u << 24 | 30u << 16;
    fixed.pid = 1;
    fixed.node = -1;
    uint8_t* p = a.live.area + at;
    std::memcpy(p + 4, reinterpret_cast<uint8_t*>(&fixed) + 4, TRC_RECORD_FIXED - 4);
    std::size_t dataBytes = static_cast<std::size_t>(length - TRC_RECORD_MIN);
    std::memcpy(p + TRC_RECORD_FIXED, text.data(), dataBytes);
    std::memset(p + TRC_RECORD_FIXED + dataBytes, 0xEE, static_cast<std::size_t>(aligned - length));
    kelvo::areaPublish(a.live, at, length, aligned);
    return true;
}

Walked walk(const Area& a, uint32_t flags = 0)
{
    trcHeader_t header{};
    std::memcpy(header.magic, TRC_MAGIC, 8);
    header.layoutId = TRC_LAYOUT_ID;
    header.bufferSize = a.live.bufferSize;
    header.flags = flags;
    std::string image(reinterpret_cast<const char*>(&header), sizeof header);
    image.append(reinterpret_cast<const char*>(a.bytes.data()), a.bytes.size() * 4);
    return walkImage(image);
}

// Whole pattern records numbered without a gap, the newest being `last`.
void expectRun(const Walked& w, int64_t last)
{
    ASSERT_TRUE(w.complete);
    for (std::size_t i = 0; i < w.records.size(); ++i) {
        ASSERT_TRUE(w.records[i].whole) << i;
        ASSERT_EQ(patternNumber(w.records[i].data), last - static_cast<int64_t>(w.records.size() - 1 - i));
    }
}

// Writes record n stopped before each of its stores in turn; after every
// stop checks the area, then recovers and writes on.
void killEverywhere(const Area& before, uint32_t n)
{
    for (int stop = 0;; ++stop) {
        Area a(before);
        kelvo::storesLeft = stop;
        bool killed = false;
        try {
            place(a, n);
        } catch (const kelvo::Killed&) {
            killed = true;
        }
        kelvo::storesLeft = -1;
        SCOPED_TRACE(testing::Message() << "record " << n << " stopped before store " << stop);
        Walked w = walk(a);
        expectRun(w, static_cast<int64_t>(n) - (killed ? 1 : 0));
        if (!killed)
            return;
        kelvo::areaRecover(a.live);
        for (uint32_t next = n; next < n + 3; ++next)
            place(a, next);
        w = walk(a);
        ASSERT_FALSE(w.records.empty());
        expectRun(w, n + 2);
    }
}

} // namespace

TEST(LibArea, AWriterStoppedAnywhereInOneSegmentLeavesAReadableArea)
{
    Area a(1024);
    for (uint32_t n = 0; n < 150; ++n) {
        killEverywhere(a, n);
        if (HasFatalFailure())
            return;
        place(a, n);
    }
}

TEST(LibArea, AWriterStoppedAnywhereAtSegmentEndsAndWrapsLeavesAReadableArea)
{
    Area a(131072);
    for (uint32_t n = 0; n < 4500; ++n) {
        int32_t end = a.control.endOffset;
        int32_t toSegmentEnd = a.live.segmentSize - end % a.live.segmentSize;
        if (toSegmentEnd < 400 || end < 400 || n % 64 == 0) {
            killEverywhere(a, n);
            if (HasFatalFailure())
                return;
        }
        place(a, n);
    }
    Walked w = walk(a);
    EXPECT_TRUE(w.lost);
    expectRun(w, 4499);
}

TEST(LibArea, ClearingStoppedAnywhereLeavesAReadableArea)
{
    Area full(1024);
    for (uint32_t n = 0; n < 100; ++n)
        place(full, n);
    for (int stop = 0;; ++stop) {
        Area a(full);
        kelvo::storesLeft = stop;
        bool killed = false;
        try {
            kelvo::areaReset(a.live);
        } catch (const kelvo::Killed&) {
            killed = true;
        }
        kelvo::storesLeft = -1;
        SCOPED_TRACE(stop);
        Walked w = walk(a);
        expectRun(w, 99);
        if (!killed) {
            EXPECT_TRUE(w.records.empty());
            EXPECT_FALSE(w.lost);
            break;
        }
        kelvo::areaRecover(a.live);
        place(a, 100);
        expectRun(walk(a), 100);
    }
}

TEST(LibArea, KeepInitialStopsAtTheLastSegment)
{
    Area a(131072);
    uint32_t n = 0;
    while (place(a, n, true))
        ++n;
    EXPECT_FALSE(place(a, n, true));
    Walked w = walk(a, TRC_KEEP_INITIAL);
    expectRun(w, n - 1);
    EXPECT_EQ(w.records.size(), n);
    // The free end of the last segment is smaller than the record refused.
    int32_t left = 131072 - a.control.endOffset;
    EXPECT_LT(left, trcAligned(static_cast<int32_t>(TRC_RECORD_MIN + patternText(n).size())) + 4);
}
