// Mask text to record and back.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "trcmask.h"

namespace {

using Mask = std::array<unsigned char, trcMaskBytes>;

// The values selected in one map, read bit by bit.
std::set<int> valuesOf(const Mask& mask, int map)
{
    std::set<int> values;
    for (int v = 0; v < 256; ++v) {
        if (mask[map * trcMaskMapBytes + v / 8] & (1 << (v % 8))) {
            values.insert(v);
        }
    }
    return values;
}

std::set<int> everyValue()
{
    std::set<int> all;
    for (int v = 0; v < 256; ++v) {
        all.insert(v);
    }
    return all;
}

void setValue(Mask& mask, int map, int value)
{
    mask[map * trcMaskMapBytes + value / 8] |= static_cast<unsigned char>(1 << (value % 8));
}

Mask parsed(const char* text)
{
    Mask mask;
    mask.fill(0x5a);
    EXPECT_EQ(trcStrToMask(text, mask.data()), 0) << text;
    return mask;
}

bool refused(const char* text)
{
    Mask mask{};
    return trcStrToMask(text, mask.data()) == -1;
}

bool crashRefused(const char* text)
{
    Mask mask{};
    return trcCrashStrToMask(text, mask.data()) == -1;
}

std::string text(Mask mask)
{
    std::vector<char> buffer(trcMaskTextMax + 1, '#');
    int length = trcMaskToStr(mask.data(), buffer.data());
    std::string result(buffer.data());
    EXPECT_EQ(length, static_cast<int>(result.size()));
    return result;
}

std::string roundTrip(const char* maskText)
{
    return text(parsed(maskText));
}

} // namespace

TEST(MaskText, AllSelectingForms)
{
    Mask all;
    all.fill(0xff);
    EXPECT_EQ(parsed("*"), all);
    EXPECT_EQ(parsed("*.*.*.*.*.*"), all);
    EXPECT_EQ(parsed("0-255"), all);
    EXPECT_EQ(text(all), "*.*.*.*.*.*");

    Mask one = parsed("1");
    EXPECT_EQ(valuesOf(one, 0), std::set<int>{1});
    for (int map = 1; map < 6; ++map) {
        EXPECT_EQ(valuesOf(one, map), everyValue()) << map;
    }
}

TEST(MaskText, DimensionsFillTheirOwnMaps)
{
    Mask m = parsed("1.2.3.4.5.6");
    for (int map = 0; map < 6; ++map) {
        EXPECT_EQ(valuesOf(m, map), std::set<int>{map + 1}) << map;
    }
    // Value 9 of map 1 is bit 1 of byte 33.
    Mask nine = parsed("*.9");
    EXPECT_EQ(nine[32 + 1], 0x02);
    EXPECT_EQ(nine[33], 0x02);
    EXPECT_EQ(nine[32], 0x00);

    Mask items = parsed("1,3-5,4");
    EXPECT_EQ(valuesOf(items, 0), (std::set<int>{1, 3, 4, 5}));
    EXPECT_EQ(valuesOf(parsed("5-5"), 0), std::set<int>{5});
    EXPECT_EQ(valuesOf(parsed("1,*"), 0), everyValue());
    EXPECT_EQ(valuesOf(parsed("*,1"), 0), everyValue());
    EXPECT_EQ(valuesOf(parsed("007"), 0), std::set<int>{7});
    EXPECT_EQ(valuesOf(parsed("255"), 0), std::set<int>{255});
    EXPECT_EQ(valuesOf(parsed("1.2.3.4.5.250-255"), 5), (std::set<int>{250, 251, 252, 253, 254, 255}));
}

TEST(MaskText, RefusedTexts)
{
    const char* bad[] = {
        "",       "1.2.3.4.5.6.7", "*.*.*.*.*.*.", "256", "1-256", "300", "0-999",
        "99999999999999999999999", "4294967297", "1-4294967297", "5-3", "1-", "-3",
        "1-2-3", "*2", "**", "1-*", "1,,2", "1..2", "1.", "1,", ".1", "a", " 1", "1 ",
        "+1", "0x1", "1;2", ",1", "*-3",
    };
    for (const char* t : bad) {
        EXPECT_TRUE(refused(t)) << '"' << t << '"';
    }
    Mask mask{};
    EXPECT_EQ(trcStrToMask(nullptr, mask.data()), -1);
}

