// Writers in several processes and threads, readers that dump and clear
// meanwhile, and writers that die at any moment.
#include "libtest.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <map>
#include <thread>

using namespace libtest;

namespace {

// 200,000 records in all from two processes of two threads.
constexpr uint32_t recordsPerThread = 50000;

int writePattern(uint32_t n)
{
    std::string text = patternText(n);
    return trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size()));
}

int writeInTwoThreads()
{
    std::atomic<int> failures{0};
    auto writer = [&] {
        for (uint32_t n = 0; n < recordsPerThread; ++n)
            failures += writePattern(n) != 0;
    };
    std::thread a(writer), b(writer);
    a.join();
    b.join();
    return failures == 0 ? 0 : 1;
}

// Every record whole, a pattern record, and each writer's numbers rising.
void checkDump(const Walked& w)
{
    ASSERT_TRUE(w.complete);
    std::map<std::pair<uint32_t, uint32_t>, int64_t> last;
    for (const Found& f : w.records) {
        int64_t n = patternNumber(f.data);
        ASSERT_TRUE(f.whole && n >= 0) << f.data.size();
        auto [it, first] = last.try_emplace({f.head.pid, f.head.tid}, n);
        ASSERT_TRUE(first || n > it->second) << n << " after " << it->second;
        it->second = n;
    }
}

} // namespace

TEST(LibConcurrency, TwoProcessesOfTwoThreadsWhileDumpingAndClearing)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 4;
    ASSERT_EQ(turnOn(args), 0);
    for (int i = 0; i < 2; ++i)
        if (fork() == 0)
            _exit(writeInTwoThreads());
    for (int dumps = 1, running = 2; running > 0 && !HasFatalFailure(); ++dumps) {
        checkDump(dumpAndWalk(dir));
        if (dumps % 3 == 0) {
            EXPECT_EQ(trcClear(0), 0);
        }
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
            --running;
        }
    }
    checkDump(dumpAndWalk(dir));
}

TEST(LibConcurrency, HolderOfTheSemaphoreKilled)
{
    Instance instance;
    TempDir dir;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    ASSERT_EQ(writePattern(0), 0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t holder = fork();
    if (holder == 0) {
        trcSemP();
        (void)!write(ready[1], "x", 1);
        for (;;)
            pause();
    }
    char c = 0;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(writePattern(1), 0);
    Walked w = dumpAndWalk(dir);
    checkDump(w);
    EXPECT_EQ(w.records.size(), 2u);
    EXPECT_EQ(trcSemP(), 0);
    EXPECT_EQ(trcSemV(), 0);
}

TEST(LibConcurrency, WritersKilledAtAnyMomentLeaveAReadableTrace)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 2;
    ASSERT_EQ(turnOn(args), 0);
    for (uint32_t round = 0; round < 30 && !HasFatalFailure(); ++round) {
        SCOPED_TRACE(round);
        pid_t writer = fork();
        if (writer == 0)
            for (uint32_t n = 0;; ++n)  // until killed
                writePattern(n);
        usleep(2000 + round * 997 % 20000);
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        ASSERT_EQ(writePattern(round), 0);
        Walked w = dumpAndWalk(dir);
        checkDump(w);
        ASSERT_FALSE(w.records.empty());
        EXPECT_EQ(w.records.back().data, patternText(round));
    }
}
