// Helpers of the kelvo-export and kelvo-stats tests: the reports' directory,
// records with time stamps, and runs of the two programs and of the JSON
// checker.
#ifndef KELVO_TESTS_EXPORT_SUPPORT_H
#define KELVO_TESTS_EXPORT_SUPPORT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "report_support.h"

namespace kelvotest {

// As for the reports, and Reader has read (3) as well.
struct ExportDir : ReportDir {
    ExportDir()
    {
        dir.write("a.tfi", "tfiversion 1 bldlvl \"x\" product Alpha 1 component Core 1 class Reader open close read\n");
    }
    kelvotest::RunResult exportTrace(const std::vector<std::string>& args) const
    {
        return runProgram(KELVO_EXPORT_PATH, args);
    }
    kelvotest::RunResult stats(const std::vector<std::string>& args) const
    {
        return runProgram(KELVO_STATS_PATH, args);
    }
    kelvotest::RunResult tool(const std::vector<std::string>& args) const { return run(args); }
    // The canonical lines of the checker for a JSON file; fails the test
    // if the checker refuses it.
    std::string checked(const std::string& path) const
    {
        const kelvotest::RunResult r =
            kelvotest::runProgram("/usr/bin/env", {"env", "python3", KELVO_JSON_CHECKER, path});
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        return r.out;
    }
    std::string checkedText(const std::string& json) const { return checked(dir.write("checked.json", json)); }
};

// A record of thread tid of process 100 at 100 s and ns nanoseconds (no
// time stamp with ns < 0); exits and error returns carry rc.
inline kelvotest::TraceRecordFields at(long ns, uint8_t event, uint8_t function, uint32_t tid = 1, int32_t rc = 0,
                                       const std::string& text = "")
{
    kelvotest::TraceRecordFields f;
    f.event = event, f.function = function, f.tid = tid, f.tracePoint = 0;
    if (ns >= 0) {
        f.sec = 100, f.nsec = static_cast<int32_t>(ns);
    }
    if ((event >= 10 && event <= 14) || event == 23) {
        f.rc = rc;
    }
    f.data = text;
    return f;
}

}  // namespace kelvotest

#endif
