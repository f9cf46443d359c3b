// The command word as the built tool answers it (the overview, help, unknown
// words, the letter case, every word reaching its own command), the usage
// printer, the number parsers and the account look-ups.
#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcentry.h"
#include "trcmsg.h"

namespace {

using Args = std::vector<std::string>;

// The whole answer is the text on standard output and status 1.
void expectAnswer(const kelvotest::RunResult& run, const std::string& out, const std::string& shown)
{
    EXPECT_EQ(run.out, out) << shown;
    EXPECT_EQ(run.err, "") << shown;
    EXPECT_EQ(run.status, 1) << shown;
}

void expectAnswer(const std::string& argv0, const Args& args, const std::string& out)
{
    expectAnswer(kelvotest::runToolAs(argv0, args), out, argv0 + " " + ::testing::PrintToString(args));
}

}  // namespace

TEST(CommandEntry, OverviewHelpAndUnknownWordsUnderAnyProgramName)
{
    const std::string overview = std::string(trcMsgGet(0)) + "\n";
    const std::string unknown = "Incorrect option.\n\n" + overview;
    for (const Args& args : {Args{}, {"HeLp"}, {"help", "-X"}}) {
        expectAnswer(kelvotest::toolPath(), args, overview);
    }
    for (const char* word : {"frobnicate", "", "-help", "helpx", "hel", "o", "on-", "formats", "\xc3\x89"}) {
        expectAnswer(kelvotest::toolPath(), {word, "x"}, unknown);
    }
    for (const char* argv0 : {"bin/kelvo", "/", ""}) {
        expectAnswer(argv0, {}, overview);
        expectAnswer(argv0, {"Frobnicate"}, unknown);
    }
}

// "help" behind a word asks its command for its usage, whose number is the
// code of the word.
TEST(CommandEntry, EveryWordReachesItsCommandInAnyCase)
{
    const std::vector<std::pair<const char*, int>> words = {
        {"chg", 1}, {"CHANGE", 1}, {"clr", 2}, {"clear", 2}, {"dmp", 3},         {"Dump", 3}, {"flw", 4}, {"flow", 4},
        {"fmt", 5}, {"format", 5}, {"inf", 6}, {"info", 6},  {"information", 6}, {"off", 7},  {"On", 8}};
    for (const auto& [word, usage] : words) {
        expectAnswer(kelvotest::toolPath(), {word, "help"}, std::string(trcMsgGet(usage)) + "\n");
    }
}

// A text with a newline of its own keeps it: the format adds one more.
TEST(Usage, PrintsErrorThenUsageAndExitsOne)
{
    const std::vector<std::tuple<int, int, std::string>> cases = {
        {2, 100, "Too many arguments.\n\nUsage: kelvo clr|clear\n"},
        {7, -1, "Usage: kelvo off\n"},
        {3, 117, std::string(trcMsgGet(117)) + "\n\n" + trcMsgGet(3) + "\n"},
    };
    for (const auto& c : cases) {
        const int usageMessage = std::get<0>(c), errorMessage = std::get<1>(c);
        expectAnswer(kelvotest::captureChild([=] { usage(usageMessage, errorMessage); }), std::get<2>(c),
                     std::get<2>(c));
    }
}

// strtol in base 0 within 32 bits; leftovers give -1 and -2, negatives -1
// from strToLong only.
TEST(NumberParsers, ReadBaseZeroAndTellBadText)
{
    const struct {
        std::string text;
        long asLong;
        int asInt;
    } cases[] = {
        {"", 0, 0},
        {"12", 12, 12},
        {"12x", -1, -2},
        {"-5", -1, -5},
        {"0x10", 16, 16},
        {"010", 8, 8},
        {"08", -1, -2},
        {"+7", 7, 7},
        {"7 ", -1, -2},
        {"-0", 0, 0},
        {"99999999999", 2147483647, INT_MAX},
        {"-99999999999", -1, INT_MIN},
    };
    for (auto c : cases) {
        EXPECT_EQ(strToLong(c.text.data()), c.asLong) << '"' << c.text << '"';
        EXPECT_EQ(strToInt(c.text.data()), c.asInt) << '"' << c.text << '"';
    }
}

TEST(Accounts, LooksUpUsersAndGroupsOrGivesMinus99)
{
    EXPECT_EQ(get_uid("root"), 0);
    EXPECT_EQ(get_gid("root"), 0);
    EXPECT_EQ(get_uid("kelvo-no-such-user"), -99);
    EXPECT_EQ(get_gid("kelvo-no-such-group"), -99);
}