TEST(MaskText, CanonicalTexts)
{
    EXPECT_EQ(roundTrip("1.50,51.*.*"), "1.50-51.*.*.*.*");
    EXPECT_EQ(roundTrip("0,2,255"), "0,2,255.*.*.*.*.*");
    EXPECT_EQ(roundTrip("1,200-255"), "1,200-255.*.*.*.*.*");
    EXPECT_EQ(roundTrip("255"), "255.*.*.*.*.*");
    EXPECT_EQ(roundTrip("0-254"), "0-254.*.*.*.*.*");
    EXPECT_EQ(roundTrip("1-255"), "1-255.*.*.*.*.*");
    EXPECT_EQ(roundTrip("9,8,7,10.3-4,1"), "7-10.1,3-4.*.*.*.*");
    EXPECT_EQ(roundTrip("1.2.3.4.5.6"), "1.2.3.4.5.6");
    EXPECT_EQ(roundTrip("99,100,101"), "99-101.*.*.*.*.*");

    Mask empty{};
    EXPECT_EQ(text(empty), ".....");
    EXPECT_TRUE(refused("....."));
}

// Every map holding the values that are not 1 modulo 3 gives the longest
// text there is; it must fit the stated room exactly.
TEST(MaskText, LongestTextFitsTheBuffer)
{
    Mask mask{};
    for (int map = 0; map < 6; ++map) {
        for (int v = 0; v < 256; ++v) {
            if (v % 3 != 1) {
                setValue(mask, map, v);
            }
        }
    }
    std::vector<char> exact(trcMaskTextMax + 1);
    EXPECT_EQ(trcMaskToStr(mask.data(), exact.data()), trcMaskTextMax);
    std::string t(exact.data());
    EXPECT_EQ(t.substr(0, 12), "0,2-3,5-6,8-");
    EXPECT_EQ(t.substr(t.size() - 8), ",254-255");
    Mask back{};
    ASSERT_EQ(trcStrToMask(exact.data(), back.data()), 0);
    EXPECT_EQ(back, mask);
}

TEST(MaskText, RoundTripOfRandomRecords)
{
    std::mt19937 random(20261122u);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> style(0, 3);
    for (int round = 0; round < 2000; ++round) {
        Mask mask{};
        for (int map = 0; map < 6; ++map) {
            int s = style(random);
            for (int b = 0; b < trcMaskMapBytes; ++b) {
                int v = byte(random);
                // Sparse, dense, full and mixed maps, so runs of all lengths occur.
                if (s == 0) {
                    v &= byte(random) & byte(random);
                } else if (s == 1) {
                    v |= byte(random);
                } else if (s == 2) {
                    v = (b % 5 == 0) ? 0xff : v;
                }
                mask[map * trcMaskMapBytes + b] = static_cast<unsigned char>(v);
            }
            setValue(mask, map, byte(random));  // never an empty map
        }
        std::string t = text(mask);
        Mask back{};
        ASSERT_EQ(trcStrToMask(t.c_str(), back.data()), 0) << t;
        ASSERT_EQ(back, mask) << t;
        ASSERT_EQ(text(back), t);
    }
}

TEST(MaskText, CrashMask)
{
    Mask m{};
    ASSERT_EQ(trcCrashStrToMask("1.2.3.4.5.6", m.data()), 0);
    for (int map = 0; map < 5; ++map) {
        EXPECT_EQ(valuesOf(m, map), std::set<int>{map + 2}) << map;
    }
    EXPECT_EQ(valuesOf(m, 5), everyValue());

    ASSERT_EQ(trcCrashStrToMask(".2", m.data()), 0);
    EXPECT_EQ(text(m), "2.*.*.*.*.*");
    ASSERT_EQ(trcCrashStrToMask("*.2", m.data()), 0);
    EXPECT_EQ(text(m), "2.*.*.*.*.*");
    ASSERT_EQ(trcCrashStrToMask("1-3,7.2", m.data()), 0);
    EXPECT_EQ(text(m), "2.*.*.*.*.*");
    // The first field is skipped without being read as a number.
    ASSERT_EQ(trcCrashStrToMask("999-1.0-3", m.data()), 0);
    EXPECT_EQ(text(m), "0-3.*.*.*.*.*");

    // Behind the skipped field stand up to six dimensions of their own.
    ASSERT_EQ(trcCrashStrToMask("1.2.3.4.5.6.7", m.data()), 0);
    EXPECT_EQ(text(m), "2.3.4.5.6.7");

    for (const char* t : {"1", "1.", "", "a.2", "1.a", "1.2.3.4.5.6.7.8", "1 .2", "1..2"}) {
        EXPECT_TRUE(crashRefused(t)) << '"' << t << '"';
    }
    EXPECT_EQ(trcCrashStrToMask(nullptr, m.data()), -1);
}

TEST(MaskText, SelectionTestsAllSixMaps)
{
    Mask m = parsed("1.2.3.4.5.6");
    const unsigned char pass[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(trcMaskSelects(m.data(), pass));
    for (int map = 0; map < 6; ++map) {
        unsigned char ids[6] = {1, 2, 3, 4, 5, 6};
        ids[map] = 7;
        EXPECT_FALSE(trcMaskSelects(m.data(), ids)) << map;
    }
}
