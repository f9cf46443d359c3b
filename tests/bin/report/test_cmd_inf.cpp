// `kelvo inf`: the report lines for every setting a header can hold, its
// command line, and the live trace.
#include <gtest/gtest.h>

#include <cstring>

#include "libtest.h"
#include "report_support.h"

using namespace kelvotest;

namespace {

const std::string emptyTop = "Trace Version           :         \nOp. System              :         \n"
                             "Op. Sys. Version        :         \nH/W Platform            :         \n\n"
                             "Mask                    : *.*.*.*.*.*\n";

// The lines from the process to the destination: the defaults of
// traceImageNew, or with a pid the settings of the busy header below.
std::string middle(const std::string& destination, const std::string& pid = "all", const std::string& rc = "none",
                   const std::string& maxRecord = "4096")
{
    return "pid.tid to trace        : " + pid + "\ncpid    to trace        : " + (pid == "all" ? "all" : "55") +
           "\nthis pointer to trace   : " + (pid == "all" ? "all" : "0x1000") + "\nTreat this rc as sys err: " + rc +
           "\nMax severe errors       : " + (pid == "all" ? "infinite" : "3") +
           "\nMax record size         : " + maxRecord + " bytes\nTrace destination       : " + destination + "\n";
}

// The lines behind the destination; a size of 0 has no line.
std::string keep(const std::string& mode, long size = 4096, const std::string& check = "yes")
{
    return "Records to keep         : " + mode + "\n" +
           (size ? "Trace buffer size       : " + std::to_string(size) + " bytes\n" : "") +
           "Trace data pointer check: " + check + "\n";
}

}  // namespace

TEST(CmdInf, EverySettingOfAHeader)
{
    ReportDir d;
    TraceImage img = traceImageNew(65536, TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK);
    trcHeader_t* h = traceImageHeader(img);
    std::strcpy(h->traceVersion, "KV 1.0"), std::strcpy(h->opSystem, "Linux"), std::strcpy(h->opSysVersion, "6.1");
    std::memcpy(h->hwPlatform, "x86_64ab", 8);  // all 8 bytes used: no zero
    std::memcpy(h->prodVersion[1], "x\0\0\0\0\0\0", 8);
    std::memcpy(h->prodVersion[7], "abcdefgh", 8);
    h->tracePid = 1234, h->traceCpid = 55, h->thisPointer = 0x1000, h->sysErrRc = 22;
    h->maxSevereErrors = 3, h->maxRecordSize = 4096, h->traceFull = 1, h->traceOff = 1;
    const std::string top = "Trace Version           :   KV 1.0\nOp. System              :    Linux\n"
                            "Op. Sys. Version        :      6.1\nH/W Platform            : x86_64ab\n"
                            "Version prod   1        :        x  (Alpha)\nVersion prod   7        : abcdefgh  (? )\n"
                            "\nMask                    : *.*.*.*.*.*\n";
    d.expect({"inf", d.save(img)}, top + middle("shared memory", "1234", "22 (0x0016)") +
                                       "Records to keep         : last\nTrace buffer size       : 65536 bytes\n"
                                       "TRACE IS FULL\nTRACE IS OFF!\nTrace data pointer check: no\n");
    h->traceTid = 5, h->sysErrRc = -1, h->traceFull = 0, h->traceOff = 0;
    d.expect({"information", d.save(img)},
             top + middle("shared memory", "1234.5", "-1 (0xffffffff)") + keep("last", 65536, "no"));
}

TEST(CmdInf, DestinationsAndKeepModes)
{
    ReportDir d;
    const std::vector<std::pair<uint32_t, std::string>> cases = {
        // A native trace ends with its destination, shared or not.
        {TRC_DEST_NATIVE | TRC_KEEP_LAST, middle("native trace")},
        {TRC_DEST_SHARED | TRC_DEST_NATIVE, middle("shared memory")},
        {TRC_DEST_FILE | TRC_KEEP_INITIAL,
         middle("file") + "File name               : /var/tmp/trace.bin\n" + keep("initial")},
        {0, middle("UNKNOWN!!") + keep("UNKNOWN!!", 0)},
        {TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_KEEP_INITIAL, middle("shared memory") + keep("last")},
    };
    for (const auto& [flags, tail] : cases) {
        TraceImage img = traceImageNew(4096, flags);
        std::strcpy(traceImageHeader(img)->fileName, "/var/tmp/trace.bin");
        d.expect({"info", d.save(img)}, emptyTop + tail);
    }
}

TEST(CmdInf, CommandLine)
{
    ReportDir d;
    const std::string source = d.save(traceImageNew(4096));
    // An existing destination is replaced; behind a source "help" and a word
    // with a "-" are file names.
    d.dir.write("b.txt", "old text that is longer than nothing");
    for (const std::string name : {"b.txt", "help", "-x"}) {
        d.expect({"inf", source, name}, "");
        EXPECT_EQ(readFile(d.dir.file(name)), emptyTop + middle("UNKNOWN!!") + keep("UNKNOWN!!", 0));
    }
    d.expect({"inf", "a", "b", "c"}, usageWith(100, 6), 1);
    d.expect({"inf", d.dir.file("none")}, "Could not open " + d.dir.file("none") + " in read mode.\n", 1);
    d.expect({"inf", source, d.dir.file("no/out")}, "Could not create " + d.dir.file("no/out") + ".\n", 1);
    d.expect({"inf"}, "Trace is off.\n", 1);
    // The long words of the three reports, in any case, reach their commands.
    for (const auto& [word, usage] :
         std::vector<std::pair<std::string, int>>{{"FLOW", 4}, {"Format", 5}, {"information", 6}}) {
        d.expect({word, "help"}, std::string(trcMsgGet(usage)) + "\n", 1);
    }
    d.dir.write("c.tfi", "");
    RunResult r = d.run({"inf", source});
    EXPECT_EQ(r.out, "Could not read the translation info.\n");
    EXPECT_EQ(r.status, 1);
}

TEST(CmdInfLive, TheRunningTraceAndItsDump)
{
    kelvotest::Instance instance;
    ReportDir d;
    d.instance = instance.name();
    ASSERT_EQ(kelvotest::turnOn(kelvotest::OnArgs{}), 0);
    ASSERT_EQ(trcSetProdVersion(2, "y"), 0);
    RunResult live = d.run({"inf"});
    EXPECT_EQ(live.status, 0);
    EXPECT_NE(live.out.find("Version prod   2        :        y  (Beta)\n"), std::string::npos);
    EXPECT_TRUE(live.out.ends_with("\nMask                    : *.*.*.*.*.*\n" +
                                   middle("shared memory", "all", "none", "32768") + keep("last", 1048576, "no")))
        << live.out;
    ASSERT_EQ(d.run({"dmp", d.dir.file("dump.bin")}).status, 0);
    d.expect({"inf", d.dir.file("dump.bin")}, live.out);
}
