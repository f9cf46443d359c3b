// `kelvo flw`: depths rebuilt from entries, exits and the other events, the
// thread table and its headings, selection, and the closing lines.
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "../lib/libtest.h"
#include "kelvo/trace.h"
#include "report_support.h"
#include "trcmsg.h"

using kelvotest::RunResult;
using kelvotest::TraceImage;
using kelvotest::TraceRecordFields;
using kelvotest::traceImageAdd;
using kelvotest::traceImageNew;
using reporttest::formatted;
using reporttest::rec;
using reporttest::ReportDir;
using reporttest::summary;

namespace {

// A record of Alpha Core Reader with trace point 0, so that the flow line
// has no trace point bracket. Function 1 is open, 2 close.
TraceRecordFields fl(uint8_t event, uint8_t function = 1, uint32_t tid = 1, uint32_t pid = 100)
{
    TraceRecordFields f = rec(event, function, tid, pid);
    f.tracePoint = 0;
    return f;
}

std::string fnName(uint8_t function)
{
    return function == 1 ? "open" : function == 2 ? "close" : "? ";
}

// The flow text of fl(event, function).
std::string fnc(uint8_t event, uint8_t function = 1)
{
    const std::string where = "Core Reader::" + fnName(function);
    switch (event) {
    case 10: return "API_ERRCODE      " + where + " -> 0\n";
    case 20: return "api_new      " + where + " ...\n";
    case 22: return "api_entry    " + where + " ...\n";
    case 23: return "api_exit     " + where + " -> 0\n";
    case 24: return "api_printf   " + where + " ...\n";
    case 100: return "prf_entry    " + where + " ...\n";
    default: return "?? " + where + "\n";
    }
}

// "%6ld %2d|", two blanks for each level above 1, the text.
std::string line(long number, long depth, const std::string& text)
{
    char head[32];
    std::snprintf(head, sizeof head, "%6ld %2ld|", number, depth);
    return head + std::string(depth > 1 ? 2 * (depth - 1) : 0, ' ') + text;
}

std::string heading(int pid, int tid, int node)
{
    return "\n\npid = " + std::to_string(pid) + "; tid = " + std::to_string(tid) + "; node = " + std::to_string(node) +
           ";\n\n";
}

std::string closing(long lines, int pid, int tid, int node)
{
    char text[128];
    std::snprintf(text, sizeof text, "Records formatted       : %-6ld (pid: %d; tid: %d; node: %d)\n", lines, pid, tid,
                  node);
    return text;
}

struct Step {
    uint8_t event;
    uint8_t function;
    long depth;  // expected
};

// Lays the steps out as one thread, runs flw with the options and checks
// every line against the expected depths.
void expectDepths(const std::vector<Step>& steps, const std::vector<std::string>& options = {})
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    std::string lines;
    long number = 0;
    for (const Step& s : steps) {
        traceImageAdd(img, fl(s.event, s.function));
        lines += line(++number, s.depth, fnc(s.event, s.function));
    }
    std::vector<std::string> args = {"flw"};
    args.insert(args.end(), options.begin(), options.end());
    args.push_back(d.save(img));
    RunResult r = d.run(args);
    long size = 0;
    for (const Step& s : steps) {
        size += (s.event == 23 || s.event == 10) ? 48 : 44;
    }
    EXPECT_EQ(r.out, summary(false, false, size, number) + heading(100, 1, -1) + lines + closing(number, 100, 1, -1));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}

}  // namespace

