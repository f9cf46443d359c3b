// Writers in several processes and threads, readers that dump and clear
// meanwhile, writers that die at any moment, and a writer held up in the
// middle of its record while the others come round the whole buffer.
#include "libtest.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <thread>

using namespace kelvotest;

namespace {

// 200,000 records in all from two processes of two threads.
constexpr uint32_t recordsPerThread = 50000;

int writePattern(uint32_t n)
{
    std::string text = patternText(n);
    return trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size()));
}

// Writes `count` records in each of two threads; returns how many were
// stored, or -1 when a write failed. A write that a reader kept out is no
// failure: it is dropped and counted.
int64_t writeInTwoThreads(uint32_t count)
{
    std::atomic<int64_t> stored{0};
    std::atomic<bool> failed{false};
    auto writer = [&] {
        for (uint32_t n = 0; n < count; ++n) {
            int rc = writePattern(n);
            stored += rc == 0;
            failed = failed || rc < 0;
        }
    };
    std::thread a(writer), b(writer);
    a.join();
    b.join();
    return failed ? -1 : stored.load();
}

// Records of the facility itself: losses, and slots given up.
bool isFacilityRecord(const Found& f) { return f.ids[0] == 255; }

std::vector<std::string> facilityTexts(const Walked& w)
{
    std::vector<std::string> texts;
    for (const Found& f : w.records)
        if (isFacilityRecord(f))
            texts.push_back(f.data);
    return texts;
}

// A fault_writer that stops itself before the given store of its one record.
pid_t stoppedWriter(const char* store = "1")
{
    pid_t pid = fork();
    if (pid == 0) {
        execl(FAULT_WRITER_PATH, FAULT_WRITER_PATH, "1", "stop", store, static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WUNTRACED), pid);
    EXPECT_TRUE(WIFSTOPPED(status)) << status;
    return pid;
}

// Every record whole, a pattern record or one of the facility, and each
// writer's numbers and time stamps rising; with `faultRecords`, the
// records of a fault_writer too.
void checkDump(const Walked& w, bool faultRecords = false)
{
    ASSERT_TRUE(w.complete);
    std::map<std::pair<uint32_t, uint32_t>, std::pair<int64_t, int64_t>> last;  // number, time
    for (const Found& f : w.records) {
        const int64_t t = int64_t{f.head.sec} * 1'000'000'000 + f.head.nsec;
        const bool other = isFacilityRecord(f) || (faultRecords && f.data.rfind("fault n=", 0) == 0);
        const int64_t n = other ? -1 : patternNumber(f.data);
        ASSERT_TRUE(f.whole && f.head.sec != 0 && (n >= 0 || other)) << f.data.size();
        auto [it, first] = last.try_emplace({f.head.pid, f.head.tid}, n, t);
        ASSERT_TRUE(first || t >= it->second.second) << t << " after " << it->second.second;
        ASSERT_TRUE(first || n < 0 || n > it->second.first) << n << " after " << it->second.first;
        it->second = {n < 0 ? it->second.first : n, t};
    }
}

}  // namespace

// Four writers on a small buffer lap it many times: a writer held up in
// the middle of its record while the others come round the whole buffer
// must not find its place taken, nor store into newer records.
TEST(LibConcurrency, TwoProcessesOfTwoThreadsWhileDumpingAndClearing)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 4;
    ASSERT_EQ(turnOn(args), 0);
    for (int i = 0; i < 2; ++i)
        if (fork() == 0)
            _exit(writeInTwoThreads(recordsPerThread) < 0 ? 1 : 0);
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

// Over a run with readers that take and let go of the trace all along, the
// records stored and the records the facility counted as lost add up to
// the records written: in a trace with lanes, whose writers drop only
// while the lanes are merged, and in one without, whose writers drop
// whenever a reader holds it.
namespace {

void checkBooks(uint32_t retention)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 256;  // nothing is overwritten
    args.flags = TRC_DEST_SHARED | retention | TRC_NO_POINTER_CHECK;
    ASSERT_EQ(turnOn(args), 0);
    constexpr uint32_t perThread = 20000;
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    for (int i = 0; i < 2; ++i) {
        if (fork() == 0) {
            int64_t stored = writeInTwoThreads(perThread);
            _exit(write(report[1], &stored, sizeof stored) == sizeof stored ? 0 : 1);
        }
    }
    int64_t storedByWriters = 0;
    for (int running = 2; running > 0;) {
        trcSemP();
        usleep(200);
        trcSemV();
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
            int64_t stored = -1;
            ASSERT_EQ(read(report[0], &stored, sizeof stored), static_cast<ssize_t>(sizeof stored));
            storedByWriters += stored;
            --running;
        }
    }
    close(report[0]);
    close(report[1]);
    // One more record brings the report of the last losses with it.
    ASSERT_EQ(writePattern(0), 0);
    Walked w = dumpAndWalk(dir);
    checkDump(w);
    int64_t patterns = 0, lost = 0;
    for (const Found& f : w.records) {
        unsigned n = 0;
        if (!isFacilityRecord(f))
            ++patterns;
        else if (std::sscanf(f.data.c_str(), "lost %u record", &n) == 1)
            lost += n;
    }
    EXPECT_EQ(patterns, storedByWriters + 1);
    EXPECT_TRUE(lost > 0 || retention == TRC_KEEP_LAST);
    EXPECT_EQ(patterns - 1 + lost, int64_t{4} * perThread);
}

}  // namespace

