// The message table and its lookup.
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcerror.h"
#include "trcmsg.h"

using kelvotest::captureChild;
using kelvotest::childReturned;

namespace {

// The stored order is fixed: 424 behind 117, 423 behind 306, 346 behind 314.
const std::vector<int> storedOrder = {
    0,   1,   2,   3,   4,   5,   6,   7,   8,   100, 101, 102, 103, 104, 105,
    106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 424, 118, 119,
    200, 201, 202, 203, 204, 205, 206, 207, 208, 300, 301, 302, 303, 304, 305,
    306, 423, 307, 308, 309, 310, 311, 312, 313, 314, 346, 315, 316, 317, 318,
    319, 320, 321, 322, 323, 324, 325, 326, 327, 328, 329, 330, 331, 332, 333,
    334, 335, 336, 337, 338, 339, 400, 401, 402, 403, 404, 405, 406, 407, 408,
    409, 410, 411, 412, 413, 414, 415, 416, 417, 418, 419, 420, 421, 422,
};

}  // namespace

TEST(MessageTable, HoldsTheNumbersInStoredOrder)
{
    ASSERT_EQ(defaultMsgCount, 104);
    std::vector<int> numbers;
    std::set<int> distinct;
    for (int i = 0; i < defaultMsgCount; ++i) {
        numbers.push_back(defaultMsgs[i].number);
        distinct.insert(defaultMsgs[i].number);
        ASSERT_NE(defaultMsgs[i].text, nullptr) << "row " << i;
    }
    EXPECT_EQ(numbers, storedOrder);
    EXPECT_EQ(distinct.size(), 104u);
}

TEST(MessageTable, LongTextsByteForByte)
{
    EXPECT_STREQ(trcMsgGet(0),
                 "Usage: kelvo (chg|clr|dmp|flw|fmt|inf|off|on) options\n"
                 "\n"
                 "\tchg|change\n"
                 "\t\tchange the trace mask, pid.tid, cpid or maxSevereErrors\n"
                 "\tclr|clear\n"
                 "\t\tclear the trace\n"
                 "\tdmp|dump\n"
                 "\t\tdump the trace to a binary trace file\n"
                 "\tflw|flow\n"
                 "\t\tshow control flow of the trace\n"
                 "\tfmt|format\n"
                 "\t\tformat the trace\n"
                 "\tinf|info|information\n"
                 "\t\tget information on the trace\n"
                 "\toff\n"
                 "\t\tturn the trace off\n"
                 "\ton\n"
                 "\t\tturn the trace on\n"
                 "\n"
                 "\tFor more information type kelvo (chg|clr|dmp|flw|fmt|inf|off|on) help");
    EXPECT_STREQ(trcMsgGet(5),
                 "Usage: kelvo fmt|format\n"
                 "\t[-m <mask>]\n"
                 "\t\t<mask> = <products>.<events>.<components>.<classes>.<functions>\n"
                 "\t[-d <dir>]\n"
                 "\t\t(use *.tfi files from specified dir)\n"
                 "\t[-p <processId>[.<threadId>]]\n"
                 "\t\t(only format trace records that belong to this process/thread)\n"
                 "\t[-j]\n"
                 "\t\t(join first 2 lines of trace output)\n"
                 "\t[-r]\n"
                 "\t\t(output trace in reverse chronological order)\n"
                 "\t[-x <onlyRecord>]\n"
                 "\t\t(only format <onlyRecord>)\n"
                 "\t[-x [<firstRecord>]-[<lastRecord>]]\n"
                 "\t\t(only format records between <firstRecord>) and <lastRecord>)\n"
                 "\t[-this <thisPointer>]\n"
                 "\t\t(format only this object)\n"
                 "\t[<sourceFile> [<destFile>]]\n"
                 "\t\t(binary trace file to format and destination file)");
    EXPECT_STREQ(trcMsgGet(117),
                 "The crash mask must be 5 numbers, which are \n"
                 "<product>.<event>.<component>.<class>.<function>.<trace_point>\n");
    EXPECT_STREQ(trcMsgGet(418),
                 "The Nimbra Trace MMIO option is either\n"
                 "\t1) not installed correctly, or\n"
                 "\t2) not turned on.\n"
                 "If 1) please refer to TOVALA documentation.\n"
                 "If 2) you must first activate trace point 1 in the Nimbra TRACE facility\n"
                 "with the following Nimbra command:\n"
                 "\tTRACE ON 01");
    EXPECT_STREQ(trcMsgGet(421),
                 "Dump file contains corrupt trace records (ignored).\n"
                 "Trace information might be invalid, retry to capture trace information.\n");
    EXPECT_STREQ(trcMsgGet(406), "Use trc version \"%s\" to format this file.");
    EXPECT_STREQ(trcMsgGet(2), "Usage: kelvo clr|clear");
}

