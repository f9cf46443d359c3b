// The name dictionary, the build level check and the rendering set-up.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trcrtos.h"
#include "trcrtosdict.h"
#include "trctfiexc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>

using tfitest::EnvGuard;
using tfitest::failureOf;

namespace {

trcHeader_t emptyHeader()
{
    trcHeader_t header;
    std::memset(&header, 0, sizeof header);
    for (auto& version : header.prodVersion)
        std::memcpy(version, TRC_NO_VERSION, 8);
    return header;
}

void setVersion(trcHeader_t& header, int product, const char* text)
{
    std::memset(header.prodVersion[product], 0, 8);
    std::memcpy(header.prodVersion[product], text, std::min<std::size_t>(8, std::strlen(text)));
}

// Set-up on an empty directory: the dictionary's defaults.
void resetDictionary()
{
    kelvotest::TempDir empty;
    EnvGuard tfiDir("TRCTFIDIR", empty.path());
    trcHeader_t header = emptyHeader();
    ASSERT_EQ(trcRecToStrInit(&header), 0);
}

std::string fnc(unsigned p, unsigned c, unsigned k, unsigned f) { return trcNameFnc[p][c][k][f]; }

const std::string head = "tfiversion 1\nbldlvl \"lvl\"\n";

// Runs trcRecToStrInit on dir in a child; its output is the result code.
kelvotest::RunResult initIn(const std::string& dir, const trcHeader_t& header)
{
    return kelvotest::captureChild([&] {
        ::setenv("TRCTFIDIR", dir.c_str(), 1);
        std::printf("%d", trcRecToStrInit(&header));
    });
}

} // namespace

TEST(RtosDict, WithoutTfiFilesEveryNameIsUnknown)
{
    resetDictionary();
    EXPECT_STREQ(noName0, "? ");
    for (unsigned n : {0u, 1u, 7u, 128u, 255u}) {
        EXPECT_EQ(trcNameProd[n], noName0);
        EXPECT_EQ(trcNameComp[n][255 - n], noName0);
        EXPECT_EQ(trcNameClass[n][n][n], noName0);
        EXPECT_EQ(trcNameFnc[255 - n][n][3][n], noName0);
    }
    EXPECT_EQ(trcNameComp[3], noName1);
    EXPECT_EQ(trcNameClass[3][4], noName1);
    EXPECT_EQ(trcNameFnc[3][4][5], noName1);
    EXPECT_STREQ(sUnexpandedSign, "%W%");
}

TEST(RtosDict, EventNamesAreFixedAndPadded)
{
    resetDictionary();
    EXPECT_STREQ(trcNameEvent[1], "ALERT_ERROR     ");
    EXPECT_STREQ(trcNameEvent[7], "NON-FATAL_ERROR ");
    EXPECT_STREQ(trcNameEvent[14], "DBG_ERRCODE     ");
    EXPECT_STREQ(trcNameEvent[22], "api_entry   ");
    EXPECT_STREQ(trcNameEvent[43], "cii_exit    ");
    EXPECT_STREQ(trcNameEvent[64], "dbg_printf  ");
    EXPECT_STREQ(trcNameEvent[100], "prf_entry   ");
    EXPECT_STREQ(trcNameEvent[101], "prf_exit    ");
    int named = 0;
    for (int e = 0; e < 256; ++e) {
        if (trcNameEvent[e] == noName0)
            continue;
        ++named;
        EXPECT_EQ(std::strlen(trcNameEvent[e]), e < 20 ? 16u : 12u) << e;
    }
    EXPECT_EQ(named, 39);
    for (int e : {0, 8, 9, 15, 19, 25, 39, 65, 99, 102, 255})
        EXPECT_EQ(trcNameEvent[e], noName0) << e;
}

