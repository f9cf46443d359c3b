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

TEST(MaskText, AcceptedAndRefusedTexts)
{
    const std::pair<const char*, const char*> cases[] = {
        {"*", "*.*.*.*.*.*"},
        {"*.*.*.*.*.*", "*.*.*.*.*.*"},
        {"0-255", "*.*.*.*.*.*"},
        {"1,*", "*.*.*.*.*.*"},
        {"*,1", "*.*.*.*.*.*"},
        {"1", "1.*.*.*.*.*"},
        {"007", "7.*.*.*.*.*"},
        {"5-5", "5.*.*.*.*.*"},
        {"1,3-5,4", "1,3-5.*.*.*.*.*"},
        {"1.50,51.*.*", "1.50-51.*.*.*.*"},
        {"0,2,255", "0,2,255.*.*.*.*.*"},
        {"1,200-255", "1,200-255.*.*.*.*.*"},
        {"255", "255.*.*.*.*.*"},
        {"0-254", "0-254.*.*.*.*.*"},
        {"1-255", "1-255.*.*.*.*.*"},
        {"99,100,101", "99-101.*.*.*.*.*"},
        {"9,8,7,10.3-4,1", "7-10.1,3-4.*.*.*.*"},
        {"1.2.3.4.5.250-255", "1.2.3.4.5.250-255"},
    };
    for (const auto& [maskText, canonical] : cases) {
        EXPECT_EQ(parsed(maskText), canonical) << maskText;
    }
    const char* refused[] = {
        "",
        "1.2.3.4.5.6.7",
        "*.*.*.*.*.*.",
        "256",
        "1-256",
        "0-999",
        "99999999999999999999999",
        "4294967297",
        "1-4294967297",
        "5-3",
        "1-",
        "-3",
        "1-2-3",
        "*2",
        "**",
        "1-*",
        "1,,2",
        "1..2",
        "1.",
        "1,",
        ".1",
        "a",
        " 1",
        "1 ",
        "+1",
        "0x1",
        "1;2",
        ",1",
        "*-3",
        ".....",
    };
    for (const char* maskText : refused) {
        EXPECT_EQ(parsed(maskText), "refused") << '"' << maskText << '"';
    }
    Mask mask{};
    EXPECT_EQ(trcStrToMask(nullptr, mask.data()), -1);
    EXPECT_EQ(text(mask), ".....");
}

// The bits themselves: value v of map m is bit v % 8 of byte 32 m + v / 8.
TEST(MaskText, BitsAndSelection)
{
    Mask all, nine{}, dims{}, back{};
    all.fill(0xff);
    nine.fill(0xff);
    std::fill(nine.begin() + 32, nine.begin() + 64, 0);
    nine[33] = 0x02;
    for (int map = 0; map < 6; ++map) {
        setValue(dims, map, map + 1);
    }
    const std::pair<const char*, const Mask&> cases[] = {{"*", all}, {"*.9", nine}, {"1.2.3.4.5.6", dims}};
    for (const auto& [maskText, expected] : cases) {
        back.fill(0);
        EXPECT_EQ(trcStrToMask(maskText, back.data()), 0);
        EXPECT_EQ(back, expected) << maskText;
    }
    const unsigned char pass[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(trcMaskSelects(dims.data(), pass));
    for (int map = 0; map < 6; ++map) {
        unsigned char ids[6] = {1, 2, 3, 4, 5, 6};
        ids[map] = 7;
        EXPECT_FALSE(trcMaskSelects(dims.data(), ids)) << map;
    }
}

// Every map holding the values that are not 1 modulo 3 gives the longest
// text there is; it must fit the stated room exactly.
TEST(MaskText, LongestTextFitsTheBuffer)
{
    Mask mask{};
    for (int v = 0; v < 6 * 256; ++v) {
        if (v % 256 % 3 != 1) {
            setValue(mask, v / 256, v % 256);
        }
    }
    const std::string t = text(mask);
    EXPECT_EQ(static_cast<int>(t.size()), trcMaskTextMax);
    EXPECT_EQ(t.substr(0, 12), "0,2-3,5-6,8-");
    EXPECT_EQ(t.substr(t.size() - 8), ",254-255");
    Mask back{};
    ASSERT_EQ(trcStrToMask(t.c_str(), back.data()), 0);
    EXPECT_EQ(back, mask);
}

TEST(MaskText, RoundTripOfRandomRecords)
{
    std::mt19937 random(20261122u);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 2000; ++round) {
        Mask mask{};
        for (int map = 0; map < 6; ++map) {
            // Sparse, dense, full and mixed maps, so runs of all lengths occur.
            const int style = byte(random) % 4;
            for (int b = 0; b < trcMaskMapBytes; ++b) {
                const int v = byte(random);
                const int mixed[4] = {v & byte(random) & byte(random), v | byte(random), b % 5 ? v : 0xff, v};
                mask[map * trcMaskMapBytes + b] = static_cast<unsigned char>(mixed[style]);
            }
            setValue(mask, map, byte(random));  // never an empty map
        }
        const std::string t = text(mask);
        Mask back{};
        ASSERT_EQ(trcStrToMask(t.c_str(), back.data()), 0) << t;
        ASSERT_EQ(back, mask) << t;
        ASSERT_EQ(text(back), t);
    }
}

// The first field is skipped without being read; behind it stand up to six
// fields of their own.
TEST(MaskText, CrashMask)
{
    const std::pair<const char*, const char*> cases[] = {
        {"1.2.3.4.5.6", "2.3.4.5.6.*"},
        {".2", "2.*.*.*.*.*"},
        {"*.2", "2.*.*.*.*.*"},
        {"1-3,7.2", "2.*.*.*.*.*"},
        {"999-1.0-3", "0-3.*.*.*.*.*"},
        {"1.2.3.4.5.6.7", "2.3.4.5.6.7"},
        {"1", "refused"},
        {"1.", "refused"},
        {"", "refused"},
        {"a.2", "refused"},
        {"1.a", "refused"},
        {"1.2.3.4.5.6.7.8", "refused"},
        {"1 .2", "refused"},
        {"1..2", "refused"},
    };
    for (const auto& [maskText, canonical] : cases) {
        EXPECT_EQ(parsed(maskText, true), canonical) << '"' << maskText << '"';
    }
    Mask mask{};
    EXPECT_EQ(trcCrashStrToMask(nullptr, mask.data()), -1);
}
