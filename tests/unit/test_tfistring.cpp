// trcTfiString, trcTfiExc and trcTfiInputFile.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trctfiexc.h"
#include "trctfiinput.h"
#include "trctfistring.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tfitest::failureOf;

namespace {

const std::string text79(79, 'a');
const std::string text80(80, 'b');

} // namespace

TEST(TfiString, DefaultIsEmptyAndLocal)
{
    trcTfiString s;
    EXPECT_TRUE(s.isLocal());
    EXPECT_STREQ(s, "");
}

TEST(TfiString, SeventyNineBytesStayLocalEightyGoToTheHeap)
{
    trcTfiString c79(text79.c_str()), c80(text80.c_str());
    EXPECT_TRUE(c79.isLocal());
    EXPECT_FALSE(c80.isLocal());
    EXPECT_EQ(std::string(c80), text80);

    trcTfiString a79, a80;
    a79 = text79.c_str();
    a80 = text80.c_str();
    EXPECT_TRUE(a79.isLocal());
    EXPECT_FALSE(a80.isLocal());
    EXPECT_EQ(std::string(a80), text80);

    trcTfiString p79("x"), p80("x");
    p79 += text79.substr(1).c_str();
    p80 += text79.c_str();
    EXPECT_TRUE(p79.isLocal());
    EXPECT_FALSE(p80.isLocal());
    EXPECT_EQ(std::string(p80), "x" + text79);

    trcTfiString s79, s80;
    s79.assign(text79.c_str(), 79);
    s80.assign(text80.c_str(), 80);
    EXPECT_TRUE(s79.isLocal());
    EXPECT_FALSE(s80.isLocal());
    EXPECT_EQ(std::string(s80), text80);

    trcTfiString j79, j80;
    j79.assign(text79.substr(0, 40).c_str(), text79.substr(40).c_str());
    j80.assign(text80.substr(0, 40).c_str(), text80.substr(40).c_str());
    EXPECT_TRUE(j79.isLocal());
    EXPECT_FALSE(j80.isLocal());
    EXPECT_EQ(std::string(j79), text79);
    EXPECT_EQ(std::string(j80), text80);
}

TEST(TfiString, AssigningItsOwnTextChangesNothing)
{
    trcTfiString heap(text80.c_str());
    const char* before = heap;
    heap = static_cast<const char*>(heap);
    EXPECT_EQ(static_cast<const char*>(heap), before);
    EXPECT_EQ(std::string(heap), text80);
    trcTfiString& same = heap;
    heap = same;
    EXPECT_EQ(static_cast<const char*>(heap), before);
    EXPECT_EQ(std::string(heap), text80);
}

TEST(TfiString, AssigningATailOfItsOwnHeapTextKeepsItReadable)
{
    trcTfiString s((text80 + "tail").c_str());
    s = static_cast<const char*>(s) + 80;
    EXPECT_EQ(std::string(s), "tail");
    EXPECT_TRUE(s.isLocal());
}

TEST(TfiString, AssignOfAShorterTextKeepsTheHeapBlock)
{
    trcTfiString s(text80.c_str());
    const char* block = s;
    s.assign("short", 5);
    EXPECT_EQ(static_cast<const char*>(s), block);
    EXPECT_STREQ(s, "short");
    // Longer than the current text but below 80: still the same block.
    s.assign(text79.c_str(), 79);
    EXPECT_EQ(static_cast<const char*>(s), block);
    EXPECT_EQ(std::string(s), text79);
    // 80 bytes and longer than the current text: a new block.
    std::string text100(100, 'c');
    s.assign(text100.c_str(), 100);
    EXPECT_NE(static_cast<const char*>(s), block);
    EXPECT_EQ(std::string(s), text100);
}

TEST(TfiString, AssignTakesUnterminatedBytes)
{
    const char bytes[] = {'a', 'b', 'c', 'd'};
    trcTfiString s("previous text");
    s.assign(bytes, 3);
    EXPECT_STREQ(s, "abc");
    s.assign(bytes, 0u);
    EXPECT_STREQ(s, "");
}

TEST(TfiString, AssignOfTwoEmptyTextsIsEmpty)
{
    trcTfiString s("something");
    s.assign("", "");
    EXPECT_STREQ(s, "");
    trcTfiString heap(text80.c_str());
    heap.assign("", "");
    EXPECT_STREQ(heap, "");
}

