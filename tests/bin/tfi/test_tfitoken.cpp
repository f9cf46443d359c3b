// The .tfi lexer: byte classes, delimiters, line counting and failures.
#include "tfi_support.h"
#include "run_tool.h"

#include "trctfitoken.h"

#include <gtest/gtest.h>

#include <vector>

using kelvotest::failureOf;

namespace {

using list = std::vector<std::string>;

// Every token of content as "type:text" (and ":value" for values), until
// the input ends; a failure is added as "!code|message|@|line".
list lex(const std::string& content)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("t.tfi", content);
    list tokens;
    std::string failure = failureOf(
        [&] {
            trcTfiTokenFactory factory(path.c_str());
            for (factory.advance(); *factory.cursor != '\0'; factory.advance()) {
                trcTfiToken token(factory);
                tokens.push_back(std::to_string(token.type) + ":" + static_cast<const char*>(token.text) +
                                 (token.type == trcTfiTokenValue ? std::string(":").append(std::to_string(token.value))
                                                                 : std::string()));
            }
        },
        path);
    if (failure != "no failure")
        tokens.push_back("!" + failure);
    return tokens;
}

const std::string invalid = "!3|invalid token|@|1", range = "!3|Value is out of range|@|",
                  end = "!3|unexpected end of input|@|";

}  // namespace

TEST(TfiToken, ClassesDelimitersAndFailures)
{
    const std::string n79(79, 'n'), n80(80, 'n'), q500(500, 'q');
    const struct {
        std::string in;
        list out;
    } rows[] = {
        {"tfiversion bldlvl product component class function Product CLASS classes productX function_ Tfiversion\n",
         {"3:tfiversion", "4:bldlvl", "5:product", "6:component", "7:class", "8:function", "0:Product", "0:CLASS",
          "0:classes", "0:productX", "0:function_", "0:Tfiversion"}},
        {"_a Z9_x abc123\tb\v1\f9\r10\n99 255 \"a b\" \"\" \"x\"",
         {"0:_a", "0:Z9_x", "0:abc123", "0:b", "1:1:1", "1:9:9", "1:10:10", "1:99:99", "1:255:255", "2:a b",
          "2:", "2:x"}},
        {n79 + " " + n80 + " \"" + q500 + "\"", {"0:" + n79, "0:" + n80, "2:" + q500}},
        {"256\n", {range + "1"}},
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
        EXPECT_EQ(lex(row.in), row.out) << row.in;
    // No leading zero or sign, the delimiter tested before the range; bytes
    // outside the classes; tokens not followed by white space.
    for (const char* in : {"0\n", "007\n", "-5\n", "12a\n", "300x\n", "# c\n", "\x80\n", "caf\xc3\xa9\n", "a\"b\"\n",
                           "\"s\"x\n", "\"s\"\"t\"\n"})
        EXPECT_EQ(lex(in), list{invalid}) << in;
}

TEST(TfiToken, LineNumbersAndExpectedTypes)
{
    kelvotest::TempDir dir;
    for (const auto& [content, line] :
         {std::pair<std::string, int>{"", 2}, {"x", 2}, {"a\nb\nc\n", 5}, {"  \t \r\n", 3}}) {
        std::string path = dir.write("t.tfi", content);
        trcTfiTokenFactory factory(path.c_str());
        EXPECT_EQ(failureOf(
                      [&] {
                          for (;;)
                              trcTfiToken token(factory);
                      },
                      path),
                  end.substr(1) + std::to_string(line));
        EXPECT_EQ(factory.line(), line);
        EXPECT_EQ(*factory.cursor, '\0');
    }
    // The line of a token is read right behind it; the caller names the type it expects.
    std::string path = dir.write("t.tfi", "\n\nfirst\n\n second\n12\n\"q\"\n");
    trcTfiTokenFactory factory(path.c_str());
    EXPECT_EQ(factory.line(), 1);
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
