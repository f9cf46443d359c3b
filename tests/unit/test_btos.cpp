// Hexadecimal dump of a block of bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "trcbtos.h"

namespace {

std::string dump(const std::vector<unsigned char>& bytes, int count)
{
    std::vector<char> dest(trcBinToStrSize(count), '#');
    int length = trcBinToStr(count, bytes.data(), dest.data());
    std::string text(dest.data());
    EXPECT_EQ(length, static_cast<int>(text.size()));
    return text;
}

std::string dump(const std::vector<unsigned char>& bytes)
{
    return dump(bytes, static_cast<int>(bytes.size()));
}

} // namespace

TEST(BinToStr, EmptyInput)
{
    char dest[1] = {'#'};
    EXPECT_EQ(trcBinToStr(0, nullptr, dest), 0);
    EXPECT_EQ(dest[0], '\0');
    dest[0] = '#';
    EXPECT_EQ(trcBinToStr(-5, nullptr, dest), 0);
    EXPECT_EQ(dest[0], '\0');
    EXPECT_EQ(trcBinToStrSize(0), 1u);
    EXPECT_EQ(trcBinToStrSize(-1), 1u);
}

TEST(BinToStr, OneByte)
{
    std::string expected = "\t41" + std::string(38, ' ') + "A\n";
    EXPECT_EQ(dump({0x41}), expected);
    EXPECT_EQ(expected.size(), 43u);
}

TEST(BinToStr, FullLines)
{
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 16; ++i) {
        bytes.push_back(static_cast<unsigned char>('a' + i));
    }
    std::string line =
        "\t6162 6364 6566 6768 696a 6b6c 6d6e 6f70 abcdefghijklmnop\n";
    ASSERT_EQ(line.size(), 58u);
    EXPECT_EQ(dump(bytes), line);
    EXPECT_EQ(trcBinToStrSize(16), 59u);

    bytes.push_back(0x00);
    std::string second = "\t00" + std::string(38, ' ') + ".\n";
    EXPECT_EQ(dump(bytes), line + second);
    EXPECT_EQ(trcBinToStrSize(17), 117u);
    EXPECT_EQ(trcBinToStrSize(2147483647), std::size_t{134217728} * 58 + 1);
}

TEST(BinToStr, PaddingKeepsTheCharacterColumn)
{
    // Three bytes: a pair with its blank, a single byte, then padding for
    // columns 3 to 15.
    std::string expected = "\t2030 31" + std::string(33, ' ') + " 01\n";
    EXPECT_EQ(dump({0x20, 0x30, 0x31}), expected);
    EXPECT_EQ(expected.find(" 01"), 41u);

    std::string two = "\t4142 " + std::string(35, ' ') + "AB\n";
    EXPECT_EQ(dump({0x41, 0x42}), two);

    // Fifteen bytes: only column 15 is padded, with three blanks.
    std::vector<unsigned char> fifteen(15, 0x7e);
    std::string hex = "7e7e 7e7e 7e7e 7e7e 7e7e 7e7e 7e7e 7e   ";
    EXPECT_EQ(dump(fifteen), "\t" + hex + std::string(15, '~') + "\n");
}

TEST(BinToStr, UnprintableBytesShowAsDots)
{
    std::string expected = "\t7f80 0020 2eff 1f" + std::string(23, ' ') + "... ...\n";
    EXPECT_EQ(dump({0x7f, 0x80, 0x00, 0x20, 0x2e, 0xff, 0x1f}), expected);
}

TEST(BinToStr, CountLimitsWhatIsRead)
{
    std::vector<unsigned char> bytes(40, 0x55);
    std::string text = dump(bytes, 33);
    EXPECT_EQ(text.size(), 58u * 2 + 43u);
    EXPECT_EQ(text.substr(116), "\t55" + std::string(38, ' ') + "U\n");
    EXPECT_EQ(text.substr(0, 58), "\t5555 5555 5555 5555 5555 5555 5555 5555 UUUUUUUUUUUUUUUU\n");
}
