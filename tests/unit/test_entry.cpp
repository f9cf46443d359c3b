// The usage printer, the number parsers and the account look-ups.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcentry.h"
#include "trcmsg.h"

using kelvotest::captureChild;

namespace {

long toLong(std::string text)
{
    return strToLong(text.data());
}

int toInt(std::string text)
{
    return strToInt(text.data());
}

}  // namespace

TEST(Usage, PrintsErrorThenUsageAndExitsOne)
{
    auto run = captureChild([] { usage(2, 100); });
    EXPECT_EQ(run.out, "Too many arguments.\n\nUsage: kelvo clr|clear\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);

    run = captureChild([] { usage(7, -1); });
    EXPECT_EQ(run.out, "Usage: kelvo off\n");
    EXPECT_EQ(run.status, 1);

    // A usage text that ends in a newline of its own keeps it: the format
    // adds exactly one more.
    run = captureChild([] { usage(3, 117); });
    EXPECT_EQ(run.out, std::string(trcMsgGet(117)) + "\n\n" + trcMsgGet(3) + "\n");
    EXPECT_EQ(run.status, 1);
}

TEST(NumberParsers, LongRejectsLeftoversAndNegatives)
{
    EXPECT_EQ(toLong(""), 0);
    EXPECT_EQ(toLong("0"), 0);
    EXPECT_EQ(toLong("12"), 12);
    EXPECT_EQ(toLong("12x"), -1);
    EXPECT_EQ(toLong("-5"), -1);
    EXPECT_EQ(toLong("-0"), 0);
    EXPECT_EQ(toLong("0x10"), 16);
    EXPECT_EQ(toLong("0X1f"), 31);
    EXPECT_EQ(toLong("010"), 8);
    EXPECT_EQ(toLong("08"), -1);
    EXPECT_EQ(toLong("0x"), -1);
    EXPECT_EQ(toLong("+7"), 7);
    EXPECT_EQ(toLong(" 7"), 7);
    EXPECT_EQ(toLong("7 "), -1);
    EXPECT_EQ(toLong("1.5"), -1);
    EXPECT_EQ(toLong("2147483647"), 2147483647);
    EXPECT_EQ(toLong("99999999999"), 2147483647);
    EXPECT_EQ(toLong("0xffffffff"), 2147483647);
}

TEST(NumberParsers, IntTellsBadTextByMinusTwo)
{
    EXPECT_EQ(toInt(""), 0);
    EXPECT_EQ(toInt("12"), 12);
    EXPECT_EQ(toInt("12x"), -2);
    EXPECT_EQ(toInt("-5"), -5);
    EXPECT_EQ(toInt("-1"), -1);
    EXPECT_EQ(toInt("-2"), -2);
    EXPECT_EQ(toInt("0x10"), 16);
    EXPECT_EQ(toInt("-0x10"), -16);
    EXPECT_EQ(toInt("010"), 8);
    EXPECT_EQ(toInt("09"), -2);
    EXPECT_EQ(toInt("x"), -2);
    EXPECT_EQ(toInt("-"), -2);
    EXPECT_EQ(toInt("2147483647"), INT_MAX);
    EXPECT_EQ(toInt("-2147483648"), INT_MIN);
    EXPECT_EQ(toInt("4294967297"), INT_MAX);
    EXPECT_EQ(toInt("-99999999999"), INT_MIN);
}

TEST(Accounts, LooksUpUsersAndGroupsOrGivesMinus99)
{
    EXPECT_EQ(get_uid("root"), 0);
    EXPECT_EQ(get_gid("root"), 0);
    EXPECT_EQ(get_uid("kelvo-no-such-user"), -99);
    EXPECT_EQ(get_gid("kelvo-no-such-group"), -99);
    EXPECT_EQ(get_uid(""), -99);
}