TEST(RtosDict, NamesOfAFile)
{
    resetDictionary();
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", head + "product Alpha 3\ncomponent Core 7\nclass Reader\nopen\nclose\n"
                                                 "class Writer\nflush\ncomponent Net 9\nclass Socket\nconnect\n");
    trcHeader_t header = emptyHeader();
    trcTfiBuildit(path.c_str(), &header);
    EXPECT_STREQ(trcNameProd[3], "Alpha");
    EXPECT_STREQ(trcNameComp[3][7], "Core");
    EXPECT_STREQ(trcNameComp[3][9], "Net");
    EXPECT_STREQ(trcNameClass[3][7][1], "Reader");
    EXPECT_STREQ(trcNameClass[3][7][2], "Writer");
    EXPECT_EQ(fnc(3, 7, 1, 1), "open");
    EXPECT_EQ(fnc(3, 7, 1, 2), "close");
    EXPECT_EQ(fnc(3, 7, 2, 1), "flush");
    EXPECT_EQ(fnc(3, 9, 1, 1), "connect");
    // What the file does not name.
    EXPECT_EQ(trcNameFnc[3][7][1][5], noName0);
    EXPECT_EQ(trcNameFnc[3][7][3][1], noName0);
    EXPECT_EQ(trcNameFnc[3][8][1][1], noName0);
    EXPECT_EQ(trcNameFnc[4][7][1][1], noName0);
    EXPECT_EQ(trcNameClass[3][7][0], noName0);
    EXPECT_EQ(trcNameFnc[3][7][1][0], noName0);
    EXPECT_EQ(trcNameComp[3][0], noName0);
    EXPECT_EQ(trcNameProd[1], noName0);
}

TEST(RtosDict, AFileWithOnlyVersionAndLevelAddsNothing)
{
    resetDictionary();
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", head);
    trcHeader_t header = emptyHeader();
    trcTfiBuildit(path.c_str(), &header);
    for (int p = 0; p < 256; ++p)
        EXPECT_EQ(trcNameProd[p], noName0);
}

TEST(RtosDict, TheFirstEntryWinsAcrossFiles)
{
    resetDictionary();
    kelvotest::TempDir dir;
    std::string first = dir.write("1.tfi", head + "product First 7 component Core 1 class A a1 class B\n");
    std::string second = dir.write("2.tfi", head + "product Second 7 component Other 1 class X x1 x2 class Y y1 "
                                                   "class Z z1 component New 2 class N n1\n");
    trcHeader_t header = emptyHeader();
    trcTfiBuildit(first.c_str(), &header);
    trcTfiBuildit(second.c_str(), &header);
    EXPECT_STREQ(trcNameProd[7], "First");
    EXPECT_STREQ(trcNameComp[7][1], "Core");
    EXPECT_STREQ(trcNameComp[7][2], "New");
    EXPECT_STREQ(trcNameClass[7][1][1], "A");
    EXPECT_STREQ(trcNameClass[7][1][2], "B");
    EXPECT_STREQ(trcNameClass[7][1][3], "Z");
    EXPECT_EQ(fnc(7, 1, 1, 1), "a1");
    // A function new under a class that the first file named is added.
    EXPECT_EQ(fnc(7, 1, 1, 2), "x2");
    EXPECT_EQ(fnc(7, 1, 2, 1), "y1");
    EXPECT_EQ(fnc(7, 1, 3, 1), "z1");
    EXPECT_EQ(fnc(7, 2, 1, 1), "n1");
}

TEST(RtosDict, TheFirstEntryWinsWithinAFile)
{
    resetDictionary();
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", head + "product P 1 component C 5 class K1 f1\n"
                                                 "product Q 1 component D 5 class K2 g1 g2 class K3\n");
    trcHeader_t header = emptyHeader();
    trcTfiBuildit(path.c_str(), &header);
    EXPECT_STREQ(trcNameProd[1], "P");
    EXPECT_STREQ(trcNameComp[1][5], "C");
    EXPECT_STREQ(trcNameClass[1][5][1], "K1");
    EXPECT_STREQ(trcNameClass[1][5][2], "K3");
    EXPECT_EQ(fnc(1, 5, 1, 1), "f1");
    EXPECT_EQ(fnc(1, 5, 1, 2), "g2");
}

TEST(RtosDict, ALaterTfiversionNamesAFreeProductWithTheEmptyText)
{
    resetDictionary();
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", head + "product P 1 tfiversion 4 tfiversion 1 bldlvl \"x\"\n");
    trcHeader_t header = emptyHeader();
    trcTfiBuildit(path.c_str(), &header);
    EXPECT_STREQ(trcNameProd[4], "");
    EXPECT_NE(trcNameProd[4], noName0);
    EXPECT_STREQ(trcNameProd[1], "P");
    EXPECT_EQ(trcNameComp[4][1], noName0);
}

