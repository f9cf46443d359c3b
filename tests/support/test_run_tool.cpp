// The process helpers that every command test stands on: a child that
// crashed or could not start must never pass for one that ended normally.
#include <cstdlib>
#include <stdexcept>

#include <gtest/gtest.h>

#include "run_tool.h"

using namespace kelvotest;

TEST(RunProgram, ASignalOrAMissingProgramIsNoNormalEnd)
{
    EXPECT_EQ(runProgram("/bin/sh", {"sh", "-c", "kill -9 $$"}).status, 128 + 9);
    EXPECT_EQ(runProgram("/kelvo-no-such-program", {"x"}).status, 127);
    EXPECT_EQ(captureChild([] { std::abort(); }).status, 128 + 6);
    EXPECT_EQ(captureChild([] { throw std::runtime_error("x"); }).status, childThrew);
    EXPECT_EQ(captureChild([] {}).status, childReturned);
}
