// `kelvo fmt`: the command line, the summary lines, the range, the mask and
// process selection, the destination, and broken or wrapped record areas.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

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

std::string usageWith(int message)
{
    return std::string(trcMsgGet(message)) + "\n\n" + trcMsgGet(5) + "\n";
}

// A text record of Alpha Core Reader::open whose process tells it apart.
TraceRecordFields numbered(uint32_t pid, const std::string& text = {})
{
    TraceRecordFields f = rec(30, 1, 1, pid);
    f.data = text;
    return f;
}

// The text of numbered(pid) under record number n.
std::string numberedText(int n, uint32_t pid)
{
    return "\n" + std::to_string(n) + "\tcei_new      Alpha Core Reader::open (1.30.1.1.1.1)\n\tpid " +
           std::to_string(pid) + "; tid 1\n";
}

// Five records without data, processes 1 to 5: 220 bytes behind the marker.
TraceImage fiveRecords()
{
    TraceImage img = traceImageNew(4096);
    for (uint32_t pid = 1; pid <= 5; ++pid) {
        traceImageAdd(img, numbered(pid));
    }
    return img;
}

std::string recordsOf(const std::vector<int>& numbers)
{
    std::string text;
    for (int n : numbers) {
        text += numberedText(n, static_cast<uint32_t>(n));
    }
    return text;
}

// A buffer of 256 bytes that has wrapped: records of processes 3 to 7
// survive; the record of process 2, whose start lies just behind the end
// mark, is given up; a filler closes the area behind process 5.
TraceImage wrappedImage()
{
    TraceImage img = traceImageNew(256);
    for (uint32_t pid = 1; pid <= 7; ++pid) {
        traceImageAdd(img, numbered(pid));
    }
    return img;
}

}  // namespace

TEST(CmdFmt, CommandLineFailuresShowTheUsage)
{
    ReportDir d;
    struct Case {
        std::vector<std::string> args;
        int message;
    };
    const std::vector<Case> cases = {
        {{"fmt", "-x"}, 101},         {{"fmt", "-p"}, 101},          {{"fmt", "a", "-m"}, 101},
        {{"fmt", "-x", "abc"}, 111},  {{"fmt", "-x", "1a"}, 111},    {{"fmt", "-x", "a-5"}, 112},
        {{"fmt", "-x", "1a-"}, 112},  {{"fmt", "-x", "1-b"}, 113},   {{"fmt", "-x", "1-2-3"}, 113},
        {{"fmt", "-x", "--"}, 113},   {{"fmt", "-p", "12.5"}, 108},  {{"fmt", "-p", "x"}, 108},
        {{"fmt", "-d", "tfi"}, 102},  {{"fmt", "-this", "1"}, 102},  {{"fmt", "a", "b", "c"}, 100},
        {{"fmt", "-m", "zz"}, 103},   {{"format", "-q"}, 102},       {{"FMT", "-X", "A"}, 111},
    };
    for (const Case& c : cases) {
        RunResult r = d.run(c.args);
        EXPECT_EQ(r.out, usageWith(c.message)) << c.args.back();
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 1);
    }
    RunResult help = d.run({"fmt", "help"});
    EXPECT_EQ(help.out, std::string(trcMsgGet(5)) + "\n");
    EXPECT_EQ(help.status, 1);
    // Anywhere else "help" is the name of a file.
    RunResult file = d.run({"fmt", "help", "out.txt"});
    EXPECT_EQ(file.out, "Could not open help in read mode.\n");
    EXPECT_EQ(file.status, 1);
    // The source is loaded before the destination is made.
    EXPECT_FALSE(std::ifstream(d.dir.file("out.txt")).good());
}

TEST(CmdFmt, AnExistingDestinationIsRefusedAndKept)
{
    ReportDir d;
    const std::string source = d.save(fiveRecords());
    const std::string dest = d.dir.write("out.txt", "keep me");
    RunResult r = d.run({"fmt", source, dest});
    EXPECT_EQ(r.out, usageWith(119));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(kelvotest::readFile(dest), "keep me");
    // Checked before the trace is touched: a missing source does not matter.
    r = d.run({"fmt", "-", dest});
    EXPECT_EQ(r.out, usageWith(119));
    // A destination that cannot be created.
    r = d.run({"fmt", source, d.dir.file("no/such/dir")});
    EXPECT_EQ(r.out, "Could not create " + d.dir.file("no/such/dir") + ".\n");
    EXPECT_EQ(r.status, 1);
}

