// Records written through the writer API and read back by the walk.
#include "libtest.h"

#include <kelvo/trace.hpp>

#include <gtest/gtest.h>

#include <sys/syscall.h>

#include <cstring>
#include <tuple>

using namespace kelvotest;

namespace {

using Ids = std::array<uint8_t, 6>;
using Texts = std::vector<std::string>;
struct Written {
    Ids ids;
    std::string data;
};

int say(const std::string& text, unsigned event = 22, unsigned product = 1, const void* object = nullptr)
{
    return trcWrite(product, event, 3, 4, 5, 6, object, text.data(), static_cast<unsigned>(text.size()));
}

int put(std::vector<Written>& log, uint8_t product, uint8_t event, const std::string& text)
{
    log.push_back({{product, event, 3, 4, 5, 6}, text});
    return say(text, event, product);
}

std::string rcBytes(int32_t rc) { return std::string(reinterpret_cast<const char*>(&rc), sizeof rc); }

int putRc(std::vector<Written>& log, uint8_t event, int32_t rc)
{
    log.push_back({{1, event, 3, 4, 5, 6}, rcBytes(rc)});
    return trcWriteRc(1, event, 3, 4, 5, 6, nullptr, rc);
}

// The texts of the records written here; the facility's own records (of
// losses while a dump held the trace) left out.
Texts texts(const Walked& w)
{
    Texts all;
    for (const Found& f : w.records)
        if (f.ids[0] != 255)
            all.push_back(f.data);
    return all;
}

// The walk found the newest records of the log, whole and in order, written
// by this thread, each with a time stamp.
void expectTail(const Walked& w, const std::vector<Written>& log)
{
    ASSERT_TRUE(w.complete);
    ASSERT_LE(w.records.size(), log.size());
    std::size_t first = log.size() - w.records.size();
    for (std::size_t i = 0; i < w.records.size(); ++i) {
        SCOPED_TRACE(i);
        const Found& f = w.records[i];
        EXPECT_EQ(f.ids, log[first + i].ids);
        EXPECT_EQ(f.data, log[first + i].data);
        EXPECT_TRUE(f.whole);
        EXPECT_EQ(std::tuple(f.head.pid, f.head.tid, f.head.node, f.head.cpid, f.head.sec != 0,
                             f.head.nsec >= 0 && f.head.nsec < 1'000'000'000),
                  std::tuple(static_cast<uint32_t>(getpid()), static_cast<uint32_t>(syscall(SYS_gettid)), -1, 0u, true,
                             true));
    }
}

class LibRoundTrip : public testing::Test {
protected:
    Instance instance;
    TempDir dir;
    OnArgs args;
};

}  // namespace

TEST_F(LibRoundTrip, EveryKindOfRecordComesBackWholeAndInOrder)
{
    args.maxRecordSize = 200;
    args.bufferSize = 65536 * 3;
    ASSERT_EQ(turnOn(args), 0);
    std::vector<Written> log;
    EXPECT_EQ(put(log, 1, 24, std::string("line one\nline two\n\0zero\0", 25)), 0);
    EXPECT_EQ(put(log, 1, 22, ""), 0);
    EXPECT_EQ(putRc(log, 23, -1), 0);
    EXPECT_EQ(putRc(log, 10, 0x7FFFFFFF), 0);
    // A return-code event written as text keeps room for its code.
    log.push_back({{1, 33, 3, 4, 5, 6}, std::string("ab\0\0", 4)});
    EXPECT_EQ(say("ab", 33), 0);
    // Cut to maxRecordSize: 200 bytes in all, 156 of data.
    log.push_back({{1, 24, 3, 4, 5, 6}, std::string(156, 'q')});
    EXPECT_EQ(say(std::string(1000, 'q'), 24), 0);
    log.push_back({{1, 34, 3, 4, 5, 6}, "value 42 of abc"});
    EXPECT_EQ(trcWritef(1, 34, 3, 4, 5, 6, nullptr, "value %d of %s", 42, "abc"), 0);
    int object = 0;
    auto traced = [&](int rc) {
        kelvo::TraceScope scope({7, 8, 9, 10}, TRC_EVENT_CEI_ENTRY, &object, "args");
        return scope.ret(rc);
    };
    EXPECT_EQ(traced(-3), -3);
    log.push_back({{7, 32, 8, 9, 10, 0}, "args"});
    log.push_back({{7, 33, 8, 9, 10, 0}, rcBytes(-3)});
    Walked w = dumpAndWalk(dir);
    EXPECT_FALSE(w.lost);
    ASSERT_EQ(w.records.size(), log.size());
    expectTail(w, log);
    EXPECT_EQ(w.records.back().head.thisPointer, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&object)));

    // Several laps over three segments: the newest records, in order, and
    // at most a segment's end and the record at the end mark given up.
    for (uint32_t n = 0; n < 20000; ++n)
        put(log, 2, 30, patternText(n));
    w = dumpAndWalk(dir);
    EXPECT_TRUE(w.lost);
    expectTail(w, log);
    std::size_t used = 0;
    for (const Found& f : w.records)
        used += static_cast<std::size_t>(trcAligned(f.head.length));
    EXPECT_GT(used, 65536u * 3 - 3 * 200 - 400);

    EXPECT_EQ(trcClear(0), 0);
    w = dumpAndWalk(dir);
    EXPECT_EQ(std::tuple(w.complete, w.lost, w.records.size()), std::tuple(true, false, std::size_t{0}));
}

