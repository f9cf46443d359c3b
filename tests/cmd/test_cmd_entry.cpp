// The command word as the built tool answers it: the overview, help, unknown
// words and the letter case of the command line.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcmsg.h"

using kelvotest::runTool;
using kelvotest::runToolAs;

namespace {

std::string overview()
{
    return std::string(trcMsgGet(0)) + "\n";
}

std::string unknownWord()
{
    return "Incorrect option.\n\n" + overview();
}

}  // namespace

TEST(CommandEntry, NoArgumentAndHelpPrintTheOverview)
{
    const std::vector<std::vector<std::string>> cases = {
        {}, {"help"}, {"HeLp"}, {"HELP", "x"}, {"help", "-X"}};
    for (const auto& args : cases) {
        const auto run = runTool(args);
        EXPECT_EQ(run.out, overview()) << ::testing::PrintToString(args);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
    }
}

TEST(CommandEntry, UnknownWordsPrintIncorrectOptionAndTheOverview)
{
    const std::vector<std::vector<std::string>> cases = {
        {"frobnicate"}, {"FROBNICATE", "x"}, {""},       {"-help"}, {"helpx"},     {"hel"},
        {"help "},      {"o"},               {"on-"},    {"formats"}, {"\xc3\x89"}};
    for (const auto& args : cases) {
        const auto run = runTool(args);
        EXPECT_EQ(run.out, unknownWord()) << ::testing::PrintToString(args);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
    }
}

// The program's name does not change what the entry prints, whatever the
// tool's argv[0] is.
TEST(CommandEntry, AnyProgramNameGivesTheSameAnswers)
{
    for (const char* argv0 : {"bin/kelvo", "kelvo", "/", ""}) {
        auto run = runToolAs(argv0, {});
        EXPECT_EQ(run.out, overview()) << argv0;
        EXPECT_EQ(run.status, 1);
        run = runToolAs(argv0, {"Frobnicate"});
        EXPECT_EQ(run.out, unknownWord()) << argv0;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
    }
}