TEST(CmdFmt, WholeReportOnStandardOutputOrIntoAFile)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    traceImageAdd(img, rec(22));
    TraceRecordFields text = rec(24);
    text.data = "hello\nworld";
    text.tid = 7;
    text.sec = 12;
    text.nsec = 34;
    traceImageAdd(img, text);
    TraceRecordFields exit = rec(23);
    exit.rc = -2;
    traceImageAdd(img, exit);
    traceImageAdd(img, rec(22, 1, 1, 100, 2));
    const std::string source = d.save(img);
    const std::string records =
        "\n1\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1)\n\tpid 100; tid 1\n"
        "\n2\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.1)\n\tpid 100; tid 7; sec 12; nsec 34\n"
        "\thello\n\tworld\n"
        "\n3\tapi_exit     Alpha Core Reader::open (1.23.1.1.1.1)\n\tpid 100; tid 1\n\trc = -2 = 0xfffffffe\n"
        "\n4\tapi_entry    Beta Net Sock::send (2.22.1.1.1.1)\n\tpid 100; tid 1\n";
    const std::string head = summary(false, false, 192, 4);

    RunResult r = d.run({"fmt", source});
    EXPECT_EQ(r.out, head + records + formatted(4));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);

    r = d.run({"format", source, d.dir.file("out.txt")});
    EXPECT_EQ(r.out, head + formatted(4));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(kelvotest::readFile(d.dir.file("out.txt")), records);

    // -j joins title and process line, nothing else.
    r = d.run({"fmt", "-j", source});
    EXPECT_EQ(r.out,
              head +
                  "\n1\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1); pid 100; tid 1\n"
                  "\n2\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.1); pid 100; tid 7; sec 12; nsec 34\n"
                  "\thello\n\tworld\n"
                  "\n3\tapi_exit     Alpha Core Reader::open (1.23.1.1.1.1); pid 100; tid 1\n\trc = -2 = 0xfffffffe\n"
                  "\n4\tapi_entry    Beta Net Sock::send (2.22.1.1.1.1); pid 100; tid 1\n" +
                  formatted(4));
}

