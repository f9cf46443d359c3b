// The ring stopped between any two of its stores, as when a writer is
// stopped or killed: once a reader has put the area in order, the tool's
// walk reads it whole, the stopped record stands as a record of the
// facility (or whole, when only its commit was missing), and writers go on.
#include "libtest.h"

#include "trcring.h"
#include "trcsettle.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

using namespace kelvotest;

namespace kelvo {

// Stores that the ring may still make; -1: no limit.
int storesLeft = -1;
struct Killed {};

void areaStoreHook()
{
    if (storesLeft == 0)
        throw Killed{};
    if (storesLeft > 0)
        --storesLeft;
}

}  // namespace kelvo

namespace {

constexpr unsigned facilityProduct = 255;

// An area of its own with the control page and header the ring uses.
struct Area {
    explicit Area(int32_t size) : bytes(static_cast<std::size_t>(size) / 4)
    {
        live.bufferSize = size;
        live.segmentSize = trcSegmentSize(size);
        header.bufferSize = size;
        point();
        kelvo::ringReset(live);
    }
    Area(const Area& other) : bytes(other.bytes), control(other.control), header(other.header), live(other.live)
    {
        point();
    }
    Area& operator=(const Area&) = delete;
    void point()
    {
        live.control = &control;
        live.header = &header;
        live.area = reinterpret_cast<uint8_t*>(bytes.data());
    }
    int32_t end() const { return static_cast<int32_t>(kelvo::RingState::decode(control.ring).end); }
    std::vector<uint32_t> bytes;
    kelvo::Control control{};
    trcHeader_t header{};
    kelvo::Live live{};
};

// Takes a place and writes pattern record n as the library's writer does;
// false when the area keeps its initial records and is full.
bool place(Area& a, int64_t n, bool keepInitial = false)
{
    std::string text = patternText(static_cast<uint32_t>(n));
    int32_t length =
        std::min<int32_t>(TRC_RECORD_MIN + static_cast<int32_t>(text.size()), kelvo::ringLargestRecord(a.live));
    kelvo::Placement p;
    uint64_t word = kelvo::loadRing(a.live);
    kelvo::RingState next;
    do {
        next = kelvo::RingState::decode(word);
        if (!kelvo::ringPlace(a.live, next, trcAligned(length), keepInitial, p))
            return false;
    } while (!kelvo::casRing(a.live, word, next.encode()));
    if (p.fillerSize != 0)
        kelvo::ringWriteFiller(a.live, p.fillerAt, p.fillerSize,
                               p.at < p.fillerAt ? kelvo::previousLap(next.lap) : next.lap);
    kelvo::RecordFields f{1u << 24 | 30u << 16,
                          0,
                          0,
                          1,
                          1,
                          -1,
                          0,
                          1,
                          0,
                          reinterpret_cast<const uint8_t*>(text.data()),
                          static_cast<uint32_t>(text.size())};
    kelvo::ringWriteRecord(a.live, p.at, next.lap, f, length);
    return true;
}

// Holds the area as a reader does and puts it in order, without waiting.
void settle(Area& a)
{
    kelvo::RingState s = kelvo::RingState::decode(a.control.ring);
    ++s.holds;
    a.control.ring = s.encode();
    kelvo::ringSettle(a.live, 0);
    s = kelvo::RingState::decode(a.control.ring);
    --s.holds;
    a.control.ring = s.encode();
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

// The walk is complete and every record whole; pattern records are numbered
// without a gap up to `last`, except that a record of the facility may
// stand in for any of them. Returns how many records of the facility there are.
int expectSettled(const Walked& w, int64_t last)
{
    EXPECT_TRUE(w.complete);
    int facility = 0;
    int64_t expected = last - static_cast<int64_t>(w.records.size()) + 1;
    for (const Found& f : w.records) {
        EXPECT_TRUE(f.whole);
        if (f.ids[0] == facilityProduct)
            ++facility;
        else
            EXPECT_EQ(patternNumber(f.data), expected);
        ++expected;
    }
    return facility;
}

// Runs `action` on copies of `before` stopped before each of its stores in
// turn; each copy is settled, walked, and written on.
template <typename Fn>
void stopEverywhere(const Area& before, int64_t last, Fn action)
{
    for (int stop = 0; !testing::Test::HasFailure(); ++stop) {
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
        settle(a);
        EXPECT_LE(expectSettled(walk(a), last + 1), 1);
        if (!killed)
            return;
        for (int64_t next = last + 2; next <= last + 4; ++next)
            place(a, next);
        settle(a);
        Walked w = walk(a);
        ASSERT_GE(w.records.size(), 3u);
        EXPECT_LE(expectSettled(w, last + 4), 1);
    }
}

}  // namespace

TEST(LibRing, AWriterStoppedAnywhereInOneSegmentLeavesASettledArea)
{
    Area a(1024);
    for (int64_t n = 0; n < 150 && !HasFailure(); place(a, n++))
        stopEverywhere(a, n - 1, [n](Area& x) { place(x, n); });
}

TEST(LibRing, AWriterStoppedAnywhereAtSegmentEndsAndWrapsLeavesASettledArea)
{
    Area a(131072);
    for (int64_t n = 0; n < 4500 && !HasFailure(); place(a, n++)) {
        int32_t end = a.end();
        if (a.live.segmentSize - end % a.live.segmentSize < 400 || end < 400 || n % 64 == 0)
            stopEverywhere(a, n - 1, [n](Area& x) { place(x, n); });
    }
    settle(a);
    Walked w = walk(a);
    EXPECT_TRUE(w.lost);
    EXPECT_EQ(expectSettled(w, 4499), 0);
}

TEST(LibRing, KeepInitialStopsAtTheLastSegment)
{
    Area a(131072);
    int64_t n = 0;
    while (place(a, n, true))
        ++n;
    EXPECT_FALSE(place(a, n, true));
    settle(a);
    Walked w = walk(a, TRC_KEEP_INITIAL);
    EXPECT_EQ(expectSettled(w, n - 1), 0);
    EXPECT_EQ(w.records.size(), static_cast<std::size_t>(n));
    int32_t left = 131072 - a.end();
    auto refused = static_cast<int32_t>(TRC_RECORD_MIN + patternText(static_cast<uint32_t>(n)).size());
    EXPECT_LT(left, trcAligned(refused) + 4);
}

// Bytes written anywhere into the area, by a stray pointer or by a writer
// that resumed long after its slot was given up: a settled area always
// walks whole, and writers go on from it.
TEST(LibRing, StrayBytesAnywhereAreSettledIntoAWalkableArea)
{
    std::mt19937 random(7);
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        Area a(round % 2 == 0 ? 4096 : 131072);
        int64_t n = 0;
        for (int64_t count = 20 + random() % 4000; n < count; ++n)
            place(a, n);
        int writes = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < writes; ++i) {
            std::size_t word = random() % a.bytes.size();
            a.bytes[word] = static_cast<uint32_t>(random());
        }
        settle(a);
        Walked w = walk(a);
        EXPECT_TRUE(w.complete);
        for (const Found& f : w.records)
            EXPECT_TRUE(f.whole);
        place(a, n);
        settle(a);
        EXPECT_TRUE(walk(a).complete);
    }
}

