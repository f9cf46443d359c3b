// The .tfi parser: the entries, the state rules and the order of checks.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trctfientry.h"
#include "trctfiexc.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using list = std::vector<std::string>;

// Every entry of content as "kind:p.c.k.f:name" until the input ends, the
// kind of a "bldlvl" entry as "-"; a failure adds "!code|message|line".
list parse(const std::string& content)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("e.tfi", content);
    list entries;
    try {
        trcTfiEntryFactory factory(path.c_str());
        while (!factory.isEmpty()) {
            trcTfiEntry e(factory);
            std::string kind = e.kind == trcTfiEntryNone ? "-" : std::to_string(e.kind);
            entries.push_back(kind + ":" + std::to_string(e.ids[0]) + "." + std::to_string(e.ids[1]) + "." +
                              std::to_string(e.ids[2]) + "." + std::to_string(e.ids[3]) + ":" +
                              static_cast<const char*>(e.name));
        }
    } catch (const trcTfiExc& e) {
        EXPECT_EQ(std::string(e.file), path);
        entries.push_back("!" + std::to_string(e.code) + "|" + static_cast<const char*>(e.message) + "|" +
                          std::to_string(e.line));
    }
    return entries;
}

// The last item of parse: the failure, or the last entry.
std::string lastOf(const std::string& content) { return parse(content).back(); }

const std::string head = "tfiversion 1\nbldlvl \"lvl\"\n";

} // namespace

TEST(TfiEntry, ASmallFileEntryByEntry)
{
    EXPECT_EQ(parse(head + "product Alpha 3\ncomponent Core 7\nclass Reader\nopen\nclose\n"
                           "class Writer\nflush\ncomponent Net 9\nclass Socket\nconnect\n"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:lvl", "0:3.0.0.0:Alpha", "1:3.7.0.0:Core", "2:3.7.1.0:Reader",
                    "3:3.7.1.1:open", "3:3.7.1.2:close", "2:3.7.2.0:Writer", "3:3.7.2.1:flush",
                    "1:3.9.0.0:Net", "2:3.9.1.0:Socket", "3:3.9.1.1:connect"}));
}

TEST(TfiEntry, AWholeFileOnOneLineAndEntriesOverSeveralLines)
{
    EXPECT_EQ(parse("tfiversion 1 bldlvl \"b\" product P 1 component C 2 class K f g"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:b", "0:1.0.0.0:P", "1:1.2.0.0:C", "2:1.2.1.0:K", "3:1.2.1.1:f",
                    "3:1.2.1.2:g"}));
    EXPECT_EQ(parse("tfiversion\n\n1\nbldlvl\n\"b\"\nproduct\nP\n5\n"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:b", "0:5.0.0.0:P"}));
}

TEST(TfiEntry, EndOfEntries)
{
    EXPECT_EQ(parse(" \n\t\n"), (list{}));
    kelvotest::TempDir dir;
    std::string blank = dir.write("blank.tfi", "  \n\n");
    trcTfiEntryFactory factory(blank.c_str());
    EXPECT_TRUE(factory.isEmpty());
    EXPECT_TRUE(factory.isEmpty());
    EXPECT_EQ(tfitest::failureOf([&] { trcTfiEntry e(factory); }),
              "6|internal error: no more entries in file|" + blank + "|4");

    std::string onlyVersion = dir.write("v.tfi", "tfiversion 1\n");
    trcTfiEntryFactory second(onlyVersion.c_str());
    trcTfiEntry version(second);
    EXPECT_EQ(version.ids[version.kind], 1);
    EXPECT_EQ(tfitest::failureOf([&] { trcTfiEntry e(second); }),
              "6|internal error: no more entries in file|" + onlyVersion + "|3");
}

TEST(TfiEntry, EntriesOutOfPlace)
{
    EXPECT_EQ(lastOf("bldlvl \"x\"\n"), "!3|missing tfiversion specification|1");
    EXPECT_EQ(lastOf("product P 1\n"), "!3|missing tfiversion specification|1");
    EXPECT_EQ(lastOf("tfiversion 1\nproduct P 1\n"), "!3|missing bldlvl specification|2");
    EXPECT_EQ(lastOf("component C 1\n"), "!3|missing product specification|1");
    EXPECT_EQ(lastOf(head + "component C 1\n"), "!3|missing product specification|3");
    EXPECT_EQ(lastOf("class K\n"), "!3|missing component specification|1");
    EXPECT_EQ(lastOf(head + "product P 1\nclass K\n"), "!3|missing component specification|4");
    EXPECT_EQ(lastOf("fnc\n"), "!3|missing class specification|1");
    EXPECT_EQ(lastOf(head + "product P 1\ncomponent C 2\nfnc\n"), "!3|missing class specification|5");
}

TEST(TfiEntry, ProductTestsTheStateBeforeReadingComponentAndClassAfter)
{
    // "product" fails on the state although its own tokens are wrong too.
    EXPECT_EQ(lastOf("tfiversion 1\nproduct\n\n5 5\n"), "!3|missing bldlvl specification|2");
    EXPECT_EQ(lastOf("product \"q\"\n"), "!3|missing tfiversion specification|1");
    // "component" and "class" read their tokens first.
    EXPECT_EQ(lastOf("component 5\n"), "!3|expected component name|1");
    EXPECT_EQ(lastOf("component C\nC\n"), "!3|expected component value|2");
    EXPECT_EQ(lastOf("class 5\n"), "!3|expected class name|1");
    // The state test reports the line of the last token read.
    EXPECT_EQ(lastOf("\ncomponent\nC\n\n7\n\n"), "!3|missing product specification|5");
    EXPECT_EQ(lastOf("class\n\nK\n\n"), "!3|missing component specification|3");
}

TEST(TfiEntry, TokenTextsOfEachEntry)
{
    EXPECT_EQ(lastOf("tfiversion x\n"), "!3|expected TFI version number|1");
    EXPECT_EQ(lastOf("tfiversion 1 bldlvl lvl\n"), "!3|expected build level|1");
    EXPECT_EQ(lastOf(head + "product 5 5\n"), "!3|expected product name|3");
    EXPECT_EQ(lastOf(head + "product P Q\n"), "!3|expected product value|3");
    EXPECT_EQ(lastOf(head + "product P 1 component 5 5\n"), "!3|expected component name|3");
    EXPECT_EQ(lastOf(head + "product P 1 component C \"x\"\n"), "!3|expected component value|3");
    // A keyword in the place of a name fails with the entry's own text.
    EXPECT_EQ(lastOf(head + "product class 1\n"), "!3|expected product name|3");
    EXPECT_EQ(lastOf(head + "product P 1 component product 1\n"), "!3|expected component name|3");
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class class\n"), "!3|expected class name|3");
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class K function\n"),
              "!3|expected 'product', 'component', 'class' or function name|3");
    EXPECT_EQ(lastOf(head + "5\n"), "!3|expected 'product', 'component', 'class' or function name|3");
    EXPECT_EQ(lastOf(head + "\"s\"\n"), "!3|expected 'product', 'component', 'class' or function name|3");
    // A number behind a class or a function begins an entry of its own.
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class K 3\n"),
              "!3|expected 'product', 'component', 'class' or function name|3");
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class K\nf 3\n"),
              "!3|expected 'product', 'component', 'class' or function name|4");
}