TEST(CmdFmt, RangeAndReverseOrderKeepTheNumbers)
{
    ReportDir d;
    const std::string source = d.save(fiveRecords());
    const std::string head = summary(false, false, 220, 5);
    struct Case {
        std::vector<std::string> options;
        std::vector<int> shown;
    };
    const std::vector<Case> cases = {
        {{"-x", "3-9"}, {3, 4, 5}},
        {{"-x", "0-2"}, {1, 2}},
        {{"-x", "3-"}, {3, 4, 5}},
        {{"-x", "-2"}, {1, 2}},
        {{"-x", "-"}, {1, 2, 3, 4, 5}},
        {{"-x", ""}, {1, 2, 3, 4, 5}},
        {{"-x", "4"}, {4}},
        {{"-x", "004"}, {4}},
        {{"-x", "2-4", "-r"}, {4, 3, 2}},
        {{"-r"}, {5, 4, 3, 2, 1}},
        // A later -x changes only the numbers that it gives.
        {{"-x", "2-4", "-x", "-3"}, {2, 3}},
        {{"-x", "2-4", "-x", "3-"}, {3, 4}},
        {{"-x", "99999999999999999999-"}, {}},
        {{"-x", "-99999999999999999999"}, {1, 2, 3, 4, 5}},
        {{"-x", "7"}, {}},
        {{"-x", "4-2"}, {}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"fmt"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        args.push_back(source);
        RunResult r = d.run(args);
        EXPECT_EQ(r.out, head + recordsOf(c.shown) + formatted(static_cast<long>(c.shown.size())))
            << c.options[0] << " " << c.options.back();
        EXPECT_EQ(r.status, 0);
    }
}

TEST(CmdFmt, MaskAndProcessSelectWithoutRenumbering)
{
    ReportDir d;
    TraceImage img = traceImageNew(4096);
    for (int i = 0; i < 6; ++i) {
        traceImageAdd(img, rec(22, 1, 1, i % 3 == 2 ? 16 : 100, i % 2 == 0 ? 1 : 2));
    }
    const std::string source = d.save(img);
    const std::string head = summary(false, false, 264, 6);
    auto alpha = [](int n, int pid) {
        return "\n" + std::to_string(n) + "\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1)\n\tpid " +
               std::to_string(pid) + "; tid 1\n";
    };
    auto beta = [](int n, int pid) {
        return "\n" + std::to_string(n) + "\tapi_entry    Beta Net Sock::send (2.22.1.1.1.1)\n\tpid " +
               std::to_string(pid) + "; tid 1\n";
    };
    RunResult r = d.run({"fmt", "-m", "1", source});
    EXPECT_EQ(r.out, head + alpha(1, 100) + alpha(3, 16) + alpha(5, 100) + formatted(3));
    r = d.run({"fmt", "-p", "0x10", source});
    EXPECT_EQ(r.out, head + alpha(3, 16) + beta(6, 16) + formatted(2));
    r = d.run({"fmt", "-p", "100", "-m", "2", "-r", source});
    EXPECT_EQ(r.out, head + beta(4, 100) + beta(2, 100) + formatted(2));
    // A mask that leaves event 22 out selects nothing.
    r = d.run({"fmt", "-m", "*.23", source});
    EXPECT_EQ(r.out, head + formatted(0));
    r = d.run({"fmt", "-p", "300", source});
    EXPECT_EQ(r.out, head + formatted(0));
    EXPECT_EQ(r.status, 0);
}

TEST(CmdFmt, EmptyWrappedTruncatedAndBrokenAreas)
{
    ReportDir d;
    RunResult r = d.run({"fmt", d.save(traceImageNew(4096))});
    EXPECT_EQ(r.out, summary(false, false, 0, 0) + formatted(0));
    EXPECT_EQ(r.status, 0);

    // Wrapped: the filler gets no number, the oldest survivor is record 1.
    TraceImage wrapped = wrappedImage();
    r = d.run({"fmt", d.save(wrapped)});
    EXPECT_EQ(r.out, summary(false, true, 248, 5) + numberedText(1, 3) + numberedText(2, 4) + numberedText(3, 5) +
                         numberedText(4, 6) + numberedText(5, 7) + formatted(5));

    // Keep-initial: the sixth record did not fit and the trace is full.
    TraceImage initial = traceImageNew(256, TRC_KEEP_INITIAL);
    for (uint32_t pid = 1; pid <= 6; ++pid) {
        traceImageAdd(initial, numbered(pid));
    }
    r = d.run({"fmt", d.save(initial)});
    EXPECT_EQ(r.out, summary(true, true, 220, 5) + recordsOf({1, 2, 3, 4, 5}) + formatted(5));
    TraceImage notFull = traceImageNew(256, TRC_KEEP_INITIAL);
    traceImageAdd(notFull, numbered(1));
    r = d.run({"fmt", d.save(notFull)});
    EXPECT_EQ(r.out, summary(true, false, 44, 1) + recordsOf({1}) + formatted(1));

    // A length of 0 before the end mark: message 421, and the report goes
    // on with what was found, the broken record included.
    TraceImage broken = wrappedImage();
    kelvotest::traceImagePoke32(broken, 140, 0);
    r = d.run({"fmt", d.save(broken)});
    EXPECT_EQ(r.out, "Trace wrapped           : yes\nSize of trace           : 248 bytes\n"
                     "Dump file contains corrupt trace records (ignored).\n"
                     "Trace information might be invalid, retry to capture trace information.\n"
                     "Records in trace        : 2\n" +
                         numberedText(1, 3) +
                         "\n2\tcei_new      Alpha Core Reader::open (1.30.1.1.1.1)\n\tpid 4; tid 1\n" + formatted(2));
    EXPECT_EQ(r.status, 0);
}

TEST(CmdFmt, ADataOfLineEndsEachTakesATab)
{
    ReportDir d;
    // One record of nearly a whole segment whose data is all line ends: each
    // takes a tab behind it, so the text would be twice the data.
    TraceImage img = traceImageNew(1 << 20);
    for (int i = 0; i < 5; ++i) {
        traceImageAdd(img, numbered(1, std::string(65000, '\n')));
    }
    const std::string source = d.save(img);
    RunResult r = d.run({"fmt", "-x", "2", source, d.dir.file("out.txt")});
    EXPECT_EQ(r.status, 0);
    const std::string out = kelvotest::readFile(d.dir.file("out.txt"));
    const std::string title = "\n2\tcei_new      Alpha Core Reader::open (1.30.1.1.1.1)\n\tpid 1; tid 1\n\t";
    ASSERT_EQ(out.size(), title.size() + 65000 * 2 - 1);
    EXPECT_EQ(out.substr(0, title.size()), title);
    EXPECT_EQ(out.back(), '\n');
}

// ---- The live trace --------------------------------------------------------

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "kelvo/facility.h"
#include "kelvo/trace.h"
#include "../lib/libtest.h"
#include "trc.h"

namespace {

// Run at the exit of a child: whether the child still held the trace
// semaphore. Releasing works only for its holder.
void reportSemaphore()
{
    std::fputs(trcSemV() == 0 ? "semaphore held\n" : "semaphore free\n", stderr);
}

// mainF as `kelvo <word> <words...>` would call it, in a child whose
// standard output goes to output ("" keeps the captured one).
kelvotest::RunResult runMainF(const ReportDir& d, std::vector<std::string> words, int usageMessage,
                              const std::string& output = {})
{
    return kelvotest::captureChild([&] {
        setenv("TRCTFIDIR", d.dir.path().c_str(), 1);
        std::atexit(reportSemaphore);
        if (!output.empty() && std::freopen(output.c_str(), "w", stdout) == nullptr) {
            std::abort();
        }
        std::vector<char*> args;
        for (std::string& w : words) {
            args.push_back(w.data());
        }
        args.push_back(nullptr);
        trcCommandInfo_t info{usageMessage};
        std::exit(mainF(static_cast<int>(words.size()), args.data(), usageMessage, &info));
    });
}

}  // namespace

TEST(CmdFmtLive, TheLiveTraceAndItsDumpGiveTheSameReport)
{
    libtest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(libtest::turnOn(libtest::OnArgs{}), 0);
    ASSERT_EQ(trcIsOn(), 1);
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 1, nullptr, nullptr, 0), 0);
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 2, nullptr, "n=%d", 5), 0);
    ASSERT_EQ(trcWriteRc(2, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, -1), 0);

    RunResult live = d.run({"fmt"});
    RunResult dash = d.run({"fmt", "-"});
    RunResult dump = d.run({"dmp", d.dir.file("dump.bin")});
    ASSERT_EQ(dump.status, 0) << dump.out;
    RunResult file = d.run({"fmt", d.dir.file("dump.bin")});
    const std::string ids = "pid " + std::to_string(getpid()) + "; tid " + std::to_string(syscall(SYS_gettid));
    EXPECT_EQ(file.out, summary(false, false, 44 + 48 + 48, 3) +
                            "\n1\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1)\n\t" + ids + "\n" +
                            "\n2\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.2)\n\t" + ids + "\n\tn=5\n" +
                            "\n3\tapi_exit     Beta Net Sock::send (2.23.1.1.1.0)\n\t" + ids +
                            "\n\trc = -1 = 0xffffffff\n" + formatted(3));
    EXPECT_EQ(live.out, file.out);
    EXPECT_EQ(dash.out, file.out);
    EXPECT_EQ(live.status, 0);

    // "-" twice: the live trace into a file named "-".
    RunResult intoDash = d.run({"fmt", "-", "-"});
    EXPECT_EQ(intoDash.out, summary(false, false, 140, 3) + formatted(3));
    EXPECT_EQ(kelvotest::readFile(d.dir.file("-")), file.out.substr(summary(false, false, 140, 3).size(),
                                                                    file.out.size() - summary(false, false, 140, 3).size() -
                                                                        formatted(3).size()));
}