TEST(CmdFlw, EntriesAndExitsNestAndLostRecordsAreTolerated)
{
    const uint8_t A = 1, B = 2, C = 3;
    // A simple pair: B inside A, then A again at the outer level.
    expectDepths({{22, A, 1}, {24, A, 1}, {22, B, 2}, {23, B, 2}, {23, A, 1}, {22, A, 1}});
    // The first record is an exit: no indent, and the next entry is level 1.
    expectDepths({{23, A, 0}, {22, B, 1}, {24, B, 1}});
    // A's exit with B still open: B goes too, and its late exit is not found.
    expectDepths({{22, A, 1}, {22, B, 2}, {23, A, 1}, {23, B, 0}, {22, C, 1}});
    // An error return is the exit; the api_exit behind it finds nothing.
    expectDepths({{22, A, 1}, {22, B, 2}, {10, B, 2}, {23, B, 1}, {23, A, 1}});
    // Recursion pushes the key again; each exit takes the upper one.
    expectDepths({{22, A, 1}, {22, A, 2}, {24, A, 2}, {23, A, 2}, {24, A, 1}, {23, A, 1}});
    // A function entered before the trace shows at its first inside record
    // as if entered there; new and delete never open a level.
    expectDepths({{24, A, 1}, {20, C, 1}, {22, B, 2}, {24, A, 1}, {22, B, 2}, {20, C, 2}, {23, B, 2}});
    // An inside record of A cuts everything above A.
    expectDepths({{22, A, 1}, {22, B, 2}, {22, C, 3}, {24, A, 1}, {23, B, 1}, {23, A, 1}});
    // prf_entry is not an entry but an inside record.
    expectDepths({{100, A, 1}, {100, A, 1}, {23, A, 1}, {100, B, 1}});
}

TEST(CmdFlw, OptionsChooseLinesButNeverDepths)
{
    const uint8_t A = 1, B = 2;
    const std::vector<Step> steps = {{22, A, 1}, {22, B, 2}, {24, B, 2}, {24, B, 2}, {23, B, 2}, {23, A, 1}};
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    for (const Step& s : steps) {
        traceImageAdd(img, fl(s.event, s.function));
    }
    const std::string source = d.save(img);
    const std::string head = summary(false, false, 4 * 44 + 2 * 48, 6) + heading(100, 1, -1);
    auto lineOf = [&](long n) { return line(n, steps[n - 1].depth, fnc(steps[n - 1].event, steps[n - 1].function)); };

    // -m that hides the entries of B leaves what is inside B indented.
    RunResult r = d.run({"flw", "-m", "*.23,24", source});
    EXPECT_EQ(r.out, head + lineOf(3) + lineOf(4) + lineOf(5) + lineOf(6) + closing(4, 100, 1, -1));
    // A range in the middle starts indented.
    r = d.run({"flw", "-x", "3-4", source});
    EXPECT_EQ(r.out, head + "     3  2|  api_printf   Core Reader::close ...\n" + lineOf(4) + closing(2, 100, 1, -1));
    // Newest first, with the same numbers and depths.
    r = d.run({"flw", "-r", "-x", "2-", source});
    EXPECT_EQ(r.out, head + lineOf(6) + lineOf(5) + lineOf(4) + lineOf(3) + lineOf(2) + closing(5, 100, 1, -1));
    // -j has no effect on the flow report.
    r = d.run({"flow", "-j", source});
    EXPECT_EQ(r.out, head + lineOf(1) + lineOf(2) + lineOf(3) + lineOf(4) + lineOf(5) + lineOf(6) +
                         closing(6, 100, 1, -1));
    // A range outside the trace: the zero line and no heading.
    r = d.run({"flw", "-x", "7-", source});
    EXPECT_EQ(r.out, summary(false, false, 4 * 44 + 2 * 48, 6) + formatted(0));
    // Usage texts are those of flw.
    r = d.run({"flw", "-x", "q"});
    EXPECT_EQ(r.out, std::string(trcMsgGet(111)) + "\n\n" + trcMsgGet(4) + "\n");
    EXPECT_EQ(r.status, 1);
    r = d.run({"flw", "help"});
    EXPECT_EQ(r.out, std::string(trcMsgGet(4)) + "\n");
    EXPECT_EQ(r.status, 1);
}

