// The name dictionary, the build level check and the rendering set-up.
#include "tfi_support.h"
#include "run_tool.h"

#include "trcrtosdict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A header whose products 1 to 4 carry "v1.0", "%W%", "ABCDEFGH" and
// "IJKLMNOP" (the last two without a terminating zero) if asked, the rest none.
trcHeader_t header(bool versions = true)
{
    trcHeader_t h{};
    for (auto& version : h.prodVersion)
        std::memcpy(version, TRC_NO_VERSION, 8);
    if (versions)
        std::memcpy(h.prodVersion[1], "v1.0\0\0\0\0%W%\0\0\0\0\0ABCDEFGHIJKLMNOP", 32);
    return h;
}

// Set-up on the given directory, or an empty one: the dictionary's defaults.
void setUp(const std::string& dir = kelvotest::TempDir().path()) { ASSERT_EQ(kelvotest::initNames(dir), 0); }

// The dictionary after a fresh set-up and reading each content as a file.
void build(std::initializer_list<std::string> contents)
{
    setUp();
    kelvotest::TempDir dir;
    trcHeader_t h = header(false);
    int n = 0;
    for (const std::string& content : contents)
        trcTfiBuildit(dir.write(std::to_string(n++) + ".tfi", content).c_str(), &h);
}

// Every name in the dictionary as " p=name p.c=name p.c.k=name p.c.k.f=name"
// in index order; tables still shared with the unnamed defaults are skipped.
std::string names()
{
    std::string out;
    auto add = [&out](const char* name, const std::string& at) {
        if (name != noName0)
            out += " " + at + "=" + name;
    };
    for (int p = 0; p < 256; ++p) {
        add(trcNameProd[p], std::to_string(p));
        bool named = trcNameComp[p] != noName1 || trcNameClass[p] != noName2 || trcNameFnc[p] != noName3;
        for (int c = 0; c < 256 && named; ++c) {
            std::string pc = std::to_string(p) + "." + std::to_string(c);
            add(trcNameComp[p][c], pc);
            for (int k = 0; k < 256 && (trcNameClass[p][c] != noName1 || trcNameFnc[p][c] != noName2); ++k) {
                add(trcNameClass[p][c][k], pc + "." + std::to_string(k));
                for (int f = 0; f < 256 && trcNameFnc[p][c][k] != noName1; ++f)
                    add(trcNameFnc[p][c][k][f], pc + "." + std::to_string(k) + "." + std::to_string(f));
            }
        }
    }
    return out;
}

const std::string head = "tfiversion 1\nbldlvl \"lvl\"\n";

// Runs trcRecToStrInit on dir in a child: "result|what it printed".
std::string initIn(const std::string& dir)
{
    kelvotest::RunResult r = kelvotest::captureChild([&] {
        ::setenv("TRCTFIDIR", dir.c_str(), 1);
        trcHeader_t h = header();
        std::printf("%d", trcRecToStrInit(&h));
    });
    EXPECT_EQ(r.status, kelvotest::childReturned);
    return r.out + "|" + r.err;
}

}  // namespace

// 39 events have names, 16 wide below event 20 and 12 wide from there.
TEST(RtosDict, DefaultsAndEventNames)
{
    setUp();
    EXPECT_STREQ(noName0, "? ");
    EXPECT_STREQ(sUnexpandedSign, "%W%");
    EXPECT_EQ(names(), "");
    EXPECT_EQ(trcNameFnc[255][255][255][255], noName0);
    EXPECT_EQ(trcNameFnc[3][4][5], noName1);
    std::string named = "|";
    for (int e = 0; e < 256; ++e) {
        if (trcNameEvent[e] != noName0) {
            named += std::to_string(e) + "=" + trcNameEvent[e] + "|";
            EXPECT_EQ(std::strlen(trcNameEvent[e]), e < 20 ? 16u : 12u) << e;
        }
    }
    EXPECT_EQ(std::count(named.begin(), named.end(), '|'), 40);
    for (const char* name :
         {"|1=ALERT_ERROR     |", "|7=NON-FATAL_ERROR |", "|14=DBG_ERRCODE     |", "|22=api_entry   |",
          "|43=cii_exit    |", "|64=dbg_printf  |", "|100=prf_entry   |", "|101=prf_exit    |"})
        EXPECT_NE(named.find(name), std::string::npos) << name;
}

TEST(RtosDict, NamesOfFilesTheFirstEntryWins)
{
    build({head + "product Alpha 3\ncomponent Core 7\nclass Reader\nopen\nclose\n"
                  "class Writer\nflush\ncomponent Net 9\nclass Socket\nconnect\n"});
    EXPECT_EQ(names(), " 3=Alpha 3.7=Core 3.7.1=Reader 3.7.1.1=open 3.7.1.2=close 3.7.2=Writer 3.7.2.1=flush 3.9=Net "
                       "3.9.1=Socket 3.9.1.1=connect");
    // Across two files: a name new under a level the first file named is added.
    build({head + "product First 7 component Core 1 class A a1 class B\n",
           head + "product Second 7 component Other 1 class X x1 x2 class Y y1 class Z z1 component New 2 "
                  "class N n1\n"});
    EXPECT_EQ(names(), " 7=First 7.1=Core 7.1.1=A 7.1.1.1=a1 7.1.1.2=x2 7.1.2=B 7.1.2.1=y1 7.1.3=Z 7.1.3.1=z1 7.2=New "
                       "7.2.1=N 7.2.1.1=n1");
    // Within a file; a later "tfiversion" names a free product with the empty text.
    build({head + "product P 1 component C 5 class K1 f1\nproduct Q 1 component D 5 class K2 g1 g2 class K3\n"
                  "tfiversion 4 tfiversion 1 bldlvl \"x\"\n"});
    EXPECT_EQ(names(), " 1=P 1.5=C 1.5.1=K1 1.5.1.1=f1 1.5.1.2=g2 1.5.2=K3 4=");
}

