// Time stamps: real time through the cycle counter, checked against a
// counter and a clock of the test's own, and against the real clock.
#include "libtest.h"
#include "trcstamp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

using namespace kelvotest;

namespace {

// A machine whose counter runs at 3 counts a nanosecond; reading the
// counter takes `readCost` counts.
struct FakeWorld {
    uint64_t count = 5'000'000'000;
    int64_t ns = 1'700'000'000'000'000'000;
    uint64_t readCost = 30;
    int clockReads = 0;

    void advanceNs(int64_t by)
    {
        ns += by;
        count += static_cast<uint64_t>(by) * 3;
    }
};
FakeWorld world;

uint64_t fakeCount()
{
    world.count += world.readCost;
    return world.count;
}

int64_t fakeNs()
{
    ++world.clockReads;
    return world.ns + static_cast<int64_t>(world.readCost / 3);
}

// The stamp at the world's present, and whether the clock was read for it.
std::pair<int64_t, bool> stampAt(kelvo::CycleClock& c)
{
    int reads = world.clockReads;
    int64_t ns = kelvo::cycleClockNs(c, world.count, fakeCount, fakeNs);
    return {ns, world.clockReads != reads};
}

constexpr int64_t ms = 1'000'000;

}  // namespace

TEST(Stamp, CounterTakesOverAfterAMillisecondAndTheClockIsReadOnceAMillisecond)
{
    world = FakeWorld{};
    kelvo::CycleClock c;
    // No rate yet: every stamp reads the clock, the first base is kept.
    for (int64_t step : {int64_t{0}, ms / 2, ms / 2 - 1}) {
        world.advanceNs(step);
        auto [ns, read] = stampAt(c);
        EXPECT_TRUE(read);
        EXPECT_NEAR(ns, world.ns, 20);
    }
    world.advanceNs(2);
    EXPECT_TRUE(stampAt(c).second);  // a millisecond: the rate is measured
    int64_t base = world.ns;
    for (int64_t at : {ms / 10, ms / 2, ms - ms / 100}) {
        world.advanceNs(base + at - world.ns);
        auto [ns, read] = stampAt(c);
        EXPECT_FALSE(read) << at;
        EXPECT_NEAR(ns, world.ns, 20) << at;
    }
    world.advanceNs(ms / 50);
    EXPECT_TRUE(stampAt(c).second);  // the base has served its time
    world.advanceNs(ms / 3);
    auto [ns, read] = stampAt(c);
    EXPECT_FALSE(read);
    EXPECT_NEAR(ns, world.ns, 20);
}

TEST(Stamp, ClockSetOrCounterBackOrInterruptedReadingNeverGivesAFalseRate)
{
    world = FakeWorld{};
    kelvo::CycleClock c;
    stampAt(c);
    world.advanceNs(ms + 1);
    stampAt(c);
    ASSERT_NE(c.nsPerCount, 0u);

    // The clock set a second ahead: the span's rate is not believed, the
    // stamps follow the clock and the counter takes over again later.
    world.advanceNs(ms / 2);
    world.ns += 1'000'000'000;
    world.advanceNs(ms);
    EXPECT_NEAR(stampAt(c).first, world.ns, 20);
    EXPECT_EQ(c.nsPerCount, 0u);
    world.advanceNs(ms / 2);
    EXPECT_EQ(stampAt(c), std::make_pair(world.ns + 10, true));
    world.advanceNs(ms);
    stampAt(c);
    world.advanceNs(ms / 4);
    auto [ns, read] = stampAt(c);
    EXPECT_FALSE(read);
    EXPECT_NEAR(ns, world.ns, 20);

    // The counter behind the base: the clock is read, a new base taken.
    world.count -= 1'000'000;
    EXPECT_NEAR(stampAt(c).first, world.ns, 20);
    EXPECT_EQ(c.baseCount, world.count - world.readCost / 2);

    // Interrupted between the two readings of the counter: no base.
    kelvo::CycleClock fresh;
    world.readCost = 5000;
    EXPECT_TRUE(stampAt(fresh).second);
    EXPECT_EQ(fresh.baseCount, 0u);
}

// Records written over a few milliseconds, each with the real time read just
// before it and the time just after the record before: every stamp lies
// between the time before its write and the time after it.
TEST(Stamp, StampsOfAWritingThreadFollowTheRealTime)
{
    Instance instance;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    auto realNs = [] {
        struct timespec now {};
        clock_gettime(CLOCK_REALTIME, &now);
        return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    };
    int64_t start = realNs();
    int64_t times[2] = {0, 0};  // before this write, after the write before
    // At least 5 ms, so that the counter takes over, and 1,500 records
    // however slowly a loaded machine lets them come.
    constexpr size_t records = 1500;
    for (size_t n = 0; n < records || realNs() - start < 5 * ms; ++n) {
        times[0] = realNs();
        ASSERT_EQ(trcWrite(1, 30, 2, 3, 4, 5, nullptr, times, sizeof times), 0);
        times[1] = realNs();
        while (realNs() - times[1] < 2000) {
        }
    }
    TempDir dir;
    Walked w = dumpAndWalk(dir);
    ASSERT_TRUE(w.complete);
    ASSERT_GE(w.records.size(), records);
    constexpr int64_t slack = 20'000;
    int64_t stampBefore = 0;
    for (const Found& f : w.records) {
        int64_t t[2];
        ASSERT_EQ(f.data.size(), sizeof t);
        std::memcpy(t, f.data.data(), sizeof t);
        int64_t stamp = int64_t{f.head.sec} * 1'000'000'000 + f.head.nsec;
        EXPECT_GE(stamp, t[0] - slack);
        if (stampBefore != 0) {
            EXPECT_LE(stampBefore, t[1] + slack);
        }
        stampBefore = stamp;
    }
}
