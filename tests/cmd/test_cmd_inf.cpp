// `kelvo inf`: the lines of the information report for the settings a
// header can hold, its command line, and the live trace.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "../lib/libtest.h"
#include "kelvo/trace.h"
#include "report_support.h"
#include "trcmsg.h"

using kelvotest::RunResult;
using kelvotest::TraceImage;
using kelvotest::traceImageHeader;
using kelvotest::traceImageNew;
using reporttest::ReportDir;

namespace {

void setText8(char* field, const char* text)
{
    std::memset(field, 0, 8);
    std::memcpy(field, text, std::strlen(text) < 8 ? std::strlen(text) : 8);
}

// A header with every setting away from its default.
TraceImage busyHeader()
{
    TraceImage img = traceImageNew(65536, TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK);
    trcHeader_t* h = traceImageHeader(img);
    setText8(h->traceVersion, "KV 1.0");
    setText8(h->opSystem, "Linux");
    setText8(h->opSysVersion, "6.1");
    std::memcpy(h->hwPlatform, "x86_64ab", 8);  // all 8 bytes used: no zero
    setText8(h->prodVersion[1], "x");
    std::memcpy(h->prodVersion[7], "abcdefgh", 8);
    h->tracePid = 1234;
    h->traceCpid = 55;
    h->thisPointer = 0x1000;
    h->sysErrRc = 22;
    h->maxSevereErrors = 3;
    h->maxRecordSize = 4096;
    h->traceFull = 1;
    h->traceOff = 1;
    return img;
}

const std::string busyTop = "Trace Version           :   KV 1.0\n"
                            "Op. System              :    Linux\n"
                            "Op. Sys. Version        :      6.1\n"
                            "H/W Platform            : x86_64ab\n"
                            "Version prod   1        :        x  (Alpha)\n"
                            "Version prod   7        : abcdefgh  (? )\n"
                            "\n"
                            "Mask                    : *.*.*.*.*.*\n";

// The lines of a header made by traceImageNew with these flags, from the
// process line to the destination.
std::string defaultMiddle(const std::string& destination)
{
    return "pid.tid to trace        : all\n"
           "cpid    to trace        : all\n"
           "this pointer to trace   : all\n"
           "Treat this rc as sys err: none\n"
           "Max severe errors       : infinite\n"
           "Max record size         : 4096 bytes\n"
           "Trace destination       : " +
           destination + "\n";
}

const std::string emptyTop = "Trace Version           :         \n"
                             "Op. System              :         \n"
                             "Op. Sys. Version        :         \n"
                             "H/W Platform            :         \n"
                             "\n"
                             "Mask                    : *.*.*.*.*.*\n";

}  // namespace

TEST(CmdInf, EverySettingOfAHeader)
{
    ReportDir d;
    RunResult r = d.run({"inf", d.save(busyHeader())});
    EXPECT_EQ(r.out, busyTop +
                         "pid.tid to trace        : 1234\n"
                         "cpid    to trace        : 55\n"
                         "this pointer to trace   : 0x1000\n"
                         "Treat this rc as sys err: 22 (0x0016)\n"
                         "Max severe errors       : 3\n"
                         "Max record size         : 4096 bytes\n"
                         "Trace destination       : shared memory\n"
                         "Records to keep         : last\n"
                         "Trace buffer size       : 65536 bytes\n"
                         "TRACE IS FULL\n"
                         "TRACE IS OFF!\n"
                         "Trace data pointer check: no\n");
    EXPECT_EQ(r.status, 0);

    TraceImage thread = busyHeader();
    traceImageHeader(thread)->traceTid = 5;
    traceImageHeader(thread)->sysErrRc = -1;
    r = d.run({"information", d.save(thread)});
    EXPECT_NE(r.out.find("pid.tid to trace        : 1234.5\n"), std::string::npos);
    EXPECT_NE(r.out.find("Treat this rc as sys err: -1 (0xffffffff)\n"), std::string::npos);
}

TEST(CmdInf, DestinationsAndKeepModes)
{
    ReportDir d;
    struct Case {
        uint32_t flags;
        std::string tail;
    };
    const std::vector<Case> cases = {
        // A native trace ends with its destination, shared or not.
        {TRC_DEST_NATIVE | TRC_KEEP_LAST, defaultMiddle("native trace")},
        {TRC_DEST_SHARED | TRC_DEST_NATIVE, defaultMiddle("shared memory")},
        {TRC_DEST_FILE | TRC_KEEP_INITIAL,
         defaultMiddle("file") +
             "File name               : /var/tmp/trace.bin\n"
             "Records to keep         : initial\n"
             "Trace buffer size       : 4096 bytes\n"
             "Trace data pointer check: yes\n"},
        {0,
         defaultMiddle("UNKNOWN!!") +
             "Records to keep         : UNKNOWN!!\n"
             "Trace data pointer check: yes\n"},
        {TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_KEEP_INITIAL,
         defaultMiddle("shared memory") +
             "Records to keep         : last\n"
             "Trace buffer size       : 4096 bytes\n"
             "Trace data pointer check: yes\n"},
    };
    for (const Case& c : cases) {
        TraceImage img = traceImageNew(4096, c.flags);
        std::strcpy(traceImageHeader(img)->fileName, "/var/tmp/trace.bin");
        RunResult r = d.run({"info", d.save(img)});
        EXPECT_EQ(r.out, emptyTop + c.tail) << c.flags;
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
    }
}