TEST(RtosDict, BuilditFailuresAndStrNew)
{
    kelvotest::TempDir dir;
    trcHeader_t h = header();
    std::string v2 = dir.write("v2.tfi", "\ntfiversion 2\nbldlvl \"x\"\n");
    EXPECT_EQ(kelvotest::failureOf([&] { trcTfiBuildit(v2.c_str(), &h); }, v2), "3|Wrong tfiversion; should be 1|@|2");
    std::string text(200, 's');
    EXPECT_EQ(std::string(strNew(text.c_str())), text);
    EXPECT_STREQ(strNew(""), "");
}

TEST(RtosDict, ProdVersionCheck)
{
    trcHeader_t h = header();
    std::memcpy(sUnexpandedSign, "%W%", 4);
    const struct {
        const char* level;
        int product, due;
    } rows[] = {
        {"%W%", 0, 1},      {"%W%", 2, 1},
        {"v1.0", 2, 1},                  // an unexpanded level on either side is always due
        {"anything", 0, 0}, {"", 0, 0},  // no version in the trace: silence
        {"v1.0", 1, 0},     {"@(#) v1.0 built today", 1, 0},
        {"v1.1", 1, 1},     {"", 1, 1},
        {"ABCDEFGH", 3, 0}, {"ABCDEFGHIJ", 3, 0},
        {"ABCDEFG", 3, 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(trcIsProdVersionOK(row.level, &h, row.product), row.due) << row.level << " " << row.product;
}

TEST(RtosDict, BuildLevelWarnings)
{
    kelvotest::TempDir dir;
    const struct {
        std::string content, level;
        std::vector<std::string> versions;
    } rows[] = {
        {"tfiversion 1 bldlvl \"%W%\" product A 1 product B 5 product A 1\n",
         "%W%",
         {"    v1.0", " .......", "    v1.0"}},
        {"tfiversion 1 bldlvl \"@(#) v2.0\" product A 1 product B 2 product C 5 product D 3 tfiversion 1\n",
         "v2.0",
         {"    v1.0", "     %W%", "ABCDEFGH", "    v1.0"}},
        // No level in the file; a matching level; a later "bldlvl" changes nothing.
        {"tfiversion 1 bldlvl \"  \" product D 4 bldlvl \"IJKLMNOP\" product D 4\n",
         "not specified",
         {"IJKLMNOP", "IJKLMNOP"}},
        {"tfiversion 1 bldlvl \"v1.0 more\" product A 1 product B 9 product D 3\n", "v1.0", {"ABCDEFGH"}},
    };
    for (const auto& row : rows) {
        std::string path = dir.write("w.tfi", row.content), expected;
        for (const std::string& version : row.versions)
            expected +=
                "file " + path + ": incorrect bldlvl, it is <" + row.level + ">.  It should be " + version + "\n";
        EXPECT_EQ(initIn(dir.path()), "0|" + expected);
    }
}

TEST(RtosDict, SetUpFailuresEndWithOneReport)
{
    kelvotest::TempDir dir;
    EXPECT_EQ(initIn(dir.file("nowhere")), "2|Could not open dir in TRCTFIDIR\n");
    std::string empty = dir.write("empty.tfi", "");
    EXPECT_EQ(initIn(dir.path()), "6|file " + empty + ", line 2 : internal error: no more entries in file\n");
    std::remove(empty.c_str());
    ::mkdir(dir.file("sub.tfi").c_str(), 0700);
    EXPECT_EQ(initIn(dir.path()), "5|Could not read from file " + dir.file("sub.tfi") + "\n");
    // The first failing file ends the walk, whichever readdir gives first.
    ::rmdir(dir.file("sub.tfi").c_str());
    for (const char* name : {"a.tfi", "b.tfi", "c.tfi"})
        dir.write(name, "tfiversion 2\n");
    std::string r = initIn(dir.path());
    EXPECT_EQ(std::count(r.begin(), r.end(), '\n'), 1) << r;
    EXPECT_EQ(r.find("3|file " + dir.path() + "/"), 0u) << r;
    EXPECT_NE(r.find(".tfi, line 1 : Wrong tfiversion; should be 1\n"), std::string::npos) << r;
}

TEST(RtosDict, SetUpReadsEveryFileOfTheDirectoryAndStartsAfresh)
{
    kelvotest::TempDir dir;
    dir.write("a.tfi", head + "product A 1 component C 1 class K f\n");
    dir.write("b.tfi", head + "product B 2\n");
    dir.write("c.txt", "not read at all");
    setUp(dir.path());
    EXPECT_EQ(names(), " 1=A 1.1=C 1.1.1=K 1.1.1.1=f 2=B");
    EXPECT_STREQ(trcNameEvent[22], "api_entry   ");
    setUp();
    EXPECT_EQ(names(), "");
}