TEST(CmdFlw, ThreadTableHeadingsAndNodes)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    // Thread 2 of process 100 comes first; thread 1 of 200 has its first
    // node only in its second record; thread 3 of 100 has none.
    auto withNode = [](TraceRecordFields f, int32_t node) {
        f.node = node;
        return f;
    };
    traceImageAdd(img, withNode(fl(22, 1, 2, 100), 4));  // 1
    traceImageAdd(img, fl(22, 1, 1, 200));               // 2
    traceImageAdd(img, withNode(fl(22, 2, 1, 200), 9));  // 3
    traceImageAdd(img, fl(22, 1, 3, 100));               // 4
    traceImageAdd(img, withNode(fl(23, 2, 1, 200), 8));  // 5
    traceImageAdd(img, fl(23, 1, 2, 100));               // 6
    const std::string source = d.save(img);
    const std::string head = summary(false, false, 4 * 44 + 2 * 48, 6);
    RunResult r = d.run({"flw", source});
    EXPECT_EQ(r.out, head + heading(100, 2, 4) + line(1, 1, fnc(22)) + line(6, 1, fnc(23)) + closing(2, 100, 2, 4) +
                         heading(200, 1, 9) + line(2, 1, fnc(22)) + line(3, 2, fnc(22, 2)) + line(5, 2, fnc(23, 2)) +
                         closing(3, 200, 1, 9) + heading(100, 3, -1) + line(4, 1, fnc(22)) + closing(1, 100, 3, -1));
    // The heading takes the node from the range, the closing line from the
    // whole trace; the mask hides lines but not headings.
    r = d.run({"flw", "-x", "4-", "-m", "*.24", source});
    EXPECT_EQ(r.out, head + heading(100, 3, -1) + closing(0, 100, 3, -1) + heading(200, 1, 8) + closing(0, 200, 1, 9) +
                         heading(100, 2, -1) + closing(0, 100, 2, 4));
    // -p chooses the threads; a process not in the range shows nothing at all.
    r = d.run({"flw", "-p", "200", source, d.dir.file("out.txt")});
    EXPECT_EQ(r.out, head + closing(3, 200, 1, 9));
    EXPECT_EQ(kelvotest::readFile(d.dir.file("out.txt")),
              heading(200, 1, 9) + line(2, 1, fnc(22)) + line(3, 2, fnc(22, 2)) + line(5, 2, fnc(23, 2)));
    r = d.run({"flw", "-p", "300", source});
    EXPECT_EQ(r.out, head);
    EXPECT_EQ(r.status, 0);
    r = d.run({"flw", "-x", "2-2", "-p", "100", source});
    EXPECT_EQ(r.out, head);
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
    RunResult r = d.run({"flw", d.save(img)});
    std::string expected = summary(false, false, 51 * 44 + 2 * 48, 53);
    for (int tid = 1; tid <= 50; ++tid) {
        expected += heading(100, tid, -1) + line(tid, 1, fnc(22));
        if (tid == 1) {
            expected += line(53, 1, fnc(23));
        }
        expected += closing(tid == 1 ? 2 : 1, 100, tid, -1);
    }
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.status, 0);
    // With the range behind thread 1's first record, thread 51 gets a place.
    r = d.run({"flw", "-x", "2-", "-p", "100", d.save(img, "u.bin")});
    EXPECT_NE(r.out.find(heading(100, 51, -1) + line(51, 1, fnc(22)) + line(52, 1, fnc(23)) + closing(2, 100, 51, -1)),
              std::string::npos);
}

