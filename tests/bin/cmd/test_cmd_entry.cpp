// The command word as the built tool answers it: the overview, help, unknown
// words, the letter case of the command line, and every word reaching its
// own command.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcmsg.h"

namespace {

using Args = std::vector<std::string>;

// The whole answer is the text on standard output and status 1.
void expectAnswer(const std::string& argv0, const Args& args, const std::string& out)
{
    const auto run = kelvotest::runToolAs(argv0, args);
    const std::string shown = argv0 + " " + ::testing::PrintToString(args);
    EXPECT_EQ(run.out, out) << shown;
    EXPECT_EQ(run.err, "") << shown;
    EXPECT_EQ(run.status, 1) << shown;
}

}  // namespace

TEST(CommandEntry, OverviewHelpAndUnknownWordsUnderAnyProgramName)
{
    const std::string overview = std::string(trcMsgGet(0)) + "\n";
    const std::string unknown = "Incorrect option.\n\n" + overview;
    for (const Args& args : {Args{}, {"help"}, {"HeLp"}, {"HELP", "x"}, {"help", "-X"}}) {
        expectAnswer(kelvotest::toolPath(), args, overview);
    }
    for (const char* word :
         {"frobnicate", "FROBNICATE", "", "-help", "helpx", "hel", "o", "on-", "formats", "\xc3\x89"}) {
        expectAnswer(kelvotest::toolPath(), {word, "x"}, unknown);
    }
    for (const char* argv0 : {"bin/kelvo", "kelvo", "/", ""}) {
        expectAnswer(argv0, {}, overview);
        expectAnswer(argv0, {"Frobnicate"}, unknown);
    }
}

// "help" behind a word asks its command for its usage, whose number is the
// code of the word.
TEST(CommandEntry, EveryWordReachesItsCommandInAnyCase)
{
    const std::vector<std::pair<const char*, int>> words = {
        {"chg", 1},  {"change", 1},      {"CHANGE", 1}, {"clr", 2}, {"clear", 2},  {"dmp", 3},
        {"Dump", 3}, {"flw", 4},         {"flow", 4},   {"fmt", 5}, {"format", 5}, {"inf", 6},
        {"info", 6}, {"information", 6}, {"off", 7},    {"on", 8},  {"On", 8}};
    for (const auto& [word, usage] : words) {
        expectAnswer(kelvotest::toolPath(), {word, "help"}, std::string(trcMsgGet(usage)) + "\n");
    }
}
