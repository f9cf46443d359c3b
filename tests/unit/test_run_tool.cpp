// The process helpers that the command tests stand on.
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"

using kelvotest::captureChild;
using kelvotest::childReturned;
using kelvotest::childThrew;
using kelvotest::readFile;
using kelvotest::runProgram;
using kelvotest::TempDir;

TEST(RunProgram, PassesEnvironmentDirectoryAndInput)
{
    TempDir dir;
    setenv("KELVO_TEST_DROPPED", "still here", 1);
    const auto run = runProgram(
        "/bin/sh",
        {"sh", "-c",
         "pwd; echo \"$KELVO_TEST_SET\"; echo \"${KELVO_TEST_DROPPED-unset}\"; cat; "
         "echo oops >&2; exit 3"},
        {{"KELVO_TEST_SET", "value"}, {"KELVO_TEST_DROPPED", std::nullopt}}, dir.path(),
        std::string("line one\nline two"));
    EXPECT_EQ(run.out, dir.path() + "\nvalue\nunset\nline one\nline two");
    EXPECT_EQ(run.err, "oops\n");
    EXPECT_EQ(run.status, 3);

    // Without input the child reads the end of /dev/null at once.
    const auto quiet = runProgram("/bin/cat", {"cat"});
    EXPECT_EQ(quiet.out, "");
    EXPECT_EQ(quiet.status, 0);
}

TEST(RunProgram, LargeStreamsBothWaysAndSignals)
{
    std::string big;
    for (int i = 0; i < 200000; ++i) {
        big += "0123456789"[i % 10];
        if (i % 80 == 79) {
            big += '\n';
        }
    }
    const auto run = runProgram("/bin/sh", {"sh", "-c", "cat; echo end >&2"},
                                {}, {}, big);
    EXPECT_EQ(run.out, big);
    EXPECT_EQ(run.err, "end\n");
    EXPECT_EQ(run.status, 0);

    // A child that stops reading early does not take the test down.
    const auto early = runProgram("/bin/sh", {"sh", "-c", "exit 4"}, {}, {}, big);
    EXPECT_EQ(early.status, 4);

    const auto killed = runProgram("/bin/sh", {"sh", "-c", "kill -9 $$"});
    EXPECT_EQ(killed.status, 128 + 9);

    const auto missing = runProgram("/kelvo-no-such-program", {"x"});
    EXPECT_EQ(missing.status, 127);
}

TEST(CaptureChild, ReportsOutputAndHowTheChildEnded)
{
    // Output still buffered in the parent must not reach the child's capture.
    std::printf("(output of the test program before a capture)");
    auto run = captureChild([] {
        std::printf("out");
        std::fprintf(stderr, "err");
    });
    EXPECT_EQ(run.out, "out");
    EXPECT_EQ(run.err, "err");
    EXPECT_EQ(run.status, childReturned);

    run = captureChild([] {
        std::printf("buffered");
        std::exit(5);
    });
    EXPECT_EQ(run.out, "buffered");
    EXPECT_EQ(run.status, 5);

    run = captureChild([] { throw std::runtime_error("x"); });
    EXPECT_EQ(run.status, childThrew);

    run = captureChild([] { std::abort(); });
    EXPECT_EQ(run.status, 128 + 6);
}

TEST(TempDir, HoldsFilesAndGoesAway)
{
    std::string path;
    {
        TempDir dir;
        path = dir.path();
        EXPECT_EQ(dir.file("a"), path + "/a");
        EXPECT_EQ(dir.write("a", std::string("x\0y", 3)), path + "/a");
        EXPECT_EQ(readFile(path + "/a"), std::string("x\0y", 3));
        TempDir other;
        EXPECT_NE(other.path(), path);
    }
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "test -e \"$0\"", path}).status, 1);
}
