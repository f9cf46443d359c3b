// The .tfi parser: the entries, the state rules and the order of checks.
#include "tfi_support.h"
#include "run_tool.h"

#include "trctfientry.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using list = std::vector<std::string>;

// Every entry of content as "kind:p.c.k.f:name" until the input ends, the
// kind of a "bldlvl" entry as "-"; a failure adds "!code|message|@|line".
list parse(const std::string& content)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("e.tfi", content);
    list entries;
    std::string failure = kelvotest::failureOf(
        [&] {
            for (trcTfiEntryFactory factory(path.c_str()); !factory.isEmpty();) {
                trcTfiEntry e(factory);
                std::string item = e.kind == trcTfiEntryNone ? "-:" : std::to_string(e.kind) + ":";
                for (int i = 0; i < 4; ++i)
                    item += std::to_string(e.ids[i]) + (i < 3 ? "." : ":");
                entries.push_back(item + static_cast<const char*>(e.name));
            }
        },
        path);
    if (failure != "no failure")
        entries.push_back("!" + failure);
    return entries;
}

// The failure, or the last entry, of content.
std::string last(const std::string& content)
{
    list entries = parse(content);
    return entries.empty() ? "(nothing)" : entries.back();
}

const std::string head = "tfiversion 1\nbldlvl \"lvl\"\n", pc = head + "product P 1 component C 1 ";
const std::string entryStart = "!3|expected 'product', 'component', 'class' or function name|@|";

}  // namespace

TEST(TfiEntry, EntriesLevelsAndCounters)
{
    // The same numbers twice, numbers in any order; classes restart at 1 in each component.
    EXPECT_EQ(parse(head + "product P 9 component C 4 class A class B component C 4 class D product Q 2 "
                           "component E 200 class F g\n"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:lvl", "0:9.0.0.0:P", "1:9.4.0.0:C", "2:9.4.1.0:A", "2:9.4.2.0:B",
                    "1:9.4.0.0:C", "2:9.4.1.0:D", "0:2.0.0.0:Q", "1:2.200.0.0:E", "2:2.200.1.0:F", "3:2.200.1.1:g"}));
    EXPECT_EQ(last(pc + "class A f g class B h\n"), "3:1.1.2.1:h");
    // A later "tfiversion" is a product without a name; a later "bldlvl" has no kind.
    EXPECT_EQ(parse(pc + "class A tfiversion 7 bldlvl \"again\"\n"),
              (list{"0:1.0.0.0:", "-:0.0.0.0:lvl", "0:1.0.0.0:P", "1:1.1.0.0:C", "2:1.1.1.0:A",
                    "0:7.0.0.0:", "-:0.0.0.0:again"}));
    EXPECT_EQ(parse(" \n\t\n"), list{});
    EXPECT_EQ(last(head + "product " + std::string(80, 'q') + " 2\n"), "0:2.0.0.0:" + std::string(80, 'q'));
}

TEST(TfiEntry, StateRulesOrderOfChecksAndTokenTexts)
{
    const struct {
        std::string in, failure;
    } rows[] = {
        {"bldlvl \"x\"\n", "!3|missing tfiversion specification|@|1"},
        {"product P 1\n", "!3|missing tfiversion specification|@|1"},
        {"tfiversion 1\nproduct P 1\n", "!3|missing bldlvl specification|@|2"},
        {"component C 1\n", "!3|missing product specification|@|1"},
        {"class K\n", "!3|missing component specification|@|1"},
        {"fnc\n", "!3|missing class specification|@|1"},
        {pc + "fnc\n", "!3|missing class specification|@|3"},
        // "product" tests the state before reading its tokens, "component" and "class" after.
        {"tfiversion 1\nproduct\n\n5 5\n", "!3|missing bldlvl specification|@|2"},
        {"component 5\n", "!3|expected component name|@|1"},
        {"component C\nC\n", "!3|expected component value|@|2"},
        {"class 5\n", "!3|expected class name|@|1"},
        {"\ncomponent\nC\n\n7\n\n", "!3|missing product specification|@|5"},
        {"class\n\nK\n\n", "!3|missing component specification|@|3"},
        // A product or a later tfiversion closes component and class.
        {pc + "class A f product Q 2 g\n", "!3|missing class specification|@|3"},
        {pc + "class A f product Q 2 class K\n", "!3|missing component specification|@|3"},
        {pc + "class A tfiversion 7 component D 2\n", "!3|missing product specification|@|3"},
        {"tfiversion x\n", "!3|expected TFI version number|@|1"},
        {"tfiversion 1 bldlvl lvl\n", "!3|expected build level|@|1"},
        {head + "product class 1\n", "!3|expected product name|@|3"},
        {head + "product P Q\n", "!3|expected product value|@|3"},
        {pc + "class K function\n", entryStart + "3"},
        {pc + "class K 3\n", entryStart + "3"},
        {head + "\"s\"\n", entryStart + "3"},
        {"tfiversion", "!3|unexpected end of input|@|2"},
        {head + "product P 256\n", "!3|Value is out of range|@|3"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(last(row.in), row.failure) << row.in;
}

TEST(TfiEntry, TwoHundredFiftyFiveClassesAndFunctions)
{
    std::string classes = pc, functions = pc + "class K\n";
    for (int i = 1; i <= 255; ++i) {
        classes.append("class K").append(std::to_string(i)).append("\n");
        functions.append("f").append(std::to_string(i)).append("\n");
    }
    EXPECT_EQ(last(classes), "2:1.1.255.0:K255");
    EXPECT_EQ(last(classes + "class Over\n"), "!3|too many class specifications|@|258");
    EXPECT_EQ(last(functions), "3:1.1.1.255:f255");
    EXPECT_EQ(last(functions + "over\n"), "!3|too many function specifications|@|259");
}

TEST(TfiEntry, EndOfEntries)
{
    kelvotest::TempDir dir;
    std::string blank = dir.write("blank.tfi", "  \n\n");
    trcTfiEntryFactory factory(blank.c_str());
    EXPECT_TRUE(factory.isEmpty());
    EXPECT_TRUE(factory.isEmpty());
    EXPECT_EQ(kelvotest::failureOf([&] { trcTfiEntry e(factory); }, blank),
              "6|internal error: no more entries in file|@|4");
}
