// Writers in several processes and threads, readers that dump and clear
// meanwhile, and writers that die at any moment.
#include "libtest.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <map>
#include <thread>
#include <utility>
#include <vector>

using namespace libtest;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr uint32_t recordsPerThread = 10000;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr uint32_t recordsPerThread = 10000;
#else
constexpr uint32_t recordsPerThread = 50000;
#endif
#else
constexpr uint32_t recordsPerThread = 50000;
#endif

// Writes pattern records numbered from 0 in each of two threads.
int writeInTwoThreads(uint32_t count)
{
    std::atomic<int> failures{0};
    auto writer = [&] {
        for (uint32_t n = 0; n < count; ++n) {
            std::string text = patternText(n);
            if (trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size())) != 0)
                ++failures;
        }
    };
    std::thread a(writer);
    std::thread b(writer);
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
        ASSERT_TRUE(f.whole);
        int64_t n = patternNumber(f.data);
        ASSERT_GE(n, 0);
        auto key = std::make_pair(f.pid, f.tid);
        auto it = last.find(key);
        if (it != last.end()) {
            ASSERT_GT(n, it->second);
        }
        last[key] = n;
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
    pid_t writers[2];
    for (pid_t& w : writers) {
        w = fork();
        if (w == 0)
            _exit(writeInTwoThreads(recordsPerThread));
    }
    int dumps = 0;
    for (;;) {
        Walked w = dumpAndWalk(dir);
        checkDump(w);
        ++dumps;
        if (dumps % 3 == 0) {
            ASSERT_EQ(trcClear(0), 0);
        }
        int status = 0;
        if (waitpid(writers[0], &status, WNOHANG) == writers[0]) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            writers[0] = writers[1];
            writers[1] = 0;
            if (writers[0] == 0)
                break;
        }
    }
    checkDump(dumpAndWalk(dir));
    EXPECT_GT(dumps, 0);
}

TEST(LibConcurrency, HolderOfTheSemaphoreKilled)
{
    Instance instance;
    TempDir dir;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    ASSERT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "before", 6), 0);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t holder = fork();
    if (holder == 0) {
        trcSemP();
        char c = 'x';
        (void)!write(ready[1], &c, 1);
        pause();
        _exit(0);
    }
    char c = 0;
    ASSERT_EQ(read(ready[0], &c, 1), 1);
    kill(holder, SIGKILL);
    int status = 0;
    waitpid(holder, &status, 0);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "after", 5), 0);
    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    ASSERT_EQ(w.records.size(), 2u);
    EXPECT_EQ(w.records[0].data, "before");
    EXPECT_EQ(w.records[1].data, "after");
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
    for (int round = 0; round < 30; ++round) {
        SCOPED_TRACE(round);
        pid_t writer = fork();
        if (writer == 0) {
            for (uint32_t n = 0;; ++n) {
                std::string text = patternText(n);
                trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size()));
            }
        }
        usleep(static_cast<useconds_t>(2000 + round * 997 % 20000));
        kill(writer, SIGKILL);
        int status = 0;
        waitpid(writer, &status, 0);
        std::string text = patternText(round);
        ASSERT_EQ(trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size())), 0);
        Walked w = dumpAndWalk(dir);
        checkDump(w);
        ASSERT_FALSE(w.records.empty());
        EXPECT_EQ(w.records.back().data, text);
    }
}
