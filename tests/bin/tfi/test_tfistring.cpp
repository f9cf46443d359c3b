// trcTfiString, trcTfiExc and trcTfiInputFile.
#include "tfi_support.h"
#include "run_tool.h"

#include "trctfiinput.h"
#include "trctfistring.h"

#include <gtest/gtest.h>

#include <unistd.h>

using kelvotest::failureOf;

namespace {

const std::string text79(79, 'a');
const std::string text80(80, 'b');

// Texts below 80 bytes live in the object, longer ones on the heap.
void expectText(const trcTfiString& s, const std::string& text)
{
    EXPECT_EQ(std::string(s), text);
    EXPECT_EQ(s.isLocal(), text.size() < 80) << text.size();
}

}  // namespace

TEST(TfiString, SeventyNineBytesStayLocalEightyGoToTheHeap)
{
    expectText(trcTfiString(), "");
    for (const std::string& t : {text79, text80}) {
        trcTfiString made(t.c_str()), assigned, counted, joined, appended("x");
        assigned = t.c_str();
        counted.assign(t.c_str(), static_cast<unsigned>(t.size()));
        joined.assign(t.substr(0, 40).c_str(), t.substr(40).c_str());
        appended += t.c_str() + 1;
        for (const trcTfiString* s : {&made, &assigned, &counted, &joined})
            expectText(*s, t);
        expectText(appended, std::string("x").append(t, 1));
    }
}

TEST(TfiString, SelfAssignmentAndCopies)
{
    trcTfiString heap(text80.c_str()), tail((text80 + "tail").c_str());
    heap = static_cast<const char*>(heap);
    trcTfiString& same = heap;
    heap = same;
    expectText(heap, text80);
    tail = static_cast<const char*>(tail) + 80;
    expectText(tail, "tail");
    trcTfiString copy(heap), other;
    heap = "changed";
    EXPECT_EQ(std::string(copy), text80);
    other = copy;
    copy = "x";
    EXPECT_EQ(std::string(other), text80);
}

TEST(TfiString, AssignAndAppend)
{
    trcTfiString s(text80.c_str());
    s.assign("short", 5);
    EXPECT_STREQ(s, "short");
    s.assign(text79.c_str(), 79);  // longer than the text, shorter than the block
    EXPECT_EQ(std::string(s), text79);
    s.assign(std::string(100, 'c').c_str(), 100);
    EXPECT_EQ(std::string(s), std::string(100, 'c'));
    const char bytes[] = {'a', 'b', 'c', 'd'};  // not terminated
    s.assign(bytes, 3);
    EXPECT_STREQ(s, "abc");
    s.assign(bytes, 0u);
    EXPECT_STREQ(s, "");
    trcTfiString small("something"), large(text80.c_str());
    for (trcTfiString* t : {&small, &large}) {
        t->assign("", "");
        EXPECT_STREQ(*t, "");
    }
    trcTfiString local("front-"), heap(text80.c_str()), within("ab");
    local += text80.c_str();
    heap += "+more";
    within += "cd";
    expectText(local, "front-" + text80);
    expectText(heap, text80 + "+more");
    expectText(within, "abcd");
}

TEST(TfiExc, CarriesCodeMessageAndItsOwnCopyOfTheFileName)
{
    trcTfiExc none(trcTfiExcMemory, "not enough memory");
    EXPECT_EQ(failureOf([&] { throw none; }), "4|not enough memory|(null)|0");
    std::string name = "/some/dir/x.tfi";
    trcTfiExc placed(trcTfiExcSyntax, "invalid token", name.c_str(), 12);
    name.assign(name.size(), '#');  // the walk's text changes or goes
    trcTfiExc copy(placed);
    EXPECT_NE(copy.file, placed.file);
    for (const trcTfiExc* e : {&placed, &copy})
        EXPECT_EQ(failureOf([&] { throw *e; }), "3|invalid token|/some/dir/x.tfi|12");
    std::string longText(300, 'm');
    EXPECT_EQ(std::string(trcTfiExc(trcTfiExcFile, longText.c_str()).message), longText);
}

TEST(TfiInputFile, ReadsWholeFilesAndNamesTheFileInFailures)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("a.tfi", "hello\n"), empty = dir.write("empty.tfi", "");
    trcTfiInputFile input(path.c_str()), none(empty.c_str());
    EXPECT_EQ(std::string(input.name), path);
    ASSERT_EQ(input.size(), 6u);
    char buffer[16];
    input.read(buffer, 6);
    EXPECT_EQ(std::string(buffer, 6), "hello\n");
    EXPECT_EQ(none.size(), 0u);
    EXPECT_EQ(failureOf([&] { none.read(buffer, 0); }), "no failure");

    std::string missing = dir.file(std::string(120, 'n') + ".tfi"), shortFile = dir.write("short.tfi", "abc");
    EXPECT_EQ(failureOf([&] { trcTfiInputFile f(missing.c_str()); }), "5|Error opening file " + missing + "|(null)|0");
    EXPECT_EQ(failureOf([&] { trcTfiInputFile(dir.path().c_str()).read(buffer, sizeof buffer); }),
              "5|Could not read from file " + dir.path() + "|(null)|0");  // a directory opens but cannot be read
    EXPECT_EQ(failureOf([&] { trcTfiInputFile(shortFile.c_str()).read(buffer, 8); }),
              "5|Could not read all bytes in file " + shortFile + "|(null)|0");
    EXPECT_EQ(failureOf([&] {
                  trcTfiInputFile f(shortFile.c_str());
                  ::close(f.descriptor);
                  f.descriptor = -1;
                  f.size();
              }),
              "5|Could not get size of file " + shortFile + "|(null)|0");
}