TEST(RtosDict, FailuresOfBuildit)
{
    kelvotest::TempDir dir;
    trcHeader_t header = emptyHeader();
    std::string v2 = dir.write("v2.tfi", "\ntfiversion 2\nbldlvl \"x\"\n");
    EXPECT_EQ(failureOf([&] { trcTfiBuildit(v2.c_str(), &header); }),
              "3|Wrong tfiversion; should be 1|" + v2 + "|2");
    std::string empty = dir.write("e.tfi", "");
    EXPECT_EQ(failureOf([&] { trcTfiBuildit(empty.c_str(), &header); }),
              "6|internal error: no more entries in file|" + empty + "|2");
    std::string bad = dir.write("b.tfi", head + "product P 1\nproduct ~\n");
    EXPECT_EQ(failureOf([&] { trcTfiBuildit(bad.c_str(), &header); }), "3|invalid token|" + bad + "|4");
    std::string missing = dir.file("m.tfi");
    EXPECT_EQ(failureOf([&] { trcTfiBuildit(missing.c_str(), &header); }),
              "5|Error opening file " + missing + "|(null)|0");
}

TEST(RtosDict, ProdVersionCheckInOrder)
{
    trcHeader_t header = emptyHeader();
    std::memcpy(sUnexpandedSign, "%W%", 4);
    setVersion(header, 1, "v1.0");
    setVersion(header, 2, "%W%");
    std::memcpy(header.prodVersion[3], "ABCDEFGH", 8);  // no terminating zero
    // Unexpanded file level: always due, also against "......." and a match.
    EXPECT_EQ(trcIsProdVersionOK("%W%", &header, 0), 1);
    EXPECT_EQ(trcIsProdVersionOK("%W%", &header, 2), 1);
    // Unexpanded version in the trace.
    EXPECT_EQ(trcIsProdVersionOK("v1.0", &header, 2), 1);
    // No version in the trace: silence.
    EXPECT_EQ(trcIsProdVersionOK("anything", &header, 0), 0);
    EXPECT_EQ(trcIsProdVersionOK("", &header, 0), 0);
    // The level as trcGetBldLvl reads it.
    EXPECT_EQ(trcIsProdVersionOK("v1.0", &header, 1), 0);
    EXPECT_EQ(trcIsProdVersionOK("@(#) v1.0 built today", &header, 1), 0);
    EXPECT_EQ(trcIsProdVersionOK("v1.1", &header, 1), 1);
    EXPECT_EQ(trcIsProdVersionOK("", &header, 1), 1);
    EXPECT_EQ(trcIsProdVersionOK("ABCDEFGH", &header, 3), 0);
    EXPECT_EQ(trcIsProdVersionOK("ABCDEFGHIJ", &header, 3), 0);
    EXPECT_EQ(trcIsProdVersionOK("ABCDEFG", &header, 3), 1);
}

TEST(RtosDict, StrNewCopies)
{
    std::string text(200, 's');
    char* copy = strNew(text.c_str());
    EXPECT_NE(copy, text.c_str());
    EXPECT_EQ(std::string(copy), text);
    EXPECT_STREQ(strNew(""), "");
}