TEST(TfiEntry, TheInputEndingInsideAnEntryIsTheLexersFailure)
{
    EXPECT_EQ(lastOf("tfiversion"), "!3|unexpected end of input|2");
    EXPECT_EQ(lastOf(head + "product P\n"), "!3|unexpected end of input|5");
    EXPECT_EQ(lastOf("tfiversion 0\n"), "!3|invalid token|1");
    EXPECT_EQ(lastOf(head + "product P 0\n"), "!3|invalid token|3");
    EXPECT_EQ(lastOf(head + "product P 256\n"), "!3|Value is out of range|3");
}

TEST(TfiEntry, LevelsAndCounters)
{
    // The same numbers twice, numbers in any order; classes restart at 1.
    EXPECT_EQ(parse(head + "product P 9 component C 4 class A class B component C 4 class D product Q 2 "
                           "component E 200 class F g\n"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:lvl", "0:9.0.0.0:P", "1:9.4.0.0:C", "2:9.4.1.0:A", "2:9.4.2.0:B",
                    "1:9.4.0.0:C", "2:9.4.1.0:D", "0:2.0.0.0:Q", "1:2.200.0.0:E", "2:2.200.1.0:F",
                    "3:2.200.1.1:g"}));
    // A class resets the function count.
    EXPECT_EQ(parse(head + "product P 1 component C 1 class A f g class B h\n").back(), "3:1.1.2.1:h");
    // A product closes component and class.
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class A f product Q 2 g\n"),
              "!3|missing class specification|3");
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class A f product Q 2 class K\n"),
              "!3|missing component specification|3");
}

TEST(TfiEntry, ALaterTfiversionIsAProductWithoutNameThatClosesAllLevels)
{
    list entries = parse(head + "product P 1 component C 1 class A tfiversion 7\n");
    ASSERT_EQ(entries.size(), 6u);
    EXPECT_EQ(entries[5], "0:7.0.0.0:");
    EXPECT_EQ(lastOf(head + "product P 1 component C 1 class A tfiversion 7 component D 2\n"),
              "!3|missing product specification|3");
    // A second "bldlvl" entry carries no kind.
    EXPECT_EQ(parse(head + "bldlvl \"again\"\n").back(), "-:0.0.0.0:again");
}

TEST(TfiEntry, TwoHundredFiftyFiveClassesAndFunctions)
{
    std::string classes = head + "product P 1 component C 1\n";
    for (int i = 1; i <= 255; ++i)
        classes += "class K" + std::to_string(i) + "\n";
    EXPECT_EQ(parse(classes).back(), "2:1.1.255.0:K255");
    EXPECT_EQ(lastOf(classes + "class Over\n"), "!3|too many class specifications|259");

    std::string functions = head + "product P 1 component C 1 class K\n";
    for (int i = 1; i <= 255; ++i)
        functions += "f" + std::to_string(i) + "\n";
    EXPECT_EQ(parse(functions).back(), "3:1.1.1.255:f255");
    EXPECT_EQ(lastOf(functions + "over\n"), "!3|too many function specifications|259");
}

TEST(TfiEntry, ShortNamesNeedNoAllocation)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("n.tfi", head + "product " + std::string(79, 'p') + " 1 product " +
                                              std::string(80, 'q') + " 2\n");
    trcTfiEntryFactory factory(path.c_str());
    trcTfiEntry version(factory), level(factory), shortName(factory), longName(factory);
    EXPECT_TRUE(shortName.name.isLocal());
    EXPECT_FALSE(longName.name.isLocal());
    EXPECT_EQ(std::string(longName.name), std::string(80, 'q'));
}
