// The message table and its lookup.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcerror.h"
#include "trcmsg.h"

using namespace kelvotest;

// Runs of consecutive numbers; 424 stands behind 117, 423 behind 306 and
// 346 behind 314.
TEST(MessageTable, HoldsTheNumbersInStoredOrderAndLabelsLineUp)
{
    std::vector<int> expected;
    for (auto [first, last] : {std::pair{0, 8},
                               {100, 117},
                               {424, 424},
                               {118, 119},
                               {200, 208},
                               {300, 306},
                               {423, 423},
                               {307, 314},
                               {346, 346},
                               {315, 339},
                               {400, 422}}) {
        for (int n = first; n <= last; ++n) {
            expected.push_back(n);
        }
    }
    ASSERT_EQ(defaultMsgCount, 104);
    std::vector<int> numbers;
    for (int i = 0; i < defaultMsgCount; ++i) {
        const int n = defaultMsgs[i].number;
        const std::string text = defaultMsgs[i].text;
        numbers.push_back(n);
        // Both lookups hand out the row's own text, never a copy.
        EXPECT_EQ(trcMsgGet(n), defaultMsgs[i].text);
        EXPECT_EQ(trcMsgGetDefault(n), defaultMsgs[i].text);
        // The ": " behind a report label ends at column 26, placeholders
        // included (the "%3d" of 311 prints 3 wide).
        if ((n >= 300 && n <= 322) || n == 423 || n == 346) {
            EXPECT_EQ(text.find(": "), 24u) << n << ": " << text;
        }
    }
    EXPECT_EQ(numbers, expected);
}

TEST(MessageLookup, FindsRowsAtTheStartMidTableAndEndByteForByte)
{
    const std::vector<std::pair<int, const char*>> cases = {
        {0, "Usage: kelvo (chg|clr|dmp|flw|fmt|inf|off|on) options\n\n"
            "\tchg|change\n\t\tchange the trace mask, pid.tid, cpid or maxSevereErrors\n"
            "\tclr|clear\n\t\tclear the trace\n"
            "\tdmp|dump\n\t\tdump the trace to a binary trace file\n"
            "\tflw|flow\n\t\tshow control flow of the trace\n"
            "\tfmt|format\n\t\tformat the trace\n"
            "\tinf|info|information\n\t\tget information on the trace\n"
            "\toff\n\t\tturn the trace off\n"
            "\ton\n\t\tturn the trace on\n\n"
            "\tFor more information type kelvo (chg|clr|dmp|flw|fmt|inf|off|on) help"},
        {117, "The crash mask must be 5 numbers, which are \n"
              "<product>.<event>.<component>.<class>.<function>.<trace_point>\n"},
        {424, "Incorrect pause attribute"},
        {423, "Records formatted       : %-6ld (pid: %d; tid: %d; node: %d)"},
        {346, "this pointer to trace   : "},
        {406, "Use trc version \"%s\" to format this file."},
        {421, "Dump file contains corrupt trace records (ignored).\n"
              "Trace information might be invalid, retry to capture trace information.\n"},
        {422, "You are not authorized to run trace.  You must belong to the WARDEN,\n"
              "STEWARD, or KEEPER groups.\n"},
    };
    for (const auto& [number, text] : cases) {
        EXPECT_STREQ(trcMsgGet(number), text) << number;
    }
}

// The fallback line goes through trcMsgError: program name, text, full stop.
TEST(MessageLookup, UnknownNumberPrintsFallbackLineAndGivesEmptyText)
{
    const auto run = captureChild([] {
        trcErrorName("/opt/kelvo/bin/kelvo");
        for (int number : {999, 9, -1, 1234567, 425}) {
            std::printf("[%s]\n", number == 9 ? trcMsgGetDefault(9) : trcMsgGet(number));
        }
        trcMsgError("Could not find %s in %d places", "trc.msg", 3);
        trcErrorName("other");
        trcMsgError("%s", "");
    });
    EXPECT_EQ(run.out, "kelvo: Could not find default message for TRC00999.\n[]\n"
                       "kelvo: Could not find default message for TRC00009.\n[]\n"
                       "kelvo: Could not find default message for TRC-0001.\n[]\n"
                       "kelvo: Could not find default message for TRC1234567.\n[]\n"
                       "kelvo: Could not find default message for TRC00425.\n[]\n"
                       "kelvo: Could not find trc.msg in 3 places.\nother: .\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, childReturned);
}
