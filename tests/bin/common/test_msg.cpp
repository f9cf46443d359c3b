// The message table and its lookup, message files, failure reports and the
// program's name.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcerror.h"
#include "trcmsg.h"

using namespace kelvotest;

namespace {

// Taken before main runs, so before any test can have set the name.
const std::string nameAtStart = trcPgmName;

// Offset of the key in the first length bytes of text (all: -2) as trcMsgFind
// reports it, or -1 for none. The text lies in a block of exactly its length,
// so that a read past the end shows under the address sanitizer.
long find(const std::string& text, const char* key, int length = -2)
{
    std::unique_ptr<char[]> block(new char[text.size()]);
    std::memcpy(block.get(), text.data(), text.size());
    const char* at = trcMsgFind(block.get(), key, length == -2 ? static_cast<int>(text.size()) : length);
    return at == nullptr ? -1 : at - block.get();
}

// Contents of the stream that trcMsgOpenFile gives for the search list (none:
// unset), or nothing and errno as the call left it.
std::optional<std::string> openAlong(const std::optional<std::string>& list, const std::string& fileName,
                                     const char* mode = "r")
{
    list ? setenv("KELVO_TEST_MSGPATH", list->c_str(), 1) : unsetenv("KELVO_TEST_MSGPATH");
    errno = 0;
    FILE* stream = trcMsgOpenFile("KELVO_TEST_MSGPATH", fileName.c_str(), mode);
    if (stream == nullptr) {
        return std::nullopt;
    }
    std::string content;
    for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
        content += static_cast<char>(c);
    }
    std::fclose(stream);
    return content;
}

}  // namespace

