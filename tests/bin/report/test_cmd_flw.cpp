// `kelvo flw`: depths rebuilt from entries, exits and the other events, the
// thread table and its headings, selection, and the closing lines.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <thread>

#include "libtest.h"
#include "report_support.h"

using namespace kelvotest;

namespace {

TraceRecordFields fl(uint8_t event, uint8_t function = 1, uint32_t tid = 1)
{
    return rec(event, function, tid, 100, 1, 0);
}

// The flow text of fl(event, function).
std::string fnc(uint8_t event, uint8_t function = 1)
{
    const std::map<int, std::string> names = {{10, "API_ERRCODE      "}, {20, "api_new      "}, {22, "api_entry    "},
                                              {23, "api_exit     "},     {24, "api_printf   "}, {100, "prf_entry    "}};
    return names.at(event) + "Core Reader::" +
           (function == 1   ? "open"
            : function == 2 ? "close"
                            : "? ") +
           (event == 10 || event == 23 ? " -> 0\n" : " ...\n");
}

// "%6ld %2ld|", two blanks for each level above 1, the text.
std::string line(long number, long depth, const std::string& text)
{
    char head[32];
    std::snprintf(head, sizeof head, "%6ld %2ld|", number, depth);
    return head + std::string(depth > 1 ? 2 * (depth - 1) : 0, ' ') + text;
}

std::string heading(int pid, int tid, int node = -1)
{
    return "\n\npid = " + std::to_string(pid) + "; tid = " + std::to_string(tid) + "; node = " + std::to_string(node) +
           ";\n\n";
}

std::string closing(long lines, int pid, int tid, int node = -1)
{
    char text[128];
    std::snprintf(text, sizeof text, "Records formatted       : %-6ld (pid: %d; tid: %d; node: %d)\n", lines, pid, tid,
                  node);
    return text;
}

struct Step {
    uint8_t event, function;
    long depth;  // expected
};

// The steps as one thread, and its lines as flw prints them.
std::string layOut(const std::vector<Step>& steps, TraceImage& img, long& size)
{
    std::string lines;
    for (const Step& s : steps) {
        size += fl(s.event, s.function).rc ? 48 : 44;
        lines += line(traceImageAdd(img, fl(s.event, s.function)), s.depth, fnc(s.event, s.function));
    }
    return lines;
}

}  // namespace

TEST(CmdFlw, EntriesAndExitsNestAndLostRecordsAreTolerated)
{
    const uint8_t A = 1, B = 2, C = 3;
    const std::vector<std::vector<Step>> cases = {
        {{22, A, 1}, {24, A, 1}, {22, B, 2}, {23, B, 2}, {23, A, 1}, {22, A, 1}},
        // An exit first: no indent, and the next entry is level 1.
        {{23, A, 0}, {22, B, 1}, {24, B, 1}},
        // A's exit with B still open takes B too; B's late exit is not found.
        {{22, A, 1}, {22, B, 2}, {23, A, 1}, {23, B, 0}, {22, C, 1}},
        // An error return is the exit; the api_exit behind it finds nothing.
        {{22, A, 1}, {22, B, 2}, {10, B, 2}, {23, B, 1}, {23, A, 1}},
        // Recursion: each exit takes the upper entry.
        {{22, A, 1}, {22, A, 2}, {24, A, 2}, {23, A, 2}, {24, A, 1}, {23, A, 1}},
        // A function entered before the trace counts as entered at its first
        // inside record; new never opens a level.
        {{24, A, 1}, {20, C, 1}, {22, B, 2}, {24, A, 1}, {22, B, 2}, {20, C, 2}, {23, B, 2}},
        // An inside record of A cuts everything above A.
        {{22, A, 1}, {22, B, 2}, {22, C, 3}, {24, A, 1}, {23, B, 1}, {23, A, 1}},
        // prf_entry is an inside record, not an entry.
        {{100, A, 1}, {100, A, 1}, {23, A, 1}, {100, B, 1}},
    };
    ReportDir d;
    for (const std::vector<Step>& steps : cases) {
        TraceImage img = traceImageNew(65536);
        long size = 0;
        const std::string lines = layOut(steps, img, size);
        const long n = static_cast<long>(steps.size());
        d.expect({"flw", d.save(img)}, summary(false, false, size, n) + heading(100, 1) + lines + closing(n, 100, 1));
    }
    d.expect({"flw", d.save(traceImageNew(4096))}, summary(false, false, 0, 0) + formatted(0));
}

