// Helpers of the tests of the inf, fmt and flw commands: a directory with
// .tfi files and trace files, records by their numbers, and the summary
// lines that precede every format and flow report.
#ifndef KELVO_TESTS_REPORT_SUPPORT_H
#define KELVO_TESTS_REPORT_SUPPORT_H

#include <unistd.h>

#include <string>
#include <vector>

#include "run_tool.h"
#include "trace_image.h"

namespace reporttest {

// Product 1 is Alpha, with component 1 Core, class 1 Reader and the
// functions 1 open, 2 close; product 2 is Beta with Net Sock::send.
class ReportDir {
public:
    ReportDir()
    {
        dir.write("a.tfi", "tfiversion 1 bldlvl \"x\" product Alpha 1 component Core 1 class Reader open close\n");
        dir.write("b.tfi", "tfiversion 1 bldlvl \"y\" product Beta 2 component Net 1 class Sock send\n");
    }
    // Writes the image as a trace file of the directory; returns its path.
    std::string save(const kelvotest::TraceImage& img, const std::string& name = "t.bin") const
    {
        kelvotest::traceImageSave(img, dir.file(name));
        return dir.file(name);
    }
    kelvotest::RunResult run(const std::vector<std::string>& args) const
    {
        return kelvotest::runTool(
            args, {{"TRCTFIDIR", dir.path()}, {"KELVO_HOME", std::nullopt}, {"KELVO_INSTANCE", instance}},
            dir.path());
    }
    kelvotest::TempDir dir;
    // The facility instance that "-" reaches: by default one that never
    // exists, so that no trace of the machine can interfere.
    std::string instance = "reporttest-none-" + std::to_string(getpid());
};

// A record of the given identity, process and thread.
inline kelvotest::TraceRecordFields rec(uint8_t event, uint8_t function = 1, uint32_t tid = 1,
                                        uint32_t pid = 100, uint8_t product = 1)
{
    kelvotest::TraceRecordFields f;
    f.product = product;
    f.event = event;
    f.function = function;
    f.tid = tid;
    f.pid = pid;
    if (event == 23 || (event >= 10 && event <= 14)) {
        f.rc = 0;
    }
    return f;
}

// The summary lines of a format or flow report.
inline std::string summary(bool truncated, bool lost, long size, long records)
{
    return std::string(truncated ? "Trace truncated         : " : "Trace wrapped           : ") +
           (lost ? "yes\n" : "no\n") + "Size of trace           : " + std::to_string(size) + " bytes\n" +
           "Records in trace        : " + std::to_string(records) + "\n";
}

inline std::string formatted(long n)
{
    return "Records formatted       : " + std::to_string(n) + "\n";
}

}  // namespace reporttest

#endif
