// `kelvo fmt`: command line, summary, range, selection, destination, broken
// or wrapped areas, and the live trace.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "libtest.h"
#include "report_support.h"
#include "trc.h"

using namespace kelvotest;

namespace {

// Text records of Reader::open under these numbers, of process number + shift.
std::string recordsOf(const std::vector<int>& numbers, int shift = 0)
{
    std::string text;
    for (int n : numbers) {
        text += "\n";
        text += std::to_string(n) + "\tcei_new      Alpha Core Reader::open (1.30.1.1.1.1)\n\tpid " +
                std::to_string(n + shift) + "; tid 1\n";
    }
    return text;
}

// Text records of processes 1..count, without data.
TraceImage processes(uint32_t count, int32_t size = 4096, uint32_t flags = 0, const std::string& data = {})
{
    TraceImage img = traceImageNew(size, flags);
    for (uint32_t pid = 1; pid <= count; ++pid) {
        TraceRecordFields f = rec(30, 1, 1, pid);
        f.data = data;
        traceImageAdd(img, f);
    }
    return img;
}

// Run at the exit of a child: whether it still held the trace semaphore
// (releasing works only for its holder).
void reportSemaphore() { std::fputs(trcSemV() == 0 ? "semaphore held\n" : "semaphore free\n", stderr); }

// mainF as `kelvo <words...>` calls it, in a child; a given output replaces
// the captured standard output.
RunResult runMainF(const ReportDir& d, std::vector<std::string> words, int usage, const std::string& output = {})
{
    return captureChild([&] {
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
        trcCommandInfo_t info{usage};
        std::exit(mainF(static_cast<int>(words.size()), args.data(), usage, &info));
    });
}

}  // namespace

TEST(CmdFmt, CommandLineAndDestination)
{
    ReportDir d;
    const std::vector<std::pair<std::vector<std::string>, int>> failures = {
        {{"fmt", "-x"}, 101},          {{"fmt", "a", "-m"}, 101},    {{"fmt", "-x", "abc"}, 111},
        {{"FMT", "-X", "A"}, 111},     {{"fmt", "-x", "a-5"}, 112},  {{"fmt", "-x", "1-b"}, 113},
        {{"fmt", "-x", "1-2-3"}, 113}, {{"fmt", "-p", "12.5"}, 108}, {{"fmt", "-this", "1"}, 102},
        {{"fmt", "a", "b", "c"}, 100}, {{"fmt", "-m", "zz"}, 103},
    };
    for (const auto& [args, message] : failures) {
        d.expect(args, usageWith(message, 5), 1);
    }
    d.expect({"fmt", "help"}, std::string(trcMsgGet(5)) + "\n", 1);
    // Anywhere else "help" is a file name; the source is loaded before the
    // destination is made.
    d.expect({"fmt", "help", "out.txt"}, "Could not open help in read mode.\n", 1);
    EXPECT_FALSE(std::ifstream(d.dir.file("out.txt")).good());
    // An existing destination is refused before the trace is touched.
    const std::string source = d.save(processes(5)), dest = d.dir.write("out.txt", "keep me");
    d.expect({"fmt", source, dest}, usageWith(119, 5), 1);
    d.expect({"fmt", "-", dest}, usageWith(119, 5), 1);
    EXPECT_EQ(readFile(dest), "keep me");
    d.expect({"fmt", source, d.dir.file("no/dir")}, "Could not create " + d.dir.file("no/dir") + ".\n", 1);
}

// The destination of either report is created, never found: a symbolic
// link that leads nowhere is refused and nothing is created where it leads.
TEST(CmdFmt, ADestinationThatIsALinkIsLeftAsItIs)
{
    ReportDir d;
    const std::string source = d.save(processes(5)), dest = d.dir.file("out.txt"), victim = d.dir.file("victim");
    ASSERT_EQ(symlink(victim.c_str(), dest.c_str()), 0);
    for (const std::string command : {"fmt", "flw"}) {
        d.expect({command, source, dest}, "Could not create " + dest + ".\n", 1);
        EXPECT_FALSE(std::ifstream(victim).good());
    }
}