TEST(CmdInf, CommandLine)
{
    ReportDir d;
    const std::string source = d.save(traceImageNew(4096));
    const std::string report = emptyTop + defaultMiddle("UNKNOWN!!") +
                               "Records to keep         : UNKNOWN!!\n"
                               "Trace data pointer check: yes\n";
    // An existing destination is replaced.
    const std::string dest = d.dir.write("b.txt", "old text that is longer than nothing");
    RunResult r = d.run({"inf", source, dest});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(kelvotest::readFile(dest), report);

    r = d.run({"inf", "help"});
    EXPECT_EQ(r.out, std::string(trcMsgGet(6)) + "\n");
    EXPECT_EQ(r.status, 1);
    r = d.run({"inf", "a", "b", "c"});
    EXPECT_EQ(r.out, std::string(trcMsgGet(100)) + "\n\n" + trcMsgGet(6) + "\n");
    EXPECT_EQ(r.status, 1);
    // Behind a source "help" is a file name, and so is a word with a "-".
    r = d.run({"inf", source, "help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(kelvotest::readFile(d.dir.file("help")), report);
    r = d.run({"inf", source, "-x"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(kelvotest::readFile(d.dir.file("-x")), report);
    r = d.run({"inf", d.dir.file("missing.bin")});
    EXPECT_EQ(r.out, "Could not open " + d.dir.file("missing.bin") + " in read mode.\n");
    EXPECT_EQ(r.status, 1);
    r = d.run({"inf", source, d.dir.file("no/dir/out.txt")});
    EXPECT_EQ(r.out, "Could not create " + d.dir.file("no/dir/out.txt") + ".\n");
    EXPECT_EQ(r.status, 1);
    // No trace on the machine.
    r = d.run({"inf"});
    EXPECT_EQ(r.out, "Trace is off.\n");
    EXPECT_EQ(r.status, 1);
    // A broken .tfi file.
    d.dir.write("c.tfi", "");
    r = d.run({"inf", source});
    EXPECT_EQ(r.out, "Could not read the translation info.\n");
    EXPECT_EQ(r.status, 1);
}

TEST(CmdInfLive, TheRunningTraceAndItsDump)
{
    libtest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(libtest::turnOn(libtest::OnArgs{}), 0);
    ASSERT_EQ(trcSetProdVersion(2, "y"), 0);
    RunResult live = d.run({"inf"});
    RunResult dump = d.run({"dmp", d.dir.file("dump.bin")});
    ASSERT_EQ(dump.status, 0);
    RunResult file = d.run({"inf", d.dir.file("dump.bin")});
    EXPECT_EQ(live.out, file.out);
    EXPECT_EQ(live.status, 0);
    const std::string tail = "\n"
                             "Mask                    : *.*.*.*.*.*\n"
                             "pid.tid to trace        : all\n"
                             "cpid    to trace        : all\n"
                             "this pointer to trace   : all\n"
                             "Treat this rc as sys err: none\n"
                             "Max severe errors       : infinite\n"
                             "Max record size         : 32768 bytes\n"
                             "Trace destination       : shared memory\n"
                             "Records to keep         : last\n"
                             "Trace buffer size       : 1048576 bytes\n"
                             "Trace data pointer check: no\n";
    ASSERT_GT(live.out.size(), tail.size());
    EXPECT_EQ(live.out.substr(live.out.size() - tail.size()), tail);
    EXPECT_NE(live.out.find("Version prod   2        :        y  (Beta)\n"), std::string::npos);
}

TEST(CmdReports, EveryWordReachesItsCommand)
{
    ReportDir d;
    const std::vector<std::pair<std::string, int>> words = {
        {"flw", 4}, {"flow", 4}, {"fmt", 5}, {"format", 5}, {"inf", 6}, {"info", 6}, {"information", 6},
        {"FLOW", 4}, {"Fmt", 5}, {"INFO", 6},
    };
    for (const auto& [word, usage] : words) {
        RunResult r = d.run({word, "help"});
        EXPECT_EQ(r.out, std::string(trcMsgGet(usage)) + "\n") << word;
        EXPECT_EQ(r.status, 1);
    }
}