TEST_F(LibRoundTrip, KeepInitialFillsAndSetsTraceFull)
{
    args.flags = TRC_DEST_SHARED | TRC_KEEP_INITIAL;
    args.bufferSize = 65536 * 2;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    int rc = 0;
    uint32_t stored = 0;
    while (stored < 10000 && (rc = say(patternText(stored), 30)) == 0)
        ++stored;
    EXPECT_EQ(rc, 1);
    EXPECT_EQ(h->traceFull, 1);
    EXPECT_EQ(say("x", 30), 1);
    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.lost);
    EXPECT_EQ(w.records.size(), stored);
    expectRun(w, static_cast<int64_t>(stored) - 1);
    EXPECT_EQ(trcClear(0), 0);
    EXPECT_EQ(h->traceFull, 0);
    EXPECT_EQ(say("again", 30), 0);
    w = dumpAndWalk(dir);
    EXPECT_FALSE(w.lost);
    EXPECT_EQ(texts(w), Texts{"again"});
}

TEST_F(LibRoundTrip, SmallestAreaWrapsWithWholeRecords)
{
    args.bufferSize = 64;
    ASSERT_EQ(turnOn(args), 0);
    std::vector<Written> log;
    for (uint32_t n = 0; n < 50 && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        ASSERT_EQ(put(log, 1, 30, std::string(n % 9, 'a')), 0);
        expectTail(dumpAndWalk(dir), log);
    }
    // A text longer than a segment holds is cut to what fits.
    ASSERT_EQ(say(std::string(500, 'z'), 30), 0);
    log.push_back({{1, 30, 3, 4, 5, 6}, std::string(8, 'z')});
    Walked w = dumpAndWalk(dir);
    EXPECT_EQ(w.records.size(), 1u);
    expectTail(w, log);
}

