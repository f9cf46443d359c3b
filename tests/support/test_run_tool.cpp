// The process helpers that every command test stands on: above all, a child
// that crashed must never pass for one that ended normally.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"

using namespace kelvotest;

TEST(RunProgram, PassesArgumentsEnvironmentDirectoryAndInputAndReportsTheEnd)
{
    TempDir dir;
    setenv("KELVO_TEST_DROPPED", "still here", 1);
    std::string big(1 << 20, 'x');  // far more than one read or write moves
    const auto run = runProgram("/bin/sh",
                                {"sh", "-c",
                                 "pwd; echo \"$KELVO_TEST_SET\" \"${KELVO_TEST_DROPPED-unset}\"; "
                                 "cat; echo oops >&2; exit 3"},
                                {{"KELVO_TEST_SET", "value"}, {"KELVO_TEST_DROPPED", std::nullopt}}, dir.path(), big);
    EXPECT_EQ(std::tuple(run.out, run.err, run.status), std::tuple(dir.path() + "\nvalue unset\n" + big, "oops\n", 3));
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "kill -9 $$"}).status, 128 + 9);
    EXPECT_EQ(runProgram("/kelvo-no-such-program", {"x"}).status, 127);
}

TEST(CaptureChild, ReportsOutputAndHowTheChildEnded)
{
    std::printf("(buffered in the test program: must not reach the capture)");
    const struct {
        void (*fn)();
        std::string out, err;
        int status;
    } cases[] = {
        {[] {
             std::printf("out");
             std::fprintf(stderr, "err");
         },
         "out", "err", childReturned},
        {[] { throw std::runtime_error("x"); }, "", "", childThrew},
        {[] { std::abort(); }, "", "", 128 + 6},
    };
    for (const auto& c : cases) {
        const auto run = captureChild(c.fn);
        EXPECT_EQ(std::tuple(run.out, run.err, run.status), std::tuple(c.out, c.err, c.status));
    }
}
