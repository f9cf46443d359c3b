// Records written through the writer API and read back by the walk.
#include "libtest.h"

#include <kelvo/trace.hpp>

#include <gtest/gtest.h>

#include <sys/syscall.h>

#include <cstring>
#include <string>
#include <vector>

using namespace libtest;

namespace {

// What a test wrote, to compare with what the walk finds.
struct Written {
    uint8_t ids[6];
    std::string data;
};

int put(std::vector<Written>& log, uint8_t product, uint8_t event, const std::string& data)
{
    log.push_back(Written{{product, event, 3, 4, 5, 6}, data});
    return trcWrite(product, event, 3, 4, 5, 6, nullptr, data.data(), static_cast<unsigned>(data.size()));
}

std::string rcBytes(int32_t rc)
{
    return std::string(reinterpret_cast<const char*>(&rc), sizeof rc);
}

void expectSame(const Written& w, const Found& f)
{
    EXPECT_EQ(std::memcmp(w.ids, f.ids, 6), 0);
    EXPECT_EQ(w.data, f.data);
    EXPECT_TRUE(f.whole);
    EXPECT_EQ(f.pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(f.tid, static_cast<uint32_t>(syscall(SYS_gettid)));
    EXPECT_EQ(f.node, -1);
    EXPECT_EQ(f.cpid, 0u);
    EXPECT_EQ(f.sec, 0);
}

} // namespace

TEST(LibRoundTrip, EveryKindOfRecordComesBackWholeAndInOrder)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.maxRecordSize = 200;
    args.bufferSize = 65536 * 3;
    ASSERT_EQ(turnOn(args), 0);
    std::vector<Written> log;
    EXPECT_EQ(put(log, 1, 24, std::string("line one\nline two\n\0zero\0", 25)), 0);
    EXPECT_EQ(put(log, 1, 22, ""), 0);
    log.push_back(Written{{1, 23, 3, 4, 5, 6}, rcBytes(-1)});
    EXPECT_EQ(trcWriteRc(1, 23, 3, 4, 5, 6, nullptr, -1), 0);
    log.push_back(Written{{1, 10, 3, 4, 5, 6}, rcBytes(0x7FFFFFFF)});
    EXPECT_EQ(trcWriteRc(1, 10, 3, 4, 5, 6, nullptr, 0x7FFFFFFF), 0);
    // A return-code event written as text keeps room for its code.
    log.push_back(Written{{1, 33, 3, 4, 5, 6}, std::string("ab\0\0", 4)});
    EXPECT_EQ(trcWrite(1, 33, 3, 4, 5, 6, nullptr, "ab", 2), 0);
    // Cut to maxRecordSize: 200 bytes in all, 156 of data.
    std::string big(1000, 'q');
    log.push_back(Written{{1, 24, 3, 4, 5, 6}, big.substr(0, 156)});
    EXPECT_EQ(trcWrite(1, 24, 3, 4, 5, 6, nullptr, big.data(), 1000), 0);
    log.push_back(Written{{1, 34, 3, 4, 5, 6}, "value 42 of abc"});
    EXPECT_EQ(trcWritef(1, 34, 3, 4, 5, 6, nullptr, "value %d of %s", 42, "abc"), 0);

    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    EXPECT_FALSE(w.lost);
    ASSERT_EQ(w.records.size(), log.size());
    for (std::size_t i = 0; i < log.size(); ++i) {
        SCOPED_TRACE(i);
        expectSame(log[i], w.records[i]);
    }

    // Several laps over three segments: the newest records, in order.
    for (uint32_t n = 0; n < 20000; ++n)
        put(log, 2, 30, patternText(n));
    w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    EXPECT_TRUE(w.lost);
    ASSERT_GT(w.records.size(), 1000u);
    std::size_t first = log.size() - w.records.size();
    for (std::size_t i = 0; i < w.records.size(); ++i) {
        SCOPED_TRACE(i);
        expectSame(log[first + i], w.records[i]);
    }
    // Nearly the whole area is in use: at most a segment's end and the
    // record at the end mark are given up.
    std::size_t usedBytes = 0;
    for (const Found& f : w.records)
        usedBytes += trcAligned(static_cast<int32_t>(TRC_RECORD_MIN + f.data.size()));
    EXPECT_GT(usedBytes, 65536u * 3 - 3 * 200 - 400);

    EXPECT_EQ(trcClear(0), 0);
    w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    EXPECT_FALSE(w.lost);
    EXPECT_EQ(w.recordCount, 0);
}