TEST_F(LibRoundTrip, FiltersDecideWhichRecordsAreStored)
{
    args.mask[0] = 0x02;    // product 1 only
    args.mask[32 + 3] = 0;  // events 24 to 31 not
    args.pid = static_cast<int32_t>(getpid());
    args.cpid = 77;
    args.thisPointer = 0x1234;
    ASSERT_EQ(turnOn(args), 0);
    auto* object = reinterpret_cast<const void*>(uintptr_t{0x500001234});
    auto* other = reinterpret_cast<const void*>(uintptr_t{0x1235});
    EXPECT_EQ(say("no companion", 22, 1, object), 1);
    trcSetCompanion(77);
    trcSetNode(5);
    EXPECT_EQ(say("taken", 22, 1, object), 0);
    EXPECT_EQ(say("product 2", 22, 2, object), 1);
    EXPECT_EQ(say("event 24", 24, 1, object), 1);
    EXPECT_EQ(say("other object", 22, 1, other), 1);
    EXPECT_EQ(trcWritef(1, 22, 1, 1, 1, 1, other, "%s", "other object"), 1);
    int status = inChild([&] { return say("other process", 22, 1, object); });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    OnArgs thisThread;  // a thread filter and no other
    thisThread.mask = args.mask;
    thisThread.tid = static_cast<int32_t>(syscall(SYS_gettid));
    ASSERT_EQ(change(thisThread), 0);
    trcSetCompanion(0);
    trcSetNode(-1);
    EXPECT_EQ(say("this thread", 22, 1, other), 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(texts(w), (Texts{"taken", "this thread"}));
    const trcRecord_t& taken = w.records[0].head;
    EXPECT_EQ(std::tuple(taken.cpid, taken.node, taken.thisPointer), std::tuple(77u, 5, 0x1234u));
}

TEST_F(LibRoundTrip, SevereErrorsStopTheTraceAndOnReplacesIt)
{
    args.maxSevereErrors = 3;
    args.returnCode = -7;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    // A system error, the return code -7 and a software error count; a log
    // error and any other return code do not.
    EXPECT_EQ(say("system error", 2), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 3, 4, 5, 6, nullptr, -6), 0);
    EXPECT_EQ(say("log error", 5), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 3, 4, 5, 6, nullptr, -7), 0);
    EXPECT_EQ(say("third", 4), 0);
    EXPECT_NE(h->traceOff, 0);
    EXPECT_EQ(say("late"), 1);
    EXPECT_EQ(trcIsOn(), 0);
    // Stopped, not removed: it can be dumped, not changed; on replaces it.
    Walked w = dumpAndWalk(dir);
    EXPECT_TRUE(w.complete);
    ASSERT_EQ(w.records.size(), 5u);
    EXPECT_EQ(w.records[4].data, "third");
    EXPECT_EQ(trcClear(0), -1);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    EXPECT_EQ(say("fresh", 2), 0);
}

TEST_F(LibRoundTrip, CrashAndPauseMasks)
{
    args.flags |= TRC_USE_CRASH_MASK | TRC_USE_PAUSE_MASK;
    args.crashMask = args.pauseMask = allMask();
    // Crash mask: event 50, all components, classes, functions, points.
    std::memset(args.crashMask.data(), 0, 32);
    args.crashMask[50 >> 3] = 1 << (50 & 7);
    // Pause mask: product 9 only.
    std::memset(args.pauseMask.data(), 0, 32);
    args.pauseMask[1] = 0x02;
    ASSERT_EQ(turnOn(args), 0);
    EXPECT_EQ(say("no crash", 51), 0);
    int status = inChild([] { return say("crash here", 50); });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
    // A paused writer stores its record first, and goes on when the trace
    // is changed.
    pid_t child = fork();
    if (child == 0) {
        // A write that a dump kept out is dropped: write again until stored.
        while (say("pause", 22, 9) == 1)
            usleep(1000);
        int rc = 1;
        for (int i = 0; i < 1000 && rc == 1; ++i, usleep(1000))
            rc = say("resumed");
        _exit(rc);
    }
    bool paused = false;
    for (int look = 0; look < 20000 && !paused; ++look) {
        Texts now = texts(dumpAndWalk(dir));
        paused = !now.empty() && now.back() == "pause";
        usleep(paused ? 0 : 1000);
    }
    EXPECT_TRUE(paused);
    ASSERT_EQ(change(OnArgs{}), 0);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(texts(dumpAndWalk(dir)), (Texts{"no crash", "crash here", "pause", "resumed"}));
}
