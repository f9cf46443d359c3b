// Writers on different processors store into lanes of their own; a reader
// sees them merged into one area in time order: a thread that moves between
// processors keeps its order, lanes that hold more than the area leave its
// newest records, and writers go on while a reader holds the trace.
#include "libtest.h"

#include <gtest/gtest.h>

#include <sched.h>

#include <map>

using namespace kelvotest;

namespace {

int writePattern(uint32_t n)
{
    std::string text = patternText(n);
    return trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size()));
}

// Two processors this process may run on whose numbers differ in their
// lowest bit, as the lanes are chosen by the low bits; false when there are
// none, and so all writes go into one lane.
bool twoProcessors(int (&cpus)[2])
{
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof set, &set);
    int found = 0;
    for (int cpu = 0; cpu < CPU_SETSIZE && found < 2; ++cpu)
        if (CPU_ISSET(cpu, &set) && (found == 0 || ((cpu ^ cpus[0]) & 1) != 0))
            cpus[found++] = cpu;
    return found == 2;
}

int64_t stampOf(const Found& f) { return int64_t{f.head.sec} * 1'000'000'000 + f.head.nsec; }

class LibLanes : public testing::Test {
protected:
    void SetUp() override
    {
        if (!twoProcessors(cpus))
            GTEST_SKIP() << "one processor: writers share one ring";
    }
    Instance instance;
    TempDir dir;
    OnArgs args;
    KeepProcessors keep;
    int cpus[2] = {};
};

}  // namespace

TEST_F(LibLanes, AThreadThatMovesBetweenProcessorsKeepsItsOrder)
{
    ASSERT_EQ(turnOn(args), 0);
    for (uint32_t n = 0; n < 600; ++n) {
        if (n % 50 == 0)
            runOn(cpus[n / 50 % 2]);
        ASSERT_EQ(writePattern(n), 0);
    }
    Walked w = dumpAndWalk(dir);
    EXPECT_FALSE(w.lost);
    ASSERT_EQ(w.records.size(), 600u);
    expectRun(w, 599);
}

// Two processes on two processors each write more than the area holds: the
// area holds the newest records of both, whole, in time order, and says
// that older ones are gone.
TEST_F(LibLanes, LanesThatHoldMoreThanTheAreaLeaveItsNewestRecordsInTimeOrder)
{
    args.bufferSize = 65536 * 2;
    ASSERT_EQ(turnOn(args), 0);
    constexpr uint32_t perWriter = 6000;
    // At once, so that their records interleave in time.
    pid_t writers[2];
    for (int i = 0; i < 2; ++i) {
        if ((writers[i] = fork()) == 0) {
            runOn(cpus[i]);
            for (uint32_t n = 0; n < perWriter; ++n)
                if (writePattern(n) != 0)
                    _exit(1);
            _exit(0);
        }
    }
    for (pid_t writer : writers) {
        int status = 0;
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    Walked w = dumpAndWalk(dir);
    ASSERT_TRUE(w.complete);
    EXPECT_TRUE(w.lost);
    std::map<uint32_t, int64_t> lastOf;  // pid: number
    std::size_t used = 0;
    for (std::size_t i = 0; i < w.records.size(); ++i) {
        const Found& f = w.records[i];
        ASSERT_TRUE(f.whole);
        ASSERT_TRUE(i == 0 || stampOf(f) >= stampOf(w.records[i - 1])) << i;
        int64_t n = patternNumber(f.data);
        auto [it, first] = lastOf.try_emplace(f.head.pid, n);
        ASSERT_TRUE(first || n == it->second + 1) << n << " after " << it->second;
        it->second = n;
        used += static_cast<std::size_t>(trcAligned(f.head.length));
    }
    ASSERT_EQ(lastOf.size(), 2u);
    for (const auto& [pid, last] : lastOf)
        EXPECT_EQ(last, perWriter - 1) << pid;
    // Full but for the segments' ends and the record the end mark cut.
    EXPECT_GT(used, 65536u * 2 - 2 * 200 - 200);
}

// Writers go on while a reader holds the trace: the reader sees the area as
// it took it, the next reader sees their records too.
TEST_F(LibLanes, WritesWhileTheTraceIsHeldAreStoredAndShownToADumpAndTheNextReader)
{
    ASSERT_EQ(turnOn(args), 0);
    ASSERT_EQ(writePattern(0), 0);
    ASSERT_EQ(trcSemP(), 0);
    EXPECT_EQ(inChild([&] {
                  int stored = 0;
                  for (uint32_t n = 1; n <= 5; ++n)
                      stored += writePattern(n) == 0;
                  return stored;
              }),
              5 << 8);
    // The area read in place stays as this hold found it; a dump made
    // meanwhile merges the lanes into its own copy.
    const trcHeader_t* live = trcAttach(0, 0, 0);
    ASSERT_NE(live, nullptr);
    auto inPlace = [&] {
        return walkImage(std::string(reinterpret_cast<const char*>(live), TRC_HEADER_SIZE + live->bufferSize));
    };
    EXPECT_EQ(inPlace().records.size(), 1u);
    Walked nested = dumpAndWalk(dir);
    EXPECT_EQ(nested.records.size(), 6u);
    expectRun(nested, 5);
    EXPECT_EQ(inPlace().records.size(), 1u);
    ASSERT_EQ(trcSemV(), 0);
    Walked w = dumpAndWalk(dir);
    EXPECT_EQ(w.records.size(), 6u);
    expectRun(w, 5);
}
