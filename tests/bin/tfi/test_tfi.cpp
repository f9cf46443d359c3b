// The .tfi reader: its strings, failures and input files, the lexer, the
// parser and the search for the .tfi files.
#include "tfi_support.h"
#include "run_tool.h"

#include "trctfientry.h"
#include "trctfifilename.h"
#include "trctfiinput.h"
#include "trctfistring.h"
#include "trctfitoken.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace kelvotest;

namespace {

using list = std::vector<std::string>;
const std::string text80(80, 'b');

// Texts below 80 bytes live in the object, longer ones on the heap.
void expectText(const trcTfiString& s, const std::string& text)
{
    EXPECT_EQ(std::string(s), text);
    EXPECT_EQ(s.isLocal(), text.size() < 80) << text.size();
}

// Every token (lex) or entry of content until the input ends, a failure
// added as "!code|message|@|line". A token reads "type:text" (":value" added
// for values), an entry "kind:p.c.k.f:name" with "-" as the kind of "bldlvl".
list read(const std::string& content, bool lex)
{
    TempDir dir;
    std::string path = dir.write("t.tfi", content);
    list items;
    std::string failure = failureOf(
        [&] {
            if (lex) {
                trcTfiTokenFactory factory(path.c_str());
                for (factory.advance(); *factory.cursor != '\0'; factory.advance()) {
                    trcTfiToken t(factory);
                    items.push_back(
                        std::to_string(t.type) + ":" + static_cast<const char*>(t.text) +
                        (t.type == trcTfiTokenValue ? std::string(":").append(std::to_string(t.value)) : ""));
                }
                return;
            }
            for (trcTfiEntryFactory factory(path.c_str()); !factory.isEmpty();) {
                trcTfiEntry e(factory);
                std::string item = e.kind == trcTfiEntryNone ? "-:" : std::to_string(e.kind) + ":";
                for (int i = 0; i < 4; ++i)
                    item += std::to_string(e.ids[i]) + (i < 3 ? "." : ":");
                items.push_back(item + static_cast<const char*>(e.name));
            }
        },
        path);
    if (failure != "no failure")
        items.push_back("!" + failure);
    return items;
}

// The failure, or the last entry, of content.
std::string last(const std::string& content)
{
    list entries = read(content, false);
    return entries.empty() ? "(nothing)" : entries.back();
}

const std::string range = "!3|Value is out of range|@|", end = "!3|unexpected end of input|@|";
const std::string head = "tfiversion 1\nbldlvl \"lvl\"\n", pc = head + "product P 1 component C 1 ";

// What the file search finds in a child with TRCTFIDIR and KELVO_HOME as
// given (nullopt: unset) working in cwd, unprivileged if asked: "directory:
// paths" sorted, since readdir gives no order, or the failure.
std::string found(const std::optional<std::string>& tfiDir, const std::optional<std::string>& home,
                  const std::string& cwd, bool unprivileged = false)
{
    RunResult r = captureChild([&] {
        setEnv("TRCTFIDIR", tfiDir);
        setEnv("KELVO_HOME", home);
        if (::chdir(cwd.c_str()) != 0 || (unprivileged && ::geteuid() == 0 && ::setuid(65534) != 0))
            std::exit(3);
        std::string listing;
        std::string failure = failureOf([&] {
            trcTfiFilenameFactory files;
            list paths;
            while (!files.isEmpty())
                paths.push_back(static_cast<const char*>(files.fileName));
            std::sort(paths.begin(), paths.end());
            listing = std::string(files.directory) + ":";
            for (const std::string& path : paths)
                listing += " " + path;
            if (!files.isEmpty())
                listing += " (not empty after the end)";
        });
        std::fputs((listing.empty() ? failure : listing).c_str(), stdout);
    });
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, childReturned);
    return r.out;
}

}  // namespace