TEST(CmdFmt, WholeReportOnStandardOutputIntoAFileAndJoined)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536);
    TraceRecordFields text = rec(24, 1, 7), exit = rec(23);
    text.data = "hello\nworld", text.sec = 12, text.nsec = 34, exit.rc = -2;
    for (const TraceRecordFields& f : {rec(22), text, exit, rec(22, 1, 1, 100, 2)}) {
        traceImageAdd(img, f);
    }
    const std::string source = d.save(img), head = summary(false, false, 192, 4);
    auto records = [](const std::string& sep) {
        return "\n1\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1)" + sep +
               "pid 100; tid 1\n"
               "\n2\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.1)" +
               sep +
               "pid 100; tid 7; sec 12; nsec 34\n"
               "\thello\n\tworld\n\n3\tapi_exit     Alpha Core Reader::open (1.23.1.1.1.1)" +
               sep +
               "pid 100; tid 1\n"
               "\trc = -2 = 0xfffffffe\n"
               "\n4\tapi_entry    Beta Net Sock::send (2.22.1.1.1.1)" +
               sep + "pid 100; tid 1\n";
    };
    d.expect({"fmt", source}, head + records("\n\t") + formatted(4));
    d.expect({"format", source, d.dir.file("out.txt")}, head + formatted(4));
    EXPECT_EQ(readFile(d.dir.file("out.txt")), records("\n\t"));
    d.expect({"fmt", "-j", source}, head + records("; ") + formatted(4));
}

TEST(CmdFmt, RangeAndReverseOrderKeepTheNumbers)
{
    ReportDir d;
    const std::string source = d.save(processes(5));
    const std::vector<std::pair<std::vector<std::string>, std::vector<int>>> cases = {
        {{"-x", "3-9"}, {3, 4, 5}},
        {{"-x", "0-2"}, {1, 2}},
        {{"-x", "3-"}, {3, 4, 5}},
        {{"-x", "-2"}, {1, 2}},
        {{"-x", ""}, {1, 2, 3, 4, 5}},
        {{"-x", "4"}, {4}},
        {{"-x", "7"}, {}},
        {{"-x", "4-2"}, {}},
        {{"-x", "2-4", "-r"}, {4, 3, 2}},
        {{"-r"}, {5, 4, 3, 2, 1}},
        // A later -x changes only the numbers that it gives.
        {{"-x", "2-4", "-x", "-3"}, {2, 3}},
        {{"-x", "2-4", "-x", "3-"}, {3, 4}},
        {{"-x", "99999999999999999999-"}, {}},
        {{"-x", "-99999999999999999999"}, {1, 2, 3, 4, 5}},
    };
    for (auto [args, shown] : cases) {
        args.insert(args.begin(), "fmt");
        args.push_back(source);
        d.expect(args, summary(false, false, 220, 5) + recordsOf(shown) + formatted(static_cast<long>(shown.size())));
    }
}

TEST(CmdFmt, MaskAndProcessSelectWithoutRenumbering)
{
    ReportDir d;
    TraceImage img = traceImageNew(4096);
    for (int i = 0; i < 6; ++i) {
        traceImageAdd(img, rec(22, 1, 1, i % 3 == 2 ? 16 : 100, i % 2 == 0 ? 1 : 2));
    }
    const std::string source = d.save(img), head = summary(false, false, 264, 6);
    auto entry = [](int n, int pid) {
        return "\n" + std::to_string(n) +
               (n % 2 ? "\tapi_entry    Alpha Core Reader::open (1.22" : "\tapi_entry    Beta Net Sock::send (2.22") +
               ".1.1.1.1)\n\tpid " + std::to_string(pid) + "; tid 1\n";
    };
    d.expect({"fmt", "-m", "1", source}, head + entry(1, 100) + entry(3, 16) + entry(5, 100) + formatted(3));
    d.expect({"fmt", "-p", "0x10", source}, head + entry(3, 16) + entry(6, 16) + formatted(2));
    d.expect({"fmt", "-p", "100", "-m", "2", "-r", source}, head + entry(4, 100) + entry(2, 100) + formatted(2));
}