TEST(LibRoundTrip, KeepInitialFillsAndSetsTraceFull)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.flags = TRC_DEST_SHARED | TRC_KEEP_INITIAL;
    args.bufferSize = 65536 * 2;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    std::vector<Written> log;
    uint32_t stored = 0;
    uint32_t n = 0;
    for (; n < 10000; ++n) {
        int rc = put(log, 1, 30, patternText(n));
        ASSERT_NE(rc, -1);
        if (rc == 1)
            break;
        ++stored;
    }
    EXPECT_LT(n, 10000u);
    EXPECT_EQ(h->traceFull, 1);
    EXPECT_EQ(put(log, 1, 30, "x"), 1);
    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    EXPECT_TRUE(w.lost);
    ASSERT_EQ(w.records.size(), stored);
    for (uint32_t i = 0; i < stored; ++i)
        ASSERT_EQ(patternNumber(w.records[i].data), i);
    // Clearing makes room again.
    EXPECT_EQ(trcClear(0), 0);
    EXPECT_EQ(h->traceFull, 0);
    EXPECT_EQ(put(log, 1, 30, "again"), 0);
    w = dumpAndWalk(dir);
    EXPECT_FALSE(w.lost);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(w.records[0].data, "again");
}

TEST(LibRoundTrip, SmallestAreaWrapsWithWholeRecords)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.bufferSize = 64;
    ASSERT_EQ(turnOn(args), 0);
    std::vector<Written> log;
    for (uint32_t n = 0; n < 50; ++n) {
        ASSERT_EQ(put(log, 1, 30, std::string(n % 9, 'a')), 0);
        Walked w = dumpAndWalk(dir);
        ASSERT_TRUE(w.complete) << n;
        for (std::size_t i = 0; i < w.records.size(); ++i)
            expectSame(log[log.size() - w.records.size() + i], w.records[i]);
    }
    // A text longer than a segment holds is cut to what fits.
    ASSERT_EQ(trcWrite(1, 30, 1, 1, 1, 1, nullptr, std::string(500, 'z').data(), 500), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_TRUE(w.complete);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(w.records[0].data, std::string(8, 'z'));
}

TEST(LibRoundTrip, FiltersDecideWhichRecordsAreStored)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.mask[0] = 0x02;          // product 1 only
    args.mask[32 + 3] = 0;        // events 24 to 31 not
    args.pid = static_cast<int32_t>(getpid());
    args.cpid = 77;
    args.thisPointer = 0x1234;
    ASSERT_EQ(turnOn(args), 0);
    auto* object = reinterpret_cast<const void*>(uintptr_t{0x500001234});
    auto* other = reinterpret_cast<const void*>(uintptr_t{0x1235});
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, object, "no companion", 12), 1);
    trcSetCompanion(77);
    trcSetNode(5);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, object, "taken", 5), 0);
    EXPECT_EQ(trcWrite(2, 22, 1, 1, 1, 1, object, "product 2", 9), 1);
    EXPECT_EQ(trcWrite(1, 24, 1, 1, 1, 1, object, "event 24", 8), 1);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, other, "other object", 12), 1);
    EXPECT_EQ(trcWritef(1, 22, 1, 1, 1, 1, other, "%s", "other object"), 1);
    int status = inChild([&] { return trcWrite(1, 22, 1, 1, 1, 1, object, "other process", 13); });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);

    // A thread filter: only this thread.
    ASSERT_EQ(trcChg(args.mask.data(), -1, static_cast<int32_t>(syscall(SYS_gettid)), -1, 0, 0, -1,
                     32768, 0, noMask().data(), noMask().data(), -1),
              0);
    trcSetCompanion(0);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, other, "this thread", 11), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 2u);
    EXPECT_EQ(w.records[0].data, "taken");
    EXPECT_EQ(w.records[0].cpid, 77u);
    EXPECT_EQ(w.records[0].node, 5);
    EXPECT_EQ(w.records[0].thisPointer, 0x1234u);
    EXPECT_EQ(w.records[1].data, "this thread");
    trcSetNode(-1);
}

TEST(LibRoundTrip, TimeStampsOnlyWithOptionT)
{
    Instance instance;
    TempDir dir;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    ASSERT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "a", 1), 0);
    ASSERT_EQ(trcOff(0), 0);
    OnArgs args;
    args.flags |= TRC_OPTION_T;
    ASSERT_EQ(turnOn(args), 0);
    time_t before = time(nullptr);
    ASSERT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "b", 1), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(w.records[0].data, "b");
    EXPECT_GE(w.records[0].sec, before);
    EXPECT_LE(w.records[0].sec, time(nullptr));
    EXPECT_GE(w.records[0].nsec, 0);
    EXPECT_LT(w.records[0].nsec, 1000000000);
}

