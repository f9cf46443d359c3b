// The usage printer, the number parsers and the account look-ups.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcentry.h"
#include "trcmsg.h"

TEST(Usage, PrintsErrorThenUsageAndExitsOne)
{
    const struct {
        int usageMessage, errorMessage;
        std::string out;
    } cases[] = {
        {2, 100, "Too many arguments.\n\nUsage: kelvo clr|clear\n"},
        {7, -1, "Usage: kelvo off\n"},
        // A text with a newline of its own keeps it: the format adds one more.
        {3, 117, std::string(trcMsgGet(117)) + "\n\n" + trcMsgGet(3) + "\n"},
    };
    for (const auto& c : cases) {
        const auto run = kelvotest::captureChild([&] { usage(c.usageMessage, c.errorMessage); });
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
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
        {"0X1f", 31, 31},
        {"08", -1, -2},
        {"0x", -1, -2},
        {"-0", 0, 0},
        {"-1", -1, -1},
        {"-0x10", -1, -16},
        {"+7", 7, 7},
        {" 7", 7, 7},
        {"7 ", -1, -2},
        {"-", -1, -2},
        {"2147483647", 2147483647, INT_MAX},
        {"99999999999", 2147483647, INT_MAX},
        {"0xffffffff", 2147483647, INT_MAX},
        {"-2147483648", -1, INT_MIN},
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
    EXPECT_EQ(get_uid(""), -99);
}