// The report labels line up: the ": " behind each label ends at column 26,
// placeholders in the label included (the "%3d" of 311 prints 3 wide).
TEST(MessageTable, ReportLabelsPadToTwentySixColumns)
{
    const std::vector<int> labels = {300, 301, 302, 303, 304, 305, 306, 423, 307, 308,
                                     309, 310, 311, 312, 313, 314, 346, 315, 316, 317,
                                     318, 319, 320, 321, 322};
    for (int number : labels) {
        const std::string text = trcMsgGet(number);
        EXPECT_EQ(text.find(": "), 24u) << number << ": " << text;
    }
}

TEST(MessageLookup, FindsEveryRowIncludingMidTableNumbers)
{
    EXPECT_STREQ(trcMsgGet(424), "Incorrect pause attribute");
    EXPECT_STREQ(trcMsgGet(423), "Records formatted       : %-6ld (pid: %d; tid: %d; node: %d)");
    EXPECT_STREQ(trcMsgGet(346), "this pointer to trace   : ");
    EXPECT_STREQ(trcMsgGet(102), "Incorrect option.");
    EXPECT_STREQ(trcMsgGet(422),
                 "You are not authorized to run trace.  You must belong to the WARDEN,\n"
                 "STEWARD, or KEEPER groups.\n");
    // Both calls hand out the row's own text, never a copy, and print nothing.
    const auto run = captureChild([] {
        for (int i = 0; i < defaultMsgCount; ++i) {
            const trcMsgRow_t& row = defaultMsgs[i];
            if (trcMsgGet(row.number) != row.text || trcMsgGetDefault(row.number) != row.text) {
                std::printf("wrong text for %d\n", row.number);
            }
        }
    });
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, childReturned);
}

TEST(MessageLookup, UnknownNumberPrintsFallbackLineAndGivesEmptyText)
{
    const auto run = captureChild([] {
        trcErrorName("/opt/kelvo/bin/kelvo");
        std::printf("[%s]\n", trcMsgGet(999));
        std::printf("[%s]\n", trcMsgGetDefault(9));
        std::printf("[%s]\n", trcMsgGet(-1));
        std::printf("[%s]\n", trcMsgGet(1234567));
        std::printf("[%s]\n", trcMsgGet(425));
    });
    EXPECT_EQ(run.out,
              "kelvo: Could not find default message for TRC00999.\n[]\n"
              "kelvo: Could not find default message for TRC00009.\n[]\n"
              "kelvo: Could not find default message for TRC-0001.\n[]\n"
              "kelvo: Could not find default message for TRC1234567.\n[]\n"
              "kelvo: Could not find default message for TRC00425.\n[]\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, childReturned);
}

TEST(MessageError, WritesProgramNameTextAndFullStop)
{
    const auto run = captureChild([] {
        trcErrorName("bin/kelvo");
        trcMsgError("Could not find %s in %d places", "trc.msg", 3);
        trcErrorName("other");
        trcMsgError("plain");
        trcMsgError("%s", "");
    });
    EXPECT_EQ(run.out,
              "kelvo: Could not find trc.msg in 3 places.\n"
              "other: plain.\n"
              "other: .\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, childReturned);
}
