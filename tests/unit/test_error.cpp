// Failure reports and the program's name.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcerror.h"
#include "trcmsg.h"

using kelvotest::captureChild;
using kelvotest::childReturned;

namespace {

// Taken before main runs, so before any test can have set the name.
const std::string nameAtStart = trcPgmName;

// A standard output that writes through to the captured descriptor and
// spoils errno on every write, as a failing or interrupted write may.
ssize_t spoilingWrite(void*, const char* data, size_t size)
{
    const ssize_t written = write(STDOUT_FILENO, data, size);
    errno = 77;
    return written;
}

void useSpoilingStdout()
{
    cookie_io_functions_t functions{};
    functions.write = spoilingWrite;
    FILE* stream = fopencookie(nullptr, "w", functions);
    if (stream != nullptr) {
        setvbuf(stream, nullptr, _IONBF, 0);
        stdout = stream;
    }
}

}  // namespace

TEST(ProgramName, StartsUnknownAndTakesTheLastPathComponent)
{
    EXPECT_EQ(nameAtStart, "???");

    char plain[] = "kelvo";
    trcErrorName(plain);
    EXPECT_EQ(trcPgmName, plain);

    char nested[] = "/usr/local/bin/kelvo";
    trcErrorName(nested);
    EXPECT_EQ(trcPgmName, nested + 15);
    EXPECT_STREQ(trcPgmName, "kelvo");

    char relative[] = "bin/kelvo";
    trcErrorName(relative);
    EXPECT_STREQ(trcPgmName, "kelvo");

    char trailing[] = "bin/";
    trcErrorName(trailing);
    EXPECT_STREQ(trcPgmName, "");

    trcErrorName(nullptr);
    EXPECT_EQ(trcPgmName, trailing + 4);
}

TEST(ErrorReport, PrintsLineAndEndsOrReturns)
{
    auto run = captureChild([] { trcError(exit, trcMsgGet(401), "out.txt"); });
    EXPECT_EQ(run.out, "Could not create out.txt.\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);

    run = captureChild([] {
        errno = 2;
        trcError(nullptr, trcMsgGet(401), "a.txt");
        trcError(nullptr, trcMsgGet(202));
        std::printf("back\n");
    });
    EXPECT_EQ(run.out, "Could not create a.txt.\nTrace is off.\nback\n");
    EXPECT_EQ(run.status, childReturned);

    // A text that ends in a newline of its own is followed by an empty line.
    run = captureChild([] { trcError(exit, trcMsgGet(420)); });
    EXPECT_EQ(run.out, "The target disk is full. Cleanup the disk to get some disk space \n\n");
    EXPECT_EQ(run.status, 1);

    // An unknown message arrives as the empty text: the fallback line, then
    // an empty line.
    run = captureChild([] {
        trcErrorName("kelvo");
        trcError(exit, trcMsgGet(999));
    });
    EXPECT_EQ(run.out, "kelvo: Could not find default message for TRC00999.\n\n");
    EXPECT_EQ(run.status, 1);
}

TEST(ErrorReport, SystemReportAddsTheErrnoLine)
{
    auto run = captureChild([] {
        errno = 2;
        trcErrorSys(exit, trcMsgGet(400), "dump.bin");
    });
    EXPECT_EQ(run.out, "Could not open dump.bin in read mode.\nC library function error number = 2.\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);

    run = captureChild([] {
        errno = -5;
        trcErrorSys(exit, trcMsgGet(417));
    });
    EXPECT_EQ(run.out, "Unexpected System Error.\nOperating System error number = 5.\n");
    EXPECT_EQ(run.status, 1);

    run = captureChild([] {
        errno = 0;
        trcErrorSys(exit, trcMsgGet(414));
    });
    EXPECT_EQ(run.out, "Not enough resources to run trace.\n\n");
    EXPECT_EQ(run.status, 1);

    run = captureChild([] {
        errno = INT_MIN;
        trcErrorSys(nullptr, trcMsgGet(417));
        errno = 13;
        trcErrorSys(nullptr, trcMsgGet(403), "out.txt");
    });
    EXPECT_EQ(run.out,
              "Unexpected System Error.\nOperating System error number = -2147483648.\n"
              "Could not write to out.txt.\nC library function error number = 13.\n");
    EXPECT_EQ(run.status, childReturned);
}

TEST(ErrorReport, SystemReportUsesErrnoFromBeforeItsOutput)
{
    const auto run = captureChild([] {
        useSpoilingStdout();
        errno = 2;
        trcErrorSys(exit, trcMsgGet(402), "trace.bin");
    });
    EXPECT_EQ(run.out, "Could not read from trace.bin.\nC library function error number = 2.\n");
    EXPECT_EQ(run.status, 1);
}