TEST(TfiString, LocalOrHeapCopiesAssignAndAppend)
{
    expectText(trcTfiString(), "");
    for (const std::string& t : {std::string(79, 'a'), text80}) {
        trcTfiString made(t.c_str()), assigned, counted, joined, appended("x");
        assigned = t.c_str();
        counted.assign(t.c_str(), static_cast<unsigned>(t.size()));
        joined.assign(t.substr(0, 40).c_str(), t.substr(40).c_str());
        appended += t.c_str() + 1;
        for (const trcTfiString* s : {&made, &assigned, &counted, &joined})
            expectText(*s, t);
        expectText(appended, std::string("x").append(t, 1));
    }
    // Assigning a string its own text, or a part of it, before it goes.
    trcTfiString heap(text80.c_str()), tail((text80 + "tail").c_str());
    heap = static_cast<const char*>(heap);
    trcTfiString& same = heap;
    heap = same;
    expectText(heap, text80);
    tail = static_cast<const char*>(tail) + 80;
    expectText(tail, "tail");
    trcTfiString copy(heap), other;
    heap = "changed";
    other = copy;
    copy = "x";
    EXPECT_EQ(std::string(other), text80);
    const char bytes[] = {'a', 'b', 'c', 'd'};  // not terminated
    heap.assign(bytes, 3);
    EXPECT_STREQ(heap, "abc");
    other.assign("", "");
    EXPECT_STREQ(other, "");
    trcTfiString within("ab"), grown("front-");
    within += "cd";
    grown += text80.c_str();
    grown += "+more";
    expectText(within, "abcd");
    expectText(grown, "front-" + text80 + "+more");
    expectText(grown.assign(text80.c_str(), grown), text80 + "front-" + text80 + "+more");
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
    EXPECT_EQ(failureOf([&] { throw copy; }), "3|invalid token|/some/dir/x.tfi|12");
}

