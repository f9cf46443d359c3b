// Mask text to record and back.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "trcmask.h"

namespace {

using Mask = std::array<unsigned char, trcMaskBytes>;

void setValue(Mask& mask, int map, int value)
{
    mask[map * trcMaskMapBytes + value / 8] |= static_cast<unsigned char>(1 << (value % 8));
}

std::string text(Mask mask)
{
    std::vector<char> buffer(trcMaskTextMax + 1, '#');
    const int length = trcMaskToStr(mask.data(), buffer.data());
    std::string result(buffer.data());
    EXPECT_EQ(length, static_cast<int>(result.size()));
    return result;
}

// The canonical text of what text parses to, or "refused".
std::string parsed(const char* maskText, bool crash = false)
{
    Mask mask;
    mask.fill(0x5a);
    const int rc = crash ? trcCrashStrToMask(maskText, mask.data()) : trcStrToMask(maskText, mask.data());
    return rc == 0 ? text(mask) : rc == -1 ? "refused" : "rc " + std::to_string(rc);
}

}  // namespace

// The crash mask skips its first field unread; behind it stand up to six
// fields of their own.
TEST(MaskText, AcceptedAndRefusedTexts)
{
    const struct {
        const char* maskText;
        bool crash;
        const char* canonical;
    } cases[] = {
        {"*", false, "*.*.*.*.*.*"},
        {"0-255", false, "*.*.*.*.*.*"},
        {"1,*", false, "*.*.*.*.*.*"},
        {"007", false, "7.*.*.*.*.*"},
        {"5-5", false, "5.*.*.*.*.*"},
        {"0,2,255", false, "0,2,255.*.*.*.*.*"},
        {"0-254", false, "0-254.*.*.*.*.*"},
        {"9,8,7,10.3-4,1", false, "7-10.1,3-4.*.*.*.*"},
        {"1.2.3.4.5.250-255", false, "1.2.3.4.5.250-255"},
        {"1.2.3.4.5.6", true, "2.3.4.5.6.*"},
        {".2", true, "2.*.*.*.*.*"},
        {"999-1,*.0-3", true, "0-3.*.*.*.*.*"},
        {"1.2.3.4.5.6.7", true, "2.3.4.5.6.7"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(parsed(c.maskText, c.crash), c.canonical) << c.maskText;
    }
    for (const char* maskText : {"", "1.2.3.4.5.6.7", "256", "1-256", "99999999999999999999999", "5-3", "1-", "1-2-3",
                                 "*2", "1,,2", "1.", " 1", "+1"}) {
        EXPECT_EQ(parsed(maskText), "refused") << '"' << maskText << '"';
    }
    for (const char* maskText : {"1", "a.2", "1.a", "1.2.3.4.5.6.7.8"}) {
        EXPECT_EQ(parsed(maskText, true), "refused") << '"' << maskText << '"';
    }
    Mask mask{};
    EXPECT_EQ(trcStrToMask(nullptr, mask.data()), -1);
    EXPECT_EQ(trcCrashStrToMask(nullptr, mask.data()), -1);
    EXPECT_EQ(text(mask), ".....");
}

// The bits themselves: value v of map m is bit v % 8 of byte 32 m + v / 8.
TEST(MaskText, BitsAndSelection)
{
    Mask nine, dims{}, back{};
    nine.fill(0xff);
    std::fill(nine.begin() + 32, nine.begin() + 64, 0);
    nine[33] = 0x02;
    for (int map = 0; map < 6; ++map) {
        setValue(dims, map, map + 1);
    }
    for (const auto& [maskText, expected] : {std::pair<const char*, const Mask&>{"*.9", nine}, {"1.2.3.4.5.6", dims}}) {
        EXPECT_EQ(trcStrToMask(maskText, back.data()), 0);
        EXPECT_EQ(back, expected) << maskText;
    }
    for (int map = -1; map < 6; ++map) {
        unsigned char ids[6] = {1, 2, 3, 4, 5, 6};
        if (map >= 0) {
            ids[map] = 7;
        }
        EXPECT_EQ(trcMaskSelects(dims.data(), ids), map < 0) << map;
    }
}

// Every map holding the values that are not 1 modulo 3 gives the longest
// text there is; it must fit the stated room exactly. Random masks of every
// density come back as they went.
TEST(MaskText, RoundTrips)
{
    Mask longest{};
    for (int v = 0; v < 6 * 256; ++v) {
        if (v % 256 % 3 != 1) {
            setValue(longest, v / 256, v % 256);
        }
    }
    const std::string t = text(longest);
    EXPECT_EQ(static_cast<int>(t.size()), trcMaskTextMax);
    EXPECT_EQ(t.substr(0, 12) + t.substr(t.size() - 8), "0,2-3,5-6,8-,254-255");
    std::mt19937 random(20261122u);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 2000; ++round) {
        Mask mask = longest;
        for (int map = 0; map < 6 && round > 0; ++map) {
            const int style = byte(random) % 4;  // sparse, dense, full or mixed maps
            for (int b = 0; b < trcMaskMapBytes; ++b) {
                const int v = byte(random);
                const int mixed[4] = {v & byte(random) & byte(random), v | byte(random), b % 5 ? v : 0xff, v};
                mask[map * trcMaskMapBytes + b] = static_cast<unsigned char>(mixed[style]);
            }
            setValue(mask, map, byte(random));  // never an empty map
        }
        Mask back{};
        ASSERT_EQ(trcStrToMask(text(mask).c_str(), back.data()), 0) << text(mask);
        ASSERT_EQ(back, mask) << text(mask);
    }
}