// The version is printed eight characters wide, right-aligned.
TEST(RtosDict, BuildLevelWarnings)
{
    kelvotest::TempDir dir;
    trcHeader_t header = emptyHeader();
    setVersion(header, 1, "v1.0");
    setVersion(header, 2, "%W%");
    std::memcpy(header.prodVersion[3], "ABCDEFGH", 8);
    std::memcpy(header.prodVersion[4], "IJKLMNOP", 8);

    dir.write("w.tfi", "tfiversion 1 bldlvl \"%W%\" product A 1 product B 5 product A 1\n");
    std::string w = dir.file("w.tfi");
    kelvotest::RunResult r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "0");
    EXPECT_EQ(r.err, "file " + w + ": incorrect bldlvl, it is <%W%>.  It should be     v1.0\n"
                     "file " + w + ": incorrect bldlvl, it is <%W%>.  It should be  .......\n"
                     "file " + w + ": incorrect bldlvl, it is <%W%>.  It should be     v1.0\n");
    std::remove(w.c_str());

    dir.write("x.tfi", "tfiversion 1 bldlvl \"@(#) v2.0\" product A 1 product B 2 product C 5 product D 3 "
                       "tfiversion 1\n");
    std::string x = dir.file("x.tfi");
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "0");
    EXPECT_EQ(r.err, "file " + x + ": incorrect bldlvl, it is <v2.0>.  It should be     v1.0\n"
                     "file " + x + ": incorrect bldlvl, it is <v2.0>.  It should be      %W%\n"
                     "file " + x + ": incorrect bldlvl, it is <v2.0>.  It should be ABCDEFGH\n"
                     "file " + x + ": incorrect bldlvl, it is <v2.0>.  It should be     v1.0\n");
    std::remove(x.c_str());

    // No level in the file; a matching level; a later "bldlvl" changes nothing.
    dir.write("y.tfi", "tfiversion 1 bldlvl \"  \" product D 4 bldlvl \"IJKLMNOP\" product D 4\n");
    std::string y = dir.file("y.tfi");
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.err, "file " + y + ": incorrect bldlvl, it is <not specified>.  It should be IJKLMNOP\n"
                     "file " + y + ": incorrect bldlvl, it is <not specified>.  It should be IJKLMNOP\n");
    std::remove(y.c_str());

    dir.write("z.tfi", "tfiversion 1 bldlvl \"v1.0 more\" product A 1 product B 9 product D 3\n");
    std::string z = dir.file("z.tfi");
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "0");
    EXPECT_EQ(r.err, "file " + z + ": incorrect bldlvl, it is <v1.0>.  It should be ABCDEFGH\n");
}

TEST(RtosDict, SetUpFailuresEndWithOneReport)
{
    trcHeader_t header = emptyHeader();
    kelvotest::TempDir dir;
    kelvotest::RunResult r = initIn(dir.file("nowhere"), header);
    EXPECT_EQ(r.out, "2");
    EXPECT_EQ(r.err, "Could not open dir in TRCTFIDIR\n");
    EXPECT_EQ(r.status, kelvotest::childReturned);

    std::string empty = dir.write("empty.tfi", "");
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "6");
    EXPECT_EQ(r.err, "file " + empty + ", line 2 : internal error: no more entries in file\n");
    std::remove(empty.c_str());

    std::string v2 = dir.write("v2.tfi", "tfiversion 2 bldlvl \"x\"\n");
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "3");
    EXPECT_EQ(r.err, "file " + v2 + ", line 1 : Wrong tfiversion; should be 1\n");
    std::remove(v2.c_str());

    ::mkdir(dir.file("sub.tfi").c_str(), 0700);
    r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "5");
    EXPECT_EQ(r.err, "Could not read from file " + dir.file("sub.tfi") + "\n");
}

TEST(RtosDict, TheFirstFailingFileEndsTheWalk)
{
    trcHeader_t header = emptyHeader();
    kelvotest::TempDir dir;
    for (const char* name : {"a.tfi", "b.tfi", "c.tfi"})
        dir.write(name, "tfiversion 3\n");
    kelvotest::RunResult r = initIn(dir.path(), header);
    EXPECT_EQ(r.out, "3");
    // One report only, whichever file came first.
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(", line 1 : Wrong tfiversion; should be 1\n"), std::string::npos);
}

TEST(RtosDict, SetUpReadsEveryFileOfTheDirectory)
{
    kelvotest::TempDir dir;
    dir.write("a.tfi", head + "product A 1 component C 1 class K f\n");
    dir.write("b.tfi", head + "product B 2\n");
    dir.write("c.txt", "not read at all");
    EnvGuard tfiDir("TRCTFIDIR", dir.path());
    trcHeader_t header = emptyHeader();
    ASSERT_EQ(trcRecToStrInit(&header), 0);
    EXPECT_STREQ(trcNameProd[1], "A");
    EXPECT_STREQ(trcNameProd[2], "B");
    EXPECT_EQ(fnc(1, 1, 1, 1), "f");
    EXPECT_STREQ(trcNameEvent[22], "api_entry   ");
    // A second set-up starts from the defaults.
    resetDictionary();
    EXPECT_EQ(trcNameProd[1], noName0);
    EXPECT_EQ(trcNameFnc[1][1][1][1], noName0);
}
