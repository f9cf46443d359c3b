// Helpers of the inf, fmt and flw tests: a directory of .tfi and trace files,
// records, and the lines every format and flow report prints around its body.
#ifndef KELVO_TESTS_REPORT_SUPPORT_H
#define KELVO_TESTS_REPORT_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "run_tool.h"
#include "trace_image.h"
#include "trcmsg.h"

namespace kelvotest {

// Product 1 is Alpha Core Reader::open/close, product 2 Beta Net Sock::send.
struct ReportDir {
    kelvotest::TempDir dir;
    // What "-" reaches: by default an instance that never exists, so that no
    // trace of the machine interferes.
    std::string instance = "reporttest-none-" + std::to_string(getpid());
    ReportDir()
    {
        dir.write("a.tfi", "tfiversion 1 bldlvl \"x\" product Alpha 1 component Core 1 class Reader open close\n");
        dir.write("b.tfi", "tfiversion 1 bldlvl \"y\" product Beta 2 component Net 1 class Sock send\n");
    }
    std::string save(const kelvotest::TraceImage& img, const std::string& name = "t.bin") const
    {
        kelvotest::traceImageSave(img, dir.file(name));
        return dir.file(name);
    }
    // Runs a program of the build with argv[0] its path, in the directory,
    // with its dictionaries and instance.
    kelvotest::RunResult runProgram(const std::string& program, const std::vector<std::string>& args) const
    {
        std::vector<std::string> argv{program};
        argv.insert(argv.end(), args.begin(), args.end());
        return kelvotest::runProgram(
            program, argv, {{"TRCTFIDIR", dir.path()}, {"KELVO_HOME", std::nullopt}, {"KELVO_INSTANCE", instance}},
            dir.path());
    }
    kelvotest::RunResult run(const std::vector<std::string>& args) const { return runProgram(toolPath(), args); }
    // Runs kelvo and checks all that it prints and its status.
    void expect(const std::vector<std::string>& args, const std::string& out, int status = 0) const
    {
        std::string words = "kelvo";
        for (const std::string& a : args) {
            words += " " + a;
        }
        SCOPED_TRACE(words);
        const kelvotest::RunResult r = run(args);
        EXPECT_EQ(r.out, out);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, status);
    }
};

// Exits and error returns carry a return code. tracePoint 0 keeps the
// bracket out of flow lines.
inline kelvotest::TraceRecordFields rec(uint8_t event, uint8_t function = 1, uint32_t tid = 1, uint32_t pid = 100,
                                        uint8_t product = 1, uint8_t tracePoint = 1)
{
    kelvotest::TraceRecordFields f;
    f.product = product, f.event = event, f.function = function, f.tid = tid, f.pid = pid, f.tracePoint = tracePoint;
    f.rc = event == 23 || (event >= 10 && event <= 14) ? std::optional<int32_t>(0) : std::nullopt;
    return f;
}

inline std::string summary(bool truncated, bool lost, long size, long records)
{
    return std::string(truncated ? "Trace truncated         : " : "Trace wrapped           : ") +
           (lost ? "yes\n" : "no\n") + "Size of trace           : " + std::to_string(size) + " bytes\n" +
           "Records in trace        : " + std::to_string(records) + "\n";
}

inline std::string formatted(long n) { return "Records formatted       : " + std::to_string(n) + "\n"; }

// What a command-line failure prints: the message, a blank line, the usage.
inline std::string usageWith(int message, int usage)
{
    return std::string(trcMsgGet(message)) + "\n\n" + trcMsgGet(usage) + "\n";
}

}  // namespace kelvotest

#endif