TEST(CmdFmt, EmptyWrappedTruncatedAndBrokenAreas)
{
    ReportDir d;
    d.expect({"fmt", d.save(traceImageNew(4096))}, summary(false, false, 0, 0) + formatted(0));
    // 256 bytes that wrapped: processes 3 to 7 survive; the filler has no number.
    d.expect({"fmt", d.save(processes(7, 256))},
             summary(false, true, 248, 5) + recordsOf({1, 2, 3, 4, 5}, 2) + formatted(5));
    // Keep-initial: full when the sixth record did not fit.
    d.expect({"fmt", d.save(processes(6, 256, TRC_KEEP_INITIAL))},
             summary(true, true, 220, 5) + recordsOf({1, 2, 3, 4, 5}) + formatted(5));
    d.expect({"fmt", d.save(processes(1, 256, TRC_KEEP_INITIAL))},
             summary(true, false, 44, 1) + recordsOf({1}) + formatted(1));
    // A length of 0 before the end mark: message 421 between the summary
    // lines, and the report goes on with what was found.
    TraceImage broken = processes(7, 256);
    traceImagePoke32(broken, 140, 0);
    d.expect({"fmt", d.save(broken)}, "Trace wrapped           : yes\nSize of trace           : 248 bytes\n"
                                      "Dump file contains corrupt trace records (ignored).\n"
                                      "Trace information might be invalid, retry to capture trace information.\n"
                                      "Records in trace        : 2\n" +
                                          recordsOf({1, 2}, 2) + formatted(2));
    // Data of line ends only: each takes a tab, so the text is twice the data.
    // Each record but the last fills a segment of 64 KiB with its filler.
    d.expect({"fmt", "-x", "2", d.save(processes(3, 1 << 20, 0, std::string(65000, '\n'))), d.dir.file("out.txt")},
             summary(false, false, 2 * 65536 + 65036, 3) + formatted(1));
    std::string body = recordsOf({2}) + "\t";
    for (int i = 1; i < 65000; ++i) {
        body += "\n\t";
    }
    EXPECT_EQ(readFile(d.dir.file("out.txt")), body + "\n");
}

TEST(CmdFmtLive, TheLiveTraceItsDumpAndTheSemaphore)
{
    kelvotest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(kelvotest::turnOn(kelvotest::OnArgs{}), 0);
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 1, nullptr, nullptr, 0), 0);
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 2, nullptr, "n=%d", 5), 0);
    ASSERT_EQ(trcWriteRc(2, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, -1), 0);
    // Every record carries the time it was written: read it back.
    kelvotest::TempDir stamps;
    const kelvotest::Walked written = kelvotest::dumpAndWalk(stamps);
    ASSERT_EQ(written.records.size(), 3u);
    auto ids = [&](int i) {
        const trcRecord_t& r = written.records[static_cast<size_t>(i)].head;
        return "\n\tpid " + std::to_string(getpid()) + "; tid " + std::to_string(syscall(SYS_gettid)) + "; sec " +
               std::to_string(r.sec) + "; nsec " + std::to_string(r.nsec);
    };
    const std::string head = summary(false, false, 140, 3),
                      body = "\n1\tapi_entry    Alpha Core Reader::open (1.22.1.1.1.1)" + ids(0) +
                             "\n\n2\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.2)" + ids(1) +
                             "\n\tn=5\n\n3\tapi_exit     Beta Net Sock::send (2.23.1.1.1.0)" + ids(2) +
                             "\n\trc = -1 = 0xffffffff\n";
    ASSERT_EQ(d.run({"dmp", d.dir.file("dump.bin")}).status, 0);
    for (const std::string& source : {std::string("-"), d.dir.file("dump.bin")}) {
        d.expect({"fmt", source}, head + body + formatted(3));
    }
    d.expect({"fmt"}, head + body + formatted(3));
    // "-" twice: the live trace into a file named "-".
    d.expect({"fmt", "-", "-"}, head + formatted(3));
    EXPECT_EQ(readFile(d.dir.file("-")), body);

    // The semaphore: the check itself sees a child that ends holding it.
    EXPECT_EQ(captureChild([] { std::atexit(reportSemaphore), trcSemP(), std::exit(0); }).err, "semaphore held\n");
    for (int i = 4; i <= 2000; ++i) {
        ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 1, nullptr, "record %d", i), 0);
    }
    RunResult done = runMainF(d, {"fmt", "-x", "2000"}, 5);
    EXPECT_NE(done.out.find("\n2000\tapi_printf   Alpha Core Reader::open (1.24.1.1.1.1)\n"), std::string::npos);
    // A report that cannot be written (message 403) releases it first.
    for (RunResult r : {done, runMainF(d, {"flw", "-x", "5-9"}, 4), runMainF(d, {"fmt"}, 5, "/dev/full"),
                        runMainF(d, {"flw"}, 4, "/dev/full")}) {
        EXPECT_EQ(r.err, "semaphore free\n");
        EXPECT_EQ(r.status, r.out.empty() ? 1 : 0) << r.out.size();
    }
    // The dictionary is built before the semaphore is taken.
    d.dir.write("c.tfi", "");
    RunResult noDictionary = runMainF(d, {"fmt"}, 5);
    EXPECT_EQ(noDictionary.out, "Could not read the translation info.\n");
    EXPECT_TRUE(noDictionary.err.ends_with("semaphore free\n")) << noDictionary.err;
    EXPECT_EQ(noDictionary.status, 1);
}