TEST(LibRing, AStrayRingWordEmptiesTheAreaAndWritersGoOn)
{
    Area a(4096);
    for (int64_t n = 0; n < 30; ++n)
        place(a, n);
    a.control.ring = 0x00000000FFFFFFF3ull;  // an end no record can start at
    EXPECT_FALSE(kelvo::ringEndUsable(a.live, kelvo::RingState::decode(a.control.ring)));
    settle(a);
    EXPECT_TRUE(place(a, 100));
    settle(a);
    Walked w = walk(a);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(patternNumber(w.records[0].data), 100);
}

// Two writers take places from one ring word in an area of one zone: one
// behind the end, one that wraps and claims the zone. The swap of the first
// wins; the claim of the second, given back, entered nothing, and the
// winner's place stays its own.
TEST(LibRing, AClaimWhoseSwapFailsLeavesThePlacesOfTheLapToTheirWriters)
{
    Area a(4096);
    for (int64_t n = 0; a.end() < 4096 - 200; ++n)
        place(a, n);
    settle(a);  // the zone's count as writers leave it
    uint64_t word = kelvo::loadRing(a.live);
    kelvo::RingState small = kelvo::RingState::decode(word), large = small;
    kelvo::Placement behind, wrapping;
    ASSERT_TRUE(kelvo::ringPlace(a.live, small, 48, false, behind));
    ASSERT_TRUE(kelvo::ringPlace(a.live, large, 400, false, wrapping));
    ASSERT_TRUE(kelvo::ringEntersZone(a.live, wrapping) && kelvo::ringEnterZone(a.live, wrapping));
    ASSERT_TRUE(kelvo::casRing(a.live, word, small.encode()));
    kelvo::ringGiveBackZone(a.live, wrapping);
    kelvo::RecordFields f{1u << 24 | 30u << 16, 0, 0, 1, 1, -1, 0, 1, 0, nullptr, 0};
    EXPECT_TRUE(kelvo::ringWriteRecord(a.live, behind.at, behind.lap, f, 48, true));
    EXPECT_TRUE(kelvo::ringOwns(a.live, behind.at, behind.lap));
}

// A wait that writers began long ago for another place, and nobody
// cleared, gives up no writer: the loser of a race for the place that wraps
// the area finds its zone claimed and gives the winner up only after a
// wait of its own.
TEST(LibRing, AnOldWaitForAnotherPlaceGivesNobodyUp)
{
    Area a(4096);
    for (int64_t n = 0; a.end() < 4096 - 200; ++n)
        place(a, n);
    settle(a);
    kelvo::RingState winner = kelvo::RingState::decode(kelvo::loadRing(a.live)), loser = winner;
    kelvo::Placement won, lost;
    ASSERT_TRUE(kelvo::ringPlace(a.live, winner, 400, false, won));
    ASSERT_TRUE(kelvo::ringPlace(a.live, loser, 400, false, lost));
    ASSERT_TRUE(kelvo::ringEnterZone(a.live, won));
    a.control.stallSince = 1;  // long before now
    a.control.stallKey = 12345;
    EXPECT_FALSE(kelvo::ringEnterZone(a.live, lost));
    EXPECT_FALSE(kelvo::ringEnterZone(a.live, lost));  // its own wait has just begun
}
