// The process helpers that the command tests stand on.
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
    std::string big;  // far more than one read or write moves
    for (int i = 0; i < 100000; ++i) {
        big += std::to_string(i) + "\n";
    }
    const auto run = runProgram("/bin/sh",
                                {"sh", "-c",
                                 "pwd; echo \"$KELVO_TEST_SET\" \"${KELVO_TEST_DROPPED-unset}\"; "
                                 "cat; echo oops >&2; exit 3"},
                                {{"KELVO_TEST_SET", "value"}, {"KELVO_TEST_DROPPED", std::nullopt}}, dir.path(), big);
    EXPECT_EQ(run.out, dir.path() + "\nvalue unset\n" + big);
    EXPECT_EQ(run.err, "oops\n");
    EXPECT_EQ(run.status, 3);

    const auto quiet = runProgram("/bin/cat", {"cat"});
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "exit 4"}, {}, {}, big).status, 4);
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "kill -9 $$"}).status, 128 + 9);
    EXPECT_EQ(runProgram("/kelvo-no-such-program", {"x"}).status, 127);
    EXPECT_EQ(runProgram("/bin/true", {"true"}, {}, dir.file("missing")).status, 126);
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
        {[] {
             std::printf("buffered");
             std::exit(5);
         },
         "buffered", "", 5},
        {[] { throw std::runtime_error("x"); }, "", "", childThrew},
        {[] { std::abort(); }, "", "", 128 + 6},
    };
    for (const auto& c : cases) {
        const auto run = captureChild(c.fn);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, c.err);
        EXPECT_EQ(run.status, c.status);
    }
}

TEST(TempDir, HoldsFilesAndGoesAway)
{
    std::string path;
    {
        TempDir dir;
        TempDir other;
        path = dir.path();
        EXPECT_NE(other.path(), path);
        EXPECT_EQ(dir.write("a", std::string("x\0y", 3)), path + "/a");
        EXPECT_EQ(readFile(dir.file("a")), std::string("x\0y", 3));
    }
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "test -e \"$0\"", path}).status, 1);
}