TEST(CmdFlw, OptionsChooseLinesButNeverDepths)
{
    const std::vector<Step> steps = {{22, 1, 1}, {22, 2, 2}, {24, 2, 2}, {24, 2, 2}, {23, 2, 2}, {23, 1, 1}};
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    long size = 0;
    const std::string all = layOut(steps, img, size), source = d.save(img);
    const std::string top = summary(false, false, size, 6), head = top + heading(100, 1);
    auto lineOf = [&](long n) { return line(n, steps[n - 1].depth, fnc(steps[n - 1].event, steps[n - 1].function)); };
    // Hidden entries of B leave what is inside B indented; a range in the
    // middle starts indented; -j changes nothing; outside the trace there is
    // the zero line and no heading.
    d.expect({"flw", "-m", "*.23,24", source},
             head + lineOf(3) + lineOf(4) + lineOf(5) + lineOf(6) + closing(4, 100, 1));
    d.expect({"flw", "-x", "3-4", source},
             head + "     3  2|  api_printf   Core Reader::close ...\n" + lineOf(4) + closing(2, 100, 1));
    d.expect({"flw", "-r", "-x", "2-", source},
             head + lineOf(6) + lineOf(5) + lineOf(4) + lineOf(3) + lineOf(2) + closing(5, 100, 1));
    d.expect({"flow", "-j", source}, head + all + closing(6, 100, 1));
    d.expect({"flw", "-x", "7-", source}, top + formatted(0));
    d.expect({"flw", "-x", "q"}, usageWith(111, 4), 1);
}

TEST(CmdFlw, ThreadTableHeadingsAndNodes)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    // Thread 2 of process 100 comes first; thread 1 of 200 has its first
    // node only in its second record; thread 3 of 100 has none.
    const std::vector<std::tuple<uint8_t, uint8_t, uint32_t, uint32_t, int32_t>> records = {
        {22, 1, 2, 100, 4},  {22, 1, 1, 200, -1}, {22, 2, 1, 200, 9},
        {22, 1, 3, 100, -1}, {23, 2, 1, 200, 8},  {23, 1, 2, 100, -1}};
    for (const auto& [event, function, tid, pid, node] : records) {
        TraceRecordFields f = rec(event, function, tid, pid, 1, 0);
        f.node = node;
        traceImageAdd(img, f);
    }
    const std::string source = d.save(img), head = summary(false, false, 4 * 44 + 2 * 48, 6);
    const std::string of200 =
        heading(200, 1, 9) + line(2, 1, fnc(22)) + line(3, 2, fnc(22, 2)) + line(5, 2, fnc(23, 2));
    d.expect({"flw", source}, head + heading(100, 2, 4) + line(1, 1, fnc(22)) + line(6, 1, fnc(23)) +
                                  closing(2, 100, 2, 4) + of200 + closing(3, 200, 1, 9) + heading(100, 3) +
                                  line(4, 1, fnc(22)) + closing(1, 100, 3));
    // The heading takes the node from the range, the closing line from the
    // whole trace; the mask hides lines but not headings.
    d.expect({"flw", "-x", "4-", "-m", "*.24", source}, head + heading(100, 3) + closing(0, 100, 3) +
                                                            heading(200, 1, 8) + closing(0, 200, 1, 9) +
                                                            heading(100, 2) + closing(0, 100, 2, 4));
    // -p chooses the threads; a process not in the range shows nothing.
    d.expect({"flw", "-p", "200", source, d.dir.file("out.txt")}, head + closing(3, 200, 1, 9));
    EXPECT_EQ(readFile(d.dir.file("out.txt")), of200);
    d.expect({"flw", "-p", "300", source}, head);
    d.expect({"flw", "-x", "2-2", "-p", "100", source}, head);
}

TEST(CmdFlw, FiftyThreadsAreShownAndTheRestDropped)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    for (uint32_t tid = 1; tid <= 51; ++tid) {
        traceImageAdd(img, fl(22, 1, tid));
    }
    traceImageAdd(img, fl(23, 1, 51));
    traceImageAdd(img, fl(23, 1, 1));
    std::string expected = summary(false, false, 51 * 44 + 2 * 48, 53);
    for (int tid = 1; tid <= 50; ++tid) {
        expected += heading(100, tid) + line(tid, 1, fnc(22)) + (tid == 1 ? line(53, 1, fnc(23)) : "") +
                    closing(tid == 1 ? 2 : 1, 100, tid);
    }
    d.expect({"flw", d.save(img)}, expected);
    // With the range behind thread 1's first record, thread 51 gets a place.
    RunResult r = d.run({"flw", "-x", "2-", "-p", "100", d.save(img)});
    EXPECT_NE(r.out.find(heading(100, 51) + line(51, 1, fnc(22)) + line(52, 1, fnc(23)) + closing(2, 100, 51)),
              std::string::npos);
}