// Runs of consecutive numbers: 424 stands behind 117, 423 behind 306 and 346
// behind 314. The ": " behind a report label ends at column 26, placeholders
// included (the "%3d" of 311 prints 3 wide).
TEST(MessageTable, HoldsTheNumbersInStoredOrderAndLabelsLineUp)
{
    std::vector<int> expected, numbers;
    const int runs[] = {0,   8,   100, 117, 424, 424, 118, 119, 200, 208, 300,
                        306, 423, 423, 307, 314, 346, 346, 315, 339, 400, 422};
    for (std::size_t run = 0; run < std::size(runs); run += 2) {
        for (int n = runs[run]; n <= runs[run + 1]; ++n) {
            expected.push_back(n);
        }
    }
    ASSERT_EQ(defaultMsgCount, 104);
    for (int i = 0; i < defaultMsgCount; ++i) {
        const int n = defaultMsgs[i].number;
        numbers.push_back(n);
        // Both lookups hand out the row's own text, never a copy.
        EXPECT_EQ(trcMsgGet(n), defaultMsgs[i].text);
        EXPECT_EQ(trcMsgGetDefault(n), defaultMsgs[i].text);
        if ((n >= 300 && n <= 322) || n == 423 || n == 346) {
            EXPECT_EQ(std::string(defaultMsgs[i].text).find(": "), 24u) << n;
        }
    }
    EXPECT_EQ(numbers, expected);
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

// The fallback line goes through trcMsgError: program name, text, full stop;
// the text itself is empty.
TEST(MessageLookup, UnknownNumberPrintsFallbackLineAndGivesEmptyText)
{
    const auto run = captureChild([] {
        trcErrorName("/opt/kelvo/bin/kelvo");
        for (int number : {9, -1, 1234567}) {
            std::printf("[%s]\n", number == 9 ? trcMsgGetDefault(9) : trcMsgGet(number));
        }
        trcMsgError("Could not find %s in %d places", "trc.msg", 3);
        trcErrorName("other");
        trcError(exit, trcMsgGet(425));
    });
    EXPECT_EQ(run.out, "kelvo: Could not find default message for TRC00009.\n[]\n"
                       "kelvo: Could not find default message for TRC-0001.\n[]\n"
                       "kelvo: Could not find default message for TRC1234567.\n[]\n"
                       "kelvo: Could not find trc.msg in 3 places.\n"
                       "other: Could not find default message for TRC00425.\n\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);
}

// Quoted, bracketed and starred regions are skipped except at the start;
// they do not nest, and the closer of one kind is plain text in another.
TEST(MessageFind, SkipsRegionsExceptAtTheStart)
{
    const struct {
        std::string text;
        const char* key;
        long at;
        int length = -2;
    } cases[] = {
        {"abc KEY def", "KEY", 4},
        {"no key here", "KEY", -1},
        {"a \"KEY\" KEY", "KEY", 8},
        {"a (KEY)KEY", "KEY", 7},
        {"a * KEY\nKEY", "KEY", 8},
        {"(\"KEY)\" KEY", "KEY", -1},
        {"\"a)\"KEY", "KEY", 4},
        {"(KEY) x", "(KEY", 0},
        {"", "", 0},
        {"a \"KEY KEY KEY", "KEY", -1},
        {"KE", "KEY", -1},
        {"abKEY", "KEY", -1, 4},
        {"abKEY", "KEY", 2, 5},
        {"KEY", "KEY", -1, -1},
        {"x\"KEY\"", "KEY", -1},
        {"(a)KEY", "KEY", 3},
        {std::string("a\0KEY", 5), "KEY", 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(find(c.text, c.key, c.length), c.at) << '"' << c.text << "\" " << c.key;
    }
}

// The first directory that holds the file wins. An empty piece between
// colons stands for the root, a colon at the end for nothing, and a path too
// long to try is skipped.
TEST(MessageOpenFile, TakesTheFirstDirectoryThatHoldsTheFile)
{
    TempDir first, second;
    first.write("trc.msg", "first");
    second.write("trc.msg", "second");
    const std::string both = first.path() + ":" + second.path(), fromRoot = second.path().substr(1) + "/trc.msg";
    const std::string longDir = "/" + std::string(70000, 'd');
    EXPECT_EQ(openAlong(both, "trc.msg"), "first");
    EXPECT_EQ(openAlong(first.path() + "/missing:" + second.path(), "trc.msg"), "second");
    EXPECT_EQ(openAlong(both, "none.msg"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(openAlong(std::nullopt, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(openAlong(first.path(), "new.msg", "w"), "");  // the mode goes to fopen as it is
    EXPECT_EQ(readFile(first.file("new.msg")), "");
    EXPECT_EQ(openAlong(std::string(""), fromRoot), std::nullopt);
    EXPECT_EQ(openAlong("/kelvo-missing::/kelvo-missing", fromRoot), "second");
    EXPECT_EQ(openAlong("/kelvo-missing:", fromRoot), std::nullopt);
    EXPECT_EQ(openAlong(longDir, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(openAlong(longDir + ":" + second.path(), "trc.msg"), "second");
}

TEST(ProgramName, StartsUnknownAndTakesTheLastPathComponent)
{
    EXPECT_EQ(nameAtStart, "???");
    const char* nested = "/usr/local/bin/kelvo";
    trcErrorName(nested);
    EXPECT_EQ(trcPgmName, nested + 15);  // into the caller's text, no copy
    trcErrorName("kelvo");
    EXPECT_STREQ(trcPgmName, "kelvo");
    const char* trailing = "bin/";
    trcErrorName(trailing);
    trcErrorName(nullptr);
    EXPECT_EQ(trcPgmName, trailing + 4);
}

// The errno line shows the value from before the report, even where standard
// output spoils errno on every write, as a failing or interrupted write may.
TEST(ErrorReport, PrintsTheTextAndTheErrnoLineThenExitsOrReturns)
{
    const std::string library2 = "C library function error number = 2.\n";
    const struct {
        bool sys, exits, spoil;
        int error;
        const char* format;
        std::string out;
    } cases[] = {
        {false, true, false, 2, trcMsgGet(401), "Could not create f.\n"},
        {false, false, false, 2, trcMsgGet(401), "Could not create f.\n"},
        // A text with a newline of its own is followed by an empty line.
        {false, true, false, 0, trcMsgGet(420),
         "The target disk is full. Cleanup the disk to get some disk space \n\n"},
        {true, true, false, 2, trcMsgGet(400), "Could not open f in read mode.\n" + library2},
        {true, true, false, -5, trcMsgGet(417), "Unexpected System Error.\nOperating System error number = 5.\n"},
        {true, true, false, 0, trcMsgGet(414), "Not enough resources to run trace.\n\n"},
        {true, false, false, INT_MIN, "x", "x\nOperating System error number = -2147483648.\n"},
        {true, true, true, 2, trcMsgGet(402), "Could not read from f.\n" + library2},
    };
    for (const auto& c : cases) {
        const auto run = captureChild([&] {
            if (c.spoil) {
                cookie_io_functions_t functions{};
                functions.write = [](void*, const char* data, size_t size) {
                    const ssize_t written = write(STDOUT_FILENO, data, size);
                    errno = 77;
                    return written;
                };
                stdout = fopencookie(nullptr, "w", functions);
                setvbuf(stdout, nullptr, _IONBF, 0);
            }
            errno = c.error;
            (c.sys ? trcErrorSys : trcError)(c.exits ? exit : nullptr, c.format, "f");
        });
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, c.exits ? 1 : childReturned) << c.out;
    }
}
