// Record placement stopped between any two of its stores, as when a writer
// is killed: the area must stay readable by the tool's walk at every point,
// and a writer that re-derives the position from the area goes on from it.
#include "libtest.h"

#include "trcarea.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
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

// An area of its own with the control fields placement uses.
struct Area {
    explicit Area(int32_t size) : bytes(static_cast<std::size_t>(size) / 4), control{}
    {
        live.bufferSize = size;
        live.segmentSize = trcSegmentSize(size);
        point();
        kelvo::areaReset(live);
    }
    Area(const Area& other) : bytes(other.bytes), control(other.control), live(other.live) { point(); }
    Area& operator=(const Area&) = delete;
    void point()
    {
        live.control = &control;
        live.area = reinterpret_cast<uint8_t*>(bytes.data());
    }
    std::vector<uint32_t> bytes;
    kelvo::Control control;
    kelvo::Live live{};
};

// Places pattern record n as the library's writer does; false when full.
bool place(Area& a, int64_t n, bool keepInitial = false)
{
    std::string text = patternText(static_cast<uint32_t>(n));
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

// Runs `action` on copies of `before` stopped before each of its stores in
// turn. Stopped, the area holds the records up to `last`; done, up to the
// one after; and after recovery a writer goes on from it.
template <typename Fn> void stopEverywhere(const Area& before, int64_t last, Fn action)
{
    for (int stop = 0; !testing::Test::HasFatalFailure(); ++stop) {
        SCOPED_TRACE(testing::Message() << "after record " << last << " stopped before store " << stop);
        Area a(before);
        kelvo::storesLeft = stop;
        bool killed = false;
        try {
            action(a);
        } catch (const kelvo::Killed&) {
            killed = true;
        }
        kelvo::storesLeft = -1;
        expectRun(walk(a), killed ? last : last + 1);
        if (!killed)
            return;
        kelvo::areaRecover(a.live);
        for (int64_t next = last + 1; next <= last + 3; ++next)
            place(a, next);
        Walked w = walk(a);
        ASSERT_FALSE(w.records.empty());
        expectRun(w, last + 3);
    }
}

} // namespace

TEST(LibArea, AWriterStoppedAnywhereInOneSegmentLeavesAReadableArea)
{
    Area a(1024);
    for (int64_t n = 0; n < 150 && !HasFatalFailure(); place(a, n++))
        stopEverywhere(a, n - 1, [n](Area& x) { place(x, n); });
}

TEST(LibArea, AWriterStoppedAnywhereAtSegmentEndsAndWrapsLeavesAReadableArea)
{
    Area a(131072);
    for (int64_t n = 0; n < 4500 && !HasFatalFailure(); place(a, n++)) {
        int32_t end = a.control.endOffset;
        if (a.live.segmentSize - end % a.live.segmentSize < 400 || end < 400 || n % 64 == 0)
            stopEverywhere(a, n - 1, [n](Area& x) { place(x, n); });
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
    stopEverywhere(full, 99, [](Area& x) { kelvo::areaReset(x.live); });
    kelvo::areaReset(full.live);
    Walked w = walk(full);
    EXPECT_EQ(std::tuple(w.complete, w.lost, w.records.size()), std::tuple(true, false, std::size_t{0}));
}

TEST(LibArea, KeepInitialStopsAtTheLastSegment)
{
    Area a(131072);
    int64_t n = 0;
    while (place(a, n, true))
        ++n;
    EXPECT_FALSE(place(a, n, true));
    Walked w = walk(a, TRC_KEEP_INITIAL);
    expectRun(w, n - 1);
    EXPECT_EQ(w.records.size(), static_cast<std::size_t>(n));
    // The free end of the last segment is smaller than the record refused.
    int32_t left = 131072 - a.control.endOffset;
    auto refused = static_cast<int32_t>(TRC_RECORD_MIN + patternText(static_cast<uint32_t>(n)).size());
    EXPECT_LT(left, trcAligned(refused) + 4);
}