TEST(CmdFmtLive, TheSemaphoreIsFreeAfterReportsAndFailures)
{
    libtest::Instance instance;
    ReportDir d;
    ASSERT_EQ(libtest::turnOn(libtest::OnArgs{}), 0);
    ASSERT_EQ(trcIsOn(), 1);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 1, nullptr, "record %d", i), 0);
    }
    // The check itself: a child that ends holding the semaphore says so.
    RunResult holder = kelvotest::captureChild([] {
        std::atexit(reportSemaphore);
        trcSemP();
        std::exit(0);
    });
    EXPECT_EQ(holder.err, "semaphore held\n");

    RunResult done = runMainF(d, {"fmt", "-x", "2000"}, 5);
    EXPECT_EQ(done.err, "semaphore free\n");
    EXPECT_EQ(done.status, 0);
    EXPECT_NE(done.out.find("\n2000\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.1)\n"), std::string::npos);
    RunResult flow = runMainF(d, {"flw", "-x", "5-9"}, 4);
    EXPECT_EQ(flow.err, "semaphore free\n");
    EXPECT_EQ(flow.status, 0);

    // A report that cannot be written ends with message 403 after the
    // semaphore is released.
    for (int usageMessage : {5, 4}) {
        RunResult full = runMainF(d, {"fmt"}, usageMessage, "/dev/full");
        EXPECT_EQ(full.err, "semaphore free\n") << usageMessage;
        EXPECT_EQ(full.status, 1);
    }
    // The dictionary is built before the semaphore is taken.
    d.dir.write("c.tfi", "");
    RunResult noDictionary = runMainF(d, {"fmt"}, 5);
    EXPECT_EQ(noDictionary.out, "Could not read the translation info.\n");
    const std::string tail = "semaphore free\n";
    ASSERT_GE(noDictionary.err.size(), tail.size());
    EXPECT_EQ(noDictionary.err.substr(noDictionary.err.size() - tail.size()), tail);
    EXPECT_EQ(noDictionary.status, 1);
}
