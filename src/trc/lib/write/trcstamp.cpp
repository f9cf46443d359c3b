// Time stamps. CLOCK_REALTIME costs about as much as the rest of a write
// together, so where the processor has a counter that runs at one rate on
// every core (an invariant TSC that the kernel itself keeps time by), a
// thread reads the counter and turns it into real time by a base point and a
// rate that it takes from CLOCK_REALTIME every millisecond. A stamp is then
// within a few tens of nanoseconds of the clock; a clock that is set or
// slewed is followed within a millisecond. Elsewhere every stamp reads the
// clock.
#include "trcstamp.h"

#include "trcprocess.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#if defined(__x86_64__)
#include <cpuid.h>
#include <x86intrin.h>
#endif

namespace kelvo {
namespace {

constexpr int64_t nsPerSec = 1'000'000'000;
// A base serves this long before the clock is read again, and a rate is
// measured over at least this long: a base is known to within half a
// microsecond (below), so a rate to within 0.05 %.
constexpr int64_t baseLifeNs = 1'000'000;
// The counter read on both sides of the clock: a thread interrupted in
// between cannot tell when the clock was read, and takes no base.
constexpr uint64_t widestReading = 1000;
// A new rate this far (2^-8, about 0.4 %) from the one before means that
// the clock was set during the span: the thread measures the rate anew.
constexpr int rateToleranceShift = 8;

KELVO_FAST_TLS CycleClock threadClock;
KELVO_FAST_TLS int64_t lastStampNs;
KELVO_FAST_TLS int64_t secondStartNs;
KELVO_FAST_TLS int32_t currentSecond;

int64_t realNs()
{
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * nsPerSec + now.tv_nsec;
}

uint64_t rateOver(int64_t ns, uint64_t counts)
{
    return static_cast<uint64_t>((static_cast<unsigned __int128>(ns) << 32) / counts);
}

bool agrees(uint64_t rate, uint64_t before)
{
    uint64_t gap = rate > before ? rate - before : before - rate;
    return gap <= (before >> rateToleranceShift);
}

// Reads the clock with the counter on both sides and takes a new base and,
// over a span long enough, a new rate.
int64_t rebase(CycleClock& c, uint64_t (*readCount)(), int64_t (*readRealNs)())
{
    uint64_t before = readCount();
    int64_t ns = readRealNs();
    uint64_t after = readCount();
    if (after - before > widestReading)
        return ns;
    uint64_t count = before + (after - before) / 2;
    bool hasBase = c.baseCount != 0 && count > c.baseCount && ns > c.baseNs;
    if (hasBase && c.nsPerCount == 0 && ns - c.baseNs < baseLifeNs)
        return ns;  // keep the old base, so that the span grows
    if (hasBase && ns - c.baseNs >= baseLifeNs) {
        uint64_t rate = rateOver(ns - c.baseNs, count - c.baseCount);
        c.nsPerCount = c.nsPerCount == 0 || agrees(rate, c.nsPerCount) ? rate : 0;
    }
    c.baseCount = count;
    c.baseNs = ns;
    // life * 2^32 / rate: the counts that one life of the base lasts.
    c.countsValid = c.nsPerCount == 0 ? 0 : rateOver(baseLifeNs, c.nsPerCount);
    return ns;
}

#if defined(__x86_64__)
uint64_t cycleCount() { return __rdtsc(); }

bool kernelKeepsTimeByTsc()
{
    std::FILE* f = std::fopen("/sys/devices/system/clocksource/clocksource0/current_clocksource", "re");
    if (f == nullptr)
        return false;
    char name[32] = {};
    bool tsc = std::fgets(name, sizeof name, f) != nullptr && std::strcmp(name, "tsc\n") == 0;
    std::fclose(f);
    return tsc;
}

bool counterIsInvariant()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(0x80000007, &a, &b, &c, &d) != 0 && (d & (1u << 8)) != 0;
}

// 0: not yet known, 1: the counter is used, 2: the clock is read.
std::atomic<int> counterState{0};

bool counterUsable()
{
    int state = counterState.load(std::memory_order_relaxed);
    if (state == 0) [[unlikely]] {
        state = counterIsInvariant() && kernelKeepsTimeByTsc() ? 1 : 2;
        counterState.store(state, std::memory_order_relaxed);
    }
    return state == 1;
}

int64_t threadNs()
{
    if (!counterUsable())
        return realNs();
    return cycleClockNs(threadClock, cycleCount(), cycleCount, realNs);
}
#else
int64_t threadNs() { return realNs(); }
#endif

}  // namespace

int64_t cycleClockNs(CycleClock& c, uint64_t count, uint64_t (*readCount)(), int64_t (*readRealNs)())
{
    uint64_t since = count - c.baseCount;
    if (since < c.countsValid) [[likely]]
        return c.baseNs + static_cast<int64_t>((static_cast<unsigned __int128>(since) * c.nsPerCount) >> 32);
    return rebase(c, readCount, readRealNs);
}

// The clock may be set back, the order of one thread's records may not.
// Stamps rise strictly, so that records that one thread stored in two lanes
// are merged in the order it wrote them.
Stamp stampNow()
{
    int64_t ns = threadNs();
    if (ns <= lastStampNs)
        ns = lastStampNs + 1;
    lastStampNs = ns;
    // A thread's stamps mostly fall in the second of the one before: the
    // division is made once a second (0 starts second 0, which is right).
    auto intoSecond = static_cast<uint64_t>(ns - secondStartNs);
    if (intoSecond < nsPerSec) [[likely]]
        return Stamp{currentSecond, static_cast<int32_t>(intoSecond)};
    Stamp stamp{static_cast<int32_t>(ns / nsPerSec), static_cast<int32_t>(ns % nsPerSec)};
    if (ns >= 0) {
        currentSecond = stamp.sec;
        secondStartNs = ns - stamp.nsec;
    }
    return stamp;
}

}  // namespace kelvo