TEST(LibRoundTrip, SevereErrorsStopTheTraceAndKeepItReadable)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.maxSevereErrors = 3;
    args.returnCode = -7;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(trcWrite(1, 2, 1, 1, 1, 1, nullptr, "system error", 12), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 1, 1, 1, 1, nullptr, -6), 0);
    EXPECT_EQ(trcWrite(1, 5, 1, 1, 1, 1, nullptr, "log error", 9), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 1, 1, 1, 1, nullptr, -7), 0);
    EXPECT_EQ(h->traceOff, 0);
    EXPECT_EQ(trcWrite(1, 4, 1, 1, 1, 1, nullptr, "third", 5), 0);
    EXPECT_NE(h->traceOff, 0);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "late", 4), 1);
    EXPECT_EQ(trcIsOn(), 0);
    // Stopped, not removed: it can be read and dumped, not changed.
    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    ASSERT_EQ(w.records.size(), 5u);
    EXPECT_EQ(w.records[4].data, "third");
    EXPECT_EQ(trcClear(0), -1);
    EXPECT_EQ(errno, ENOENT);
    // on replaces a stopped trace.
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    EXPECT_EQ(trcIsOn(), 1);
    EXPECT_EQ(trcWrite(1, 2, 1, 1, 1, 1, nullptr, "fresh", 5), 0);
    EXPECT_EQ(trcIsOn(), 1);
}

TEST(LibRoundTrip, OffStopsWritersAndOnIsSeenAgain)
{
    Instance instance;
    TempDir dir;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "a", 1), 0);
    ASSERT_EQ(trcOff(0), 0);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "b", 1), 1);
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    EXPECT_EQ(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "c", 1), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(w.records[0].data, "c");
}

TEST(LibRoundTrip, ScopeObjectWritesEntryAndExit)
{
    Instance instance;
    TempDir dir;
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    int object = 0;
    auto traced = [&](int rc) {
        kelvo::TraceScope scope({7, 8, 9, 10}, TRC_EVENT_CEI_ENTRY, &object, "args");
        return scope.ret(rc);
    };
    EXPECT_EQ(traced(-3), -3);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 2u);
    const uint8_t entry[6] = {7, 32, 8, 9, 10, 0};
    const uint8_t exit[6] = {7, 33, 8, 9, 10, 0};
    EXPECT_EQ(std::memcmp(w.records[0].ids, entry, 6), 0);
    EXPECT_EQ(w.records[0].data, "args");
    EXPECT_EQ(std::memcmp(w.records[1].ids, exit, 6), 0);
    EXPECT_EQ(w.records[1].data, rcBytes(-3));
    EXPECT_EQ(w.records[1].thisPointer, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&object)));
}

TEST(LibRoundTrip, CrashAndPauseMasks)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.flags |= TRC_USE_CRASH_MASK | TRC_USE_PAUSE_MASK;
    // Crash mask: event 50, all components, classes, functions, points.
    args.crashMask = allMask();
    std::memset(args.crashMask.data(), 0, 32);
    args.crashMask[50 >> 3] = 1 << (50 & 7);
    // Pause mask: product 9 only.
    args.pauseMask = allMask();
    std::memset(args.pauseMask.data(), 0, 32);
    args.pauseMask[1] = 0x02;
    ASSERT_EQ(turnOn(args), 0);
    EXPECT_EQ(trcWrite(1, 51, 1, 1, 1, 1, nullptr, "no crash", 8), 0);
    int status = inChild([] {
        trcWrite(1, 50, 1, 1, 1, 1, nullptr, "crash here", 10);
        return 0;
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);

    // A paused writer goes on when the trace is changed.
    pid_t child = fork();
    if (child == 0) {
        trcWrite(9, 22, 1, 1, 1, 1, nullptr, "pause", 5);
        _exit(trcWrite(1, 22, 1, 1, 1, 1, nullptr, "resumed", 7));
    }
    // The paused record is stored before the writer pauses.
    bool paused = false;
    for (int look = 0; look < 20000 && !paused; ++look) {
        Walked w = dumpAndWalk(dir);
        paused = !w.records.empty() && w.records.back().data == "pause";
        if (!paused)
            usleep(1000);
    }
    EXPECT_TRUE(paused);
    ASSERT_EQ(trcChg(args.mask.data(), -1, -1, -1, 0, 0, -1, 32768, 0, noMask().data(),
                     noMask().data(), -1),
              0);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 4u);
    EXPECT_EQ(w.records[0].data, "no crash");
    EXPECT_EQ(w.records[1].data, "crash here");
    EXPECT_EQ(w.records[2].data, "pause");
    EXPECT_EQ(w.records[3].data, "resumed");
}