TEST(TfiString, AppendAcrossTheLimitKeepsTheOldTextInFront)
{
    trcTfiString local("front-");
    local += text80.c_str();
    EXPECT_EQ(std::string(local), "front-" + text80);
    EXPECT_FALSE(local.isLocal());

    trcTfiString heap(text80.c_str());
    const char* block = heap;
    heap += "+more";
    EXPECT_NE(static_cast<const char*>(heap), block);
    EXPECT_EQ(std::string(heap), text80 + "+more");

    trcTfiString within("ab");
    within += "cd";
    EXPECT_STREQ(within, "abcd");
    EXPECT_TRUE(within.isLocal());
}

TEST(TfiString, CopiesAreIndependent)
{
    trcTfiString heap(text80.c_str());
    trcTfiString copy(heap);
    EXPECT_NE(static_cast<const char*>(copy), static_cast<const char*>(heap));
    heap = "changed";
    EXPECT_EQ(std::string(copy), text80);
    trcTfiString other;
    other = copy;
    copy = "x";
    EXPECT_EQ(std::string(other), text80);
}

TEST(TfiExc, CarriesCodeMessageAndItsOwnCopyOfTheFileName)
{
    trcTfiExc none(trcTfiExcMemory, "not enough memory");
    EXPECT_EQ(none.code, trcTfiExcMemory);
    EXPECT_STREQ(none.message, "not enough memory");
    EXPECT_EQ(none.file, nullptr);
    EXPECT_EQ(none.line, 0);

    std::string name = "/some/dir/x.tfi";
    trcTfiExc placed(trcTfiExcSyntax, "invalid token", name.c_str(), 12);
    name.assign(name.size(), '#');  // the walk's text changes or goes
    ASSERT_NE(placed.file, nullptr);
    EXPECT_STREQ(placed.file, "/some/dir/x.tfi");
    EXPECT_EQ(placed.line, 12);

    trcTfiExc copy(placed);
    EXPECT_NE(copy.file, placed.file);
    EXPECT_STREQ(copy.file, "/some/dir/x.tfi");
    EXPECT_STREQ(copy.message, "invalid token");
    EXPECT_EQ(copy.code, trcTfiExcSyntax);
    EXPECT_EQ(copy.line, 12);
}

TEST(TfiExc, ALongMessageIsKeptWhole)
{
    std::string longText(300, 'm');
    trcTfiExc e(trcTfiExcFile, longText.c_str());
    EXPECT_EQ(std::string(e.message), longText);
}

TEST(TfiInputFile, ReadsAWholeFile)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", "hello\n");
    trcTfiInputFile input(path.c_str());
    EXPECT_EQ(std::string(input.name), path);
    ASSERT_EQ(input.size(), 6u);
    char buffer[6];
    input.read(buffer, 6);
    EXPECT_EQ(std::string(buffer, 6), "hello\n");
}

TEST(TfiInputFile, EmptyFileHasSizeZeroAndReadsZeroBytes)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("empty.tfi", "");
    trcTfiInputFile input(path.c_str());
    EXPECT_EQ(input.size(), 0u);
    char buffer[1];
    EXPECT_EQ(failureOf([&] { input.read(buffer, 0); }), "no failure");
}

TEST(TfiInputFile, FailuresNameTheFile)
{
    kelvotest::TempDir dir;
    std::string missing = dir.file("missing.tfi");
    EXPECT_EQ(failureOf([&] { trcTfiInputFile input(missing.c_str()); }),
              "5|Error opening file " + missing + "|(null)|0");

    // A directory opens but cannot be read.
    EXPECT_EQ(failureOf([&] {
                  trcTfiInputFile input(dir.path().c_str());
                  char buffer[16];
                  input.read(buffer, sizeof buffer);
              }),
              "5|Could not read from file " + dir.path() + "|(null)|0");

    std::string path = dir.write("short.tfi", "abc");
    EXPECT_EQ(failureOf([&] {
                  trcTfiInputFile input(path.c_str());
                  char buffer[8];
                  input.read(buffer, 8);
              }),
              "5|Could not read all bytes in file " + path + "|(null)|0");

    EXPECT_EQ(failureOf([&] {
                  trcTfiInputFile input(path.c_str());
                  ::close(input.descriptor);
                  input.descriptor = -1;
                  input.size();
              }),
              "5|Could not get size of file " + path + "|(null)|0");
}

TEST(TfiInputFile, AMessageWithALongPathIsDeliveredWhole)
{
    kelvotest::TempDir dir;
    std::string missing = dir.file(std::string(120, 'n') + ".tfi");
    EXPECT_EQ(failureOf([&] { trcTfiInputFile input(missing.c_str()); }),
              "5|Error opening file " + missing + "|(null)|0");
}