TEST(TfiInputFile, ReadsWholeFilesAndNamesTheFileInFailures)
{
    TempDir dir;
    std::string path = dir.write("a.tfi", "hello\n"), shortFile = dir.write("short.tfi", "abc");
    trcTfiInputFile input(path.c_str());
    ASSERT_EQ(input.size(), 6u);
    char buffer[16];
    input.read(buffer, 6);
    EXPECT_EQ(std::string(buffer, 6), "hello\n");
    std::string missing = dir.file(std::string(120, 'n') + ".tfi");
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

// No leading zero or sign, the delimiter tested before the range; bytes
// outside the classes and tokens not followed by white space are invalid.
TEST(TfiToken, ClassesDelimitersAndFailures)
{
    const std::string n80(80, 'n'), q500(500, 'q');
    const struct {
        std::string in;
        list out;
    } rows[] = {
        {"tfiversion bldlvl product component class function Product classes function_\n",
         {"3:tfiversion", "4:bldlvl", "5:product", "6:component", "7:class", "8:function", "0:Product", "0:classes",
          "0:function_"}},
        {"_a Z9_x\tb\v1\f9\r10\n255 \"a b\" \"\"",
         {"0:_a", "0:Z9_x", "0:b", "1:1:1", "1:9:9", "1:10:10", "1:255:255", "2:a b", "2:"}},
        {n80 + " \"" + q500 + "\"", {"0:" + n80, "2:" + q500}},
        {"1 2\n\n99999999999999999999999999\n", {"1:1:1", "1:2:2", range + "3"}},
        {"ok\nname:x\n", {"0:ok", "!3|invalid token|@|2"}},
        // Any byte inside quotes; line feeds there are not counted.
        {"\"\xc3\xa9\xff # - ~\"\n", {"2:\xc3\xa9\xff # - ~"}},
        {"\"a\n\n\nb\" 256\n", {"2:a\n\n\nb", range + "1"}},
        {"\n\"open\nstring\n", {end + "2"}},
        // A zero byte ends the input.
        {std::string("a b \0c d\n", 9), {"0:a", "0:b"}},
        {std::string("a b\0c d\n", 8), {"0:a", end + "1"}},
        {std::string("\"ab\0\"", 5), {end + "1"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(read(row.in, true), row.out) << row.in;
    for (const char* in : {"0\n", "-5\n", "12a\n", "300x\n", "# c\n", "\x80\n", "a\"b\"\n", "\"s\"x\n"})
        EXPECT_EQ(read(in, true), list{"!3|invalid token|@|1"}) << in;
}

// The line of a token is read right behind it; the caller names the type it expects.
TEST(TfiToken, LineNumbersAndExpectedTypes)
{
    TempDir dir;
    for (const auto& [content, line] : {std::pair<std::string, int>{"", 2}, {"a\nb\nc\n", 5}, {"  \t \r\n", 3}}) {
        std::string path = dir.write("t.tfi", content);
        trcTfiTokenFactory factory(path.c_str());
        const std::string failure = failureOf(
            [&] {
                for (;;)
                    trcTfiToken token(factory);
            },
            path);
        EXPECT_EQ("!" + failure, end + std::to_string(line));
        EXPECT_EQ(factory.line(), line);
    }
    std::string path = dir.write("t.tfi", "\n\nfirst\n\n second\n12\n\"q\"\n");
    trcTfiTokenFactory factory(path.c_str());
    trcTfiToken first(factory, trcTfiTokenName, "expected a name");
    EXPECT_EQ(factory.line(), 3);
    trcTfiToken second(factory);
    EXPECT_EQ(factory.line(), 5);
    EXPECT_STREQ(first.text, "first");
    EXPECT_EQ(failureOf([&] { trcTfiToken t(factory, trcTfiTokenQuoted, "expected a string"); }, path),
              "3|expected a string|@|6");
    trcTfiToken quoted(factory, trcTfiTokenQuoted, "expected a string");
    EXPECT_STREQ(quoted.text, "q");
    EXPECT_EQ(factory.file(), path.c_str());
}

// The same numbers twice, numbers in any order; classes restart at 1 in each
// component; a later "tfiversion" is a product without a name, a later
// "bldlvl" has no kind.
TEST(TfiEntry, EntriesLevelsAndCounters)
{
    EXPECT_EQ(read(head + "product P 9 component C 4 class A class B component C 4 class D product Q 2 "
                          "component E 200 class F g tfiversion 7 bldlvl \"again\"\n",
                   false),
              (list{"0:1.0.0.0:", "-:0.0.0.0:lvl", "0:9.0.0.0:P", "1:9.4.0.0:C", "2:9.4.1.0:A", "2:9.4.2.0:B",
                    "1:9.4.0.0:C", "2:9.4.1.0:D", "0:2.0.0.0:Q", "1:2.200.0.0:E", "2:2.200.1.0:F", "3:2.200.1.1:g",
                    "0:7.0.0.0:", "-:0.0.0.0:again"}));
    EXPECT_EQ(last(pc + "class A f g class B h\n"), "3:1.1.2.1:h");
    EXPECT_EQ(read(" \n\t\n", false), list{});
    std::string classes = pc, functions = pc + "class K\n";
    for (int i = 1; i <= 255; ++i) {
        classes.append("class K").append(std::to_string(i)).append("\n");
        functions.append("f").append(std::to_string(i)).append("\n");
    }
    EXPECT_EQ(last(classes), "2:1.1.255.0:K255");
    EXPECT_EQ(last(classes + "class Over\n"), "!3|too many class specifications|@|258");
    EXPECT_EQ(last(functions), "3:1.1.1.255:f255");
    EXPECT_EQ(last(functions + "over\n"), "!3|too many function specifications|@|259");
    TempDir dir;
    std::string blank = dir.write("blank.tfi", "  \n\n");
    trcTfiEntryFactory factory(blank.c_str());
    EXPECT_TRUE(factory.isEmpty());
    EXPECT_EQ(failureOf([&] { trcTfiEntry e(factory); }, blank), "6|internal error: no more entries in file|@|4");
}

// "product" tests the state before reading its tokens, "component" and
// "class" after; a product or a later tfiversion closes component and class.
TEST(TfiEntry, StateRulesOrderOfChecksAndTokenTexts)
{
    const std::string entryStart = "!3|expected 'product', 'component', 'class' or function name|@|";
    const std::pair<std::string, std::string> rows[] = {
        {"bldlvl \"x\"\n", "!3|missing tfiversion specification|@|1"},
        {"product P 1\n", "!3|missing tfiversion specification|@|1"},
        {"tfiversion 1\nproduct\n\n5 5\n", "!3|missing bldlvl specification|@|2"},
        {"component 5\n", "!3|expected component name|@|1"},
        {"component C\nC\n", "!3|expected component value|@|2"},
        {"class 5\n", "!3|expected class name|@|1"},
        {"\ncomponent\nC\n\n7\n\n", "!3|missing product specification|@|5"},
        {"class\n\nK\n\n", "!3|missing component specification|@|3"},
        {"fnc\n", "!3|missing class specification|@|1"},
        {pc + "class A f product Q 2 g\n", "!3|missing class specification|@|3"},
        {pc + "class A f product Q 2 class K\n", "!3|missing component specification|@|3"},
        {pc + "class A tfiversion 7 component D 2\n", "!3|missing product specification|@|3"},
        {"tfiversion x\n", "!3|expected TFI version number|@|1"},
        {"tfiversion 1 bldlvl lvl\n", "!3|expected build level|@|1"},
        {head + "product class 1\n", "!3|expected product name|@|3"},
        {head + "product P Q\n", "!3|expected product value|@|3"},
        {pc + "class K function\n", entryStart + "3"},
        {head + "\"s\"\n", entryStart + "3"},
        {"tfiversion", end + "2"},
        {head + "product P 256\n", range + "3"},
    };
    for (const auto& [in, failure] : rows)
        EXPECT_EQ(last(in), failure) << in;
}

// Only names ending in ".tfi" qualify. TRCTFIDIR is the first and only
// try; without it KELVO_HOME/etc, and without that the current directory.
TEST(TfiFilename, DirectoryChoice)
{
    TempDir tfi, home, cwd, locked;
    for (const char* name : {"a.tfi", ".tfi", "b.TFI", "c.tfi~", "c.tfi.bak", "tfi", "e.tfix"})
        tfi.write(name, "");
    ::mkdir(tfi.file("sub.tfi").c_str(), 0700);
    ::mkdir(home.file("etc").c_str(), 0700);
    home.write("etc/h.tfi", "");
    cwd.write("c.tfi", "");
    const std::string t = tfi.path(), h = home.path(), c = cwd.path();
    const std::string noTfiDir = "2|Could not open dir in TRCTFIDIR|(null)|0",
                      noCwd = "5|Could not open current directory|(null)|0";
    const struct {
        std::optional<std::string> tfiDir, home;
        std::string expected;
    } rows[] = {
        {t, h, t + ": " + t + "/.tfi " + t + "/a.tfi " + t + "/sub.tfi"},
        {h, {}, h + ":"},
        {t + "/missing", h, noTfiDir},
        {"", h, noTfiDir},
        {{}, h, h + "/etc: " + h + "/etc/h.tfi"},
        {{}, c, noCwd},  // no etc below KELVO_HOME: the current directory is not tried
        {{}, {}, ".: ./c.tfi"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(found(row.tfiDir, row.home, c), row.expected)
            << row.tfiDir.value_or("-") << " " << row.home.value_or("-");
    EXPECT_EQ(found({}, "", c).substr(0, 5), "/etc:");
    ::chmod(locked.path().c_str(), 0);
    EXPECT_EQ(found({}, {}, locked.path(), true), noCwd);
    ::chmod(locked.path().c_str(), 0700);
}
