// Hexadecimal dump of a block of bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "trcbtos.h"

// The dump of the first count bytes, into exactly the room trcBinToStrSize
// asks for; the result must be the length of the text.
TEST(BinToStr, ExactDumps)
{
    const std::string pad(38, ' '), abc = "abcdefghijklmnop";
    const std::string line = "\t6162 6364 6566 6768 696a 6b6c 6d6e 6f70 abcdefghijklmnop\n";
    const std::string u16 = "\t5555 5555 5555 5555 5555 5555 5555 5555 UUUUUUUUUUUUUUUU\n";
    const struct {
        std::string bytes;
        int count;
        std::string dump;
    } cases[] = {
        {"", 0, ""},
        {"", -5, ""},
        {"A", 1, "\t41" + pad + "A\n"},
        {"AB ", 3, "\t4142 20" + std::string(33, ' ') + "AB \n"},
        {abc, 16, line},
        {abc + '\0', 17, line + "\t00" + pad + ".\n"},
        {std::string("\x7f\x80\x00\x20\x2e\xff\x1f", 7), 7, "\t7f80 0020 2eff 1f" + std::string(23, ' ') + "... ...\n"},
        {std::string(40, 'U'), 33, u16 + u16 + "\t55" + pad + "U\n"},
    };
    for (const auto& c : cases) {
        std::vector<char> dest(trcBinToStrSize(c.count), '#');
        const auto* bytes = c.bytes.empty() ? nullptr : reinterpret_cast<const unsigned char*>(c.bytes.data());
        const int length = trcBinToStr(c.count, bytes, dest.data());
        EXPECT_EQ(std::string(dest.data()), c.dump) << c.count;
        EXPECT_EQ(length, static_cast<int>(c.dump.size())) << c.count;
    }
    EXPECT_EQ(trcBinToStrSize(-1), 1u);
    EXPECT_EQ(trcBinToStrSize(2147483647), std::size_t{134217728} * 58 + 1);
}
