// Failure reports and the program's name.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcerror.h"
#include "trcmsg.h"

using namespace kelvotest;

namespace {

// Taken before main runs, so before any test can have set the name.
const std::string nameAtStart = trcPgmName;

// Makes standard output spoil errno on every write, as a failing or
// interrupted write may: the errno line must show the value from before.
void useSpoilingStdout()
{
    cookie_io_functions_t functions{};
    functions.write = [](void*, const char* data, size_t size) {
        const ssize_t written = write(STDOUT_FILENO, data, size);
        errno = 77;
        return written;
    };
    stdout = fopencookie(nullptr, "w", functions);
    setvbuf(stdout, nullptr, _IONBF, 0);
}

}  // namespace

TEST(ProgramName, StartsUnknownAndTakesTheLastPathComponent)
{
    EXPECT_EQ(nameAtStart, "???");
    const char* nested = "/usr/local/bin/kelvo";
    trcErrorName(nested);
    EXPECT_EQ(trcPgmName, nested + 15);  // into the caller's text, no copy
    for (const char* path : {"kelvo", "bin/kelvo"}) {
        trcErrorName(path);
        EXPECT_STREQ(trcPgmName, "kelvo") << path;
    }
    const char* trailing = "bin/";
    trcErrorName(trailing);
    trcErrorName(nullptr);
    EXPECT_EQ(trcPgmName, trailing + 4);
}

TEST(ErrorReport, PrintsTheTextAndTheErrnoLineThenExitsOrReturns)
{
    const std::string library2 = "C library function error number = 2.\n";
    const struct {
        std::function<void()> report;
        std::string out;
        int status;
    } cases[] = {
        {[] { trcError(exit, trcMsgGet(401), "out.txt"); }, "Could not create out.txt.\n", 1},
        {[] {
             errno = 2;
             trcError(nullptr, trcMsgGet(401), "a.txt");
             trcError(nullptr, "b");
         },
         "Could not create a.txt.\nb\n", childReturned},
        // A text with a newline of its own is followed by an empty line.
        {[] { trcError(exit, trcMsgGet(420)); },
         "The target disk is full. Cleanup the disk to get some disk space \n\n", 1},
        {[] {
             trcErrorName("kelvo");
             trcError(exit, trcMsgGet(999));
         },
         "kelvo: Could not find default message for TRC00999.\n\n", 1},
        {[] {
             errno = 2;
             trcErrorSys(exit, trcMsgGet(400), "dump.bin");
         },
         "Could not open dump.bin in read mode.\n" + library2, 1},
        {[] {
             errno = -5;
             trcErrorSys(exit, trcMsgGet(417));
         },
         "Unexpected System Error.\nOperating System error number = 5.\n", 1},
        {[] {
             errno = 0;
             trcErrorSys(exit, trcMsgGet(414));
         },
         "Not enough resources to run trace.\n\n", 1},
        {[] {
             for (int value : {-5, 0, INT_MIN, 13}) {
                 errno = value;
                 trcErrorSys(nullptr, "x");
             }
         },
         "x\nOperating System error number = 5.\nx\n\nx\nOperating System error number = "
         "-2147483648.\nx\nC library function error number = 13.\n",
         childReturned},
        {[] {
             useSpoilingStdout();
             errno = 2;
             trcErrorSys(exit, trcMsgGet(402), "trace.bin");
         },
         "Could not read from trace.bin.\n" + library2, 1},
    };
    for (const auto& c : cases) {
        const auto run = captureChild(c.report);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, c.status) << c.out;
    }
}