TEST(CmdFlw, EmptyTraceAndDeepNesting)
{
    ReportDir d;
    RunResult r = d.run({"flw", d.save(traceImageNew(4096))});
    EXPECT_EQ(r.out, summary(false, false, 0, 0) + formatted(0));
    EXPECT_EQ(r.status, 0);

    // More open entries than the stack holds: depths go on growing, and the
    // exit of an entry that found no place is not found.
    TraceImage img = traceImageNew(1 << 20);
    for (int i = 0; i < 1026; ++i) {
        TraceRecordFields f = fl(22, static_cast<uint8_t>(i % 200));
        f.klass = static_cast<uint8_t>(1 + i / 200);
        traceImageAdd(img, f);
    }
    TraceRecordFields lastExit = fl(23, static_cast<uint8_t>(1025 % 200));
    lastExit.klass = static_cast<uint8_t>(1 + 1025 / 200);
    traceImageAdd(img, lastExit);  // 1027: not stored, not found
    TraceRecordFields storedExit = fl(23, static_cast<uint8_t>(1023 % 200));
    storedExit.klass = static_cast<uint8_t>(1 + 1023 / 200);
    traceImageAdd(img, storedExit);  // 1028: found at the top
    traceImageAdd(img, fl(22, 7));   // 1029
    r = d.run({"flw", "-x", "1026-", d.save(img)});
    const std::string where = "Core ? ::? ";
    EXPECT_EQ(r.out, summary(false, false, 1027 * 44 + 2 * 48, 1029) + heading(100, 1, -1) +
                         line(1026, 1026, "api_entry    " + where + " ...\n") +
                         line(1027, 1026, "api_exit     " + where + " -> 0\n") +
                         line(1028, 1026, "api_exit     " + where + " -> 0\n") +
                         line(1029, 1026, "api_entry    Core Reader::?  ...\n") +
                         closing(4, 100, 1, -1));
}

TEST(CmdFlw, IndentBeyondTheLineBufferIsCut)
{
    ReportDir d;
    TraceImage img = traceImageNew(4 << 20);
    for (int i = 0; i < 70000; ++i) {
        traceImageAdd(img, fl(22));
    }
    const std::string source = d.save(img);
    RunResult r = d.run({"flw", "-x", "69999-", source, d.dir.file("out.txt")});
    EXPECT_EQ(r.status, 0);
    const std::string out = kelvotest::readFile(d.dir.file("out.txt"));
    const std::string text = "api_entry    Core Reader::open ...\n";
    const std::string first = " 69999 69999|";
    const std::string second = " 70000 70000|";
    // Two lines behind the heading, each within the line buffer of 131072
    // bytes, indent cut, text whole.
    const std::string head = heading(100, 1, -1);
    ASSERT_EQ(out.substr(0, head.size()), head);
    const size_t secondStart = out.find(second);
    ASSERT_NE(secondStart, std::string::npos);
    const std::string line1 = out.substr(head.size(), secondStart - head.size());
    const std::string line2 = out.substr(secondStart);
    for (const std::string& l : {line1, line2}) {
        EXPECT_LT(l.size(), 131072u);
        EXPECT_GT(l.size(), 100000u);
        EXPECT_EQ(l.substr(l.size() - text.size()), text);
        EXPECT_EQ(l.find_first_not_of(' ', 13), l.size() - text.size());
    }
    EXPECT_EQ(line1.substr(0, 13), first);
}

TEST(CmdFlwLive, ThreadsOfARealTrace)
{
    libtest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(libtest::turnOn(libtest::OnArgs{}), 0);
    ASSERT_EQ(trcIsOn(), 1);
    const int pid = getpid();
    const int mainTid = static_cast<int>(syscall(SYS_gettid));
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 0, nullptr, "x", 1), 0);
    int otherTid = 0;
    std::thread other([&] {
        otherTid = static_cast<int>(syscall(SYS_gettid));
        trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 2, 0, nullptr, nullptr, 0);
        trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 2, 0, nullptr, 0);
    });
    other.join();
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 0, nullptr, "%s", "inside"), 0);
    ASSERT_EQ(trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, 0), 0);
    RunResult dump = d.run({"dmp", d.dir.file("dump.bin")});
    ASSERT_EQ(dump.status, 0) << dump.out;
    RunResult live = d.run({"flw"});
    RunResult file = d.run({"flw", d.dir.file("dump.bin")});
    EXPECT_EQ(file.out, summary(false, false, 48 + 44 + 48 + 52 + 48, 5) + heading(pid, mainTid, -1) +
                            line(1, 1, fnc(22)) + line(4, 1, fnc(24)) + line(5, 1, fnc(23)) +
                            closing(3, pid, mainTid, -1) + heading(pid, otherTid, -1) + line(2, 1, fnc(22, 2)) +
                            line(3, 1, fnc(23, 2)) + closing(2, pid, otherTid, -1));
    EXPECT_EQ(live.out, file.out);
}