TEST(CmdFlw, DeepNestingOverflowsTheStackAndTheLine)
{
    ReportDir d;
    // More open entries than the stack holds: depths go on growing, and the
    // exit of an entry that found no place is not found.
    TraceImage img = traceImageNew(1 << 20);
    auto nth = [](int i, uint8_t event) {
        TraceRecordFields f = fl(event, static_cast<uint8_t>(i % 200));
        f.klass = static_cast<uint8_t>(1 + i / 200);
        return f;
    };
    for (int i = 0; i < 1026; ++i) {
        traceImageAdd(img, nth(i, 22));
    }
    traceImageAdd(img, nth(1025, 23));  // 1027: not stored, not found
    traceImageAdd(img, nth(1023, 23));  // 1028: found at the top
    traceImageAdd(img, fl(22, 7));      // 1029
    const std::string where = "Core ? ::? ";
    d.expect({"flw", "-x", "1026-", d.save(img)}, summary(false, false, 1027 * 44 + 2 * 48, 1029) + heading(100, 1) +
                                                      line(1026, 1026, "api_entry    " + where + " ...\n") +
                                                      line(1027, 1026, "api_exit     " + where + " -> 0\n") +
                                                      line(1028, 1026, "api_exit     " + where + " -> 0\n") +
                                                      line(1029, 1026, "api_entry    Core Reader::?  ...\n") +
                                                      closing(4, 100, 1));

    // An indent beyond the line buffer of 131072 bytes is cut; the text stays
    // whole. The size counts the fillers at the segment ends.
    TraceImage deep = traceImageNew(4 << 20);
    for (int i = 0; i < 70000; ++i) {
        traceImageAdd(deep, fl(22));
    }
    d.expect({"flw", "-x", "69999-", d.save(deep), d.dir.file("out.txt")},
             summary(false, false, 3080932, 70000) + closing(2, 100, 1));
    const std::string out = readFile(d.dir.file("out.txt")), text = fnc(22), head = heading(100, 1);
    const size_t second = out.find(" 70000 70000|");
    ASSERT_EQ(out.substr(0, head.size() + 13), head + " 69999 69999|");
    ASSERT_NE(second, std::string::npos);
    for (const std::string& l : {out.substr(head.size(), second - head.size()), out.substr(second)}) {
        EXPECT_LT(l.size(), 131072u);
        EXPECT_GT(l.size(), 100000u);
        EXPECT_EQ(l.find_first_not_of(' ', 13), l.size() - text.size());
        EXPECT_EQ(l.substr(l.size() - text.size()), text);
    }
}

TEST(CmdFlwLive, ThreadsOfARealTrace)
{
    kelvotest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(kelvotest::turnOn(kelvotest::OnArgs{}), 0);
    const int pid = getpid(), mainTid = static_cast<int>(syscall(SYS_gettid));
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 0, nullptr, "x", 1), 0);
    int otherTid = 0;
    std::thread([&] {
        otherTid = static_cast<int>(syscall(SYS_gettid));
        trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 2, 0, nullptr, nullptr, 0);
        trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 2, 0, nullptr, 0);
    }).join();
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 0, nullptr, "%s", "inside"), 0);
    ASSERT_EQ(trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, 0), 0);
    RunResult live = d.run({"flw"});
    EXPECT_EQ(live.out, summary(false, false, 48 + 44 + 48 + 52 + 48, 5) + heading(pid, mainTid) + line(1, 1, fnc(22)) +
                            line(4, 1, fnc(24)) + line(5, 1, fnc(23)) + closing(3, pid, mainTid) +
                            heading(pid, otherTid) + line(2, 1, fnc(22, 2)) + line(3, 1, fnc(23, 2)) +
                            closing(2, pid, otherTid));
    ASSERT_EQ(d.run({"dmp", d.dir.file("dump.bin")}).status, 0);
    EXPECT_EQ(d.run({"flw", d.dir.file("dump.bin")}).out, live.out);
}