TEST(LibConcurrency, StoredAndLostRecordsAddUpToTheRecordsWritten)
{
    for (uint32_t retention : {TRC_KEEP_LAST, TRC_KEEP_INITIAL}) {
        SCOPED_TRACE(retention);
        checkBooks(retention);
    }
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

// The writer is let go a few records after the others began to drop: well
// within the time after which it would be given up, unless this process
// was itself held up; then the case is tried again.
TEST(LibConcurrency, TheOthersDropTheirRecordsRatherThanTakeItsPlace)
{
    using Clock = std::chrono::steady_clock;
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 4;
    // The held-up writer and the others share one ring.
    KeepProcessors keep;
    runOn(sched_getcpu());
    for (int attempt = 0; attempt < 5; ++attempt) {
        ASSERT_EQ(attempt == 0 || trcOff(0) == 0, true);
        ASSERT_EQ(turnOn(args), 0);
        pid_t held = stoppedWriter();
        uint32_t dropped = 0, n = 0;
        Clock::time_point firstDrop;
        for (; dropped < 100 && n < 1'000'000; ++n) {
            if (writePattern(n) == 1 && dropped++ == 0)
                firstDrop = Clock::now();
        }
        kill(held, SIGCONT);
        int status = 0;
        ASSERT_EQ(waitpid(held, &status, 0), held);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        ASSERT_EQ(dropped, 100u);
        if (Clock::now() - firstDrop > std::chrono::milliseconds(30))
            continue;
        ASSERT_EQ(writePattern(n), 0);
        Walked w = dumpAndWalk(dir);
        checkDump(w);
        std::vector<std::string> texts = facilityTexts(w);
        ASSERT_EQ(texts.size(), 1u);
        EXPECT_EQ(texts[0], "lost 100 records while a slow writer held its place ahead");
        return;
    }
    FAIL() << "this process was held up too long in every attempt";
}

// Each loss report whole: "lost N record(s) while a slow writer held ...".
bool isSlowWriterReport(const std::string& text)
{
    unsigned n = 0;
    return std::sscanf(text.c_str(), "lost %u", &n) == 1 && text == "lost " + std::to_string(n) +
                                                                        (n == 1 ? " record" : " records") +
                                                                        " while a slow writer held its place ahead";
}

// The others give the writer up and write over its place. Let go then, as
// a debugger lets a program go, before any store of its record, it stores
// nothing more: its write returns 1 (fault_writer exits 3), and the records
// written over its place stay whole.
TEST(LibConcurrency, AWriterHeldUpTooLongIsGivenUpAndStoresNothingMore)
{
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536 * 4;
    // The held-up writer and the others share one ring.
    KeepProcessors keep;
    runOn(sched_getcpu());
    for (const char* store : {"0", "1", "2"}) {
        SCOPED_TRACE(store);
        Instance instance;
        ASSERT_EQ(turnOn(args), 0);
        pid_t held = stoppedWriter(store);
        auto start = std::chrono::steady_clock::now();
        bool dropping = false, storedAgain = false;
        uint32_t n = 0;
        for (; !storedAgain && std::chrono::steady_clock::now() - start < std::chrono::seconds(5); ++n) {
            int rc = writePattern(n);
            storedAgain = dropping && rc == 0;
            dropping = dropping || rc == 1;
            if (dropping)
                usleep(1000);
        }
        EXPECT_TRUE(storedAgain);
        kill(held, SIGCONT);
        int status = 0;
        ASSERT_EQ(waitpid(held, &status, 0), held);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
        ASSERT_EQ(writePattern(n), 0);
        Walked w = dumpAndWalk(dir);
        checkDump(w);
        std::vector<std::string> texts = facilityTexts(w);
        ASSERT_FALSE(texts.empty());
        for (const std::string& text : texts)
            EXPECT_TRUE(isSlowWriterReport(text)) << text;
    }
}

// The first pattern number above `after` whose text has `bytes` bytes.
uint32_t numberWithText(uint32_t after, std::size_t bytes)
{
    uint32_t n = after + 1;
    while (patternText(n).size() != bytes)
        ++n;
    return n;
}

// In a buffer of one segment the writer that wraps it writes the filler
// that closes the lap behind it, while the others go on behind its record.
// Stopped before that filler, it holds them off the filler's place: the
// record that would reach it is dropped, none is stored over it.
TEST(LibConcurrency, TheOthersKeepOffTheFillerOfAWriterThatWrapsAOneSegmentBuffer)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 65536;
    KeepProcessors keep;
    runOn(sched_getcpu());
    ASSERT_EQ(turnOn(args), 0);
    uint32_t n = 999;
    auto write = [&](std::size_t recordBytes) {
        n = numberWithText(n, recordBytes - TRC_RECORD_MIN);
        return writePattern(n);
    };
    // From offset 8: 654 records of 100 bytes and one of 72 leave 56 bytes,
    // too few for the fault writer's record of 56 and the end mark behind it.
    for (int i = 0; i < 654; ++i)
        ASSERT_EQ(write(100), 0);
    ASSERT_EQ(write(72), 0);
    pid_t held = stoppedWriter("0");  // wrapped, before its filler at 65480
    // Behind its record at 0: 654 records of 100 bytes end at 65456; one of
    // 56 would reach the filler.
    for (int i = 0; i < 654; ++i)
        ASSERT_EQ(write(100), 0);
    EXPECT_EQ(write(56), 1);
    kill(held, SIGCONT);
    int status = 0;
    ASSERT_EQ(waitpid(held, &status, 0), held);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ASSERT_EQ(write(100), 0);
    Walked w = dumpAndWalk(dir);
    checkDump(w, true);
    ASSERT_FALSE(w.records.empty());
    EXPECT_EQ(patternNumber(w.records.back().data), n);
}
