// The .tfi lexer: byte classes, delimiters, line counting and failures.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trctfiexc.h"
#include "trctfitoken.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using tfitest::failureOf;

namespace {

// Every token of content as "type:text" (and ":value" for values), until
// the input ends; a failure is added as "!code|message|line".
std::vector<std::string> lex(const std::string& content)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("t.tfi", content);
    std::vector<std::string> tokens;
    try {
        trcTfiTokenFactory factory(path.c_str());
        for (;;) {
            factory.advance();
            if (*factory.cursor == '\0')
                break;
            trcTfiToken token(factory);
            std::string item = std::to_string(token.type) + ":" + static_cast<const char*>(token.text);
            if (token.type == trcTfiTokenValue)
                item += ":" + std::to_string(token.value);
            tokens.push_back(item);
        }
    } catch (const trcTfiExc& e) {
        EXPECT_EQ(std::string(e.file), path);
        tokens.push_back("!" + std::to_string(e.code) + "|" + static_cast<const char*>(e.message) + "|" +
                         std::to_string(e.line));
    }
    return tokens;
}

using list = std::vector<std::string>;

} // namespace

TEST(TfiToken, NamesKeywordsValuesAndQuotedStrings)
{
    EXPECT_EQ(lex("tfiversion bldlvl product component class function\n"),
              (list{"3:tfiversion", "4:bldlvl", "5:product", "6:component", "7:class", "8:function"}));
    EXPECT_EQ(lex("_a Z9_x abc123 b\n"), (list{"0:_a", "0:Z9_x", "0:abc123", "0:b"}));
    EXPECT_EQ(lex("1 9 10 99 255\n"), (list{"1:1:1", "1:9:9", "1:10:10", "1:99:99", "1:255:255"}));
    EXPECT_EQ(lex("\"a b\" \"\" \"x\"\n"), (list{"2:a b", "2:", "2:x"}));
}

TEST(TfiToken, KeywordsAreExactAndCaseSensitive)
{
    EXPECT_EQ(lex("Product CLASS classes productX function_ Tfiversion\n"),
              (list{"0:Product", "0:CLASS", "0:classes", "0:productX", "0:function_", "0:Tfiversion"}));
}

TEST(TfiToken, WhiteSpaceOfEveryKindSeparatesTokens)
{
    EXPECT_EQ(lex("a\tb\vc\fd\re\nf g"), (list{"0:a", "0:b", "0:c", "0:d", "0:e", "0:f", "0:g"}));
    // The last token needs no final line break.
    EXPECT_EQ(lex("last"), (list{"0:last"}));
    EXPECT_EQ(lex("a\r\nb\r\n"), lex("a\nb\n"));
}

TEST(TfiToken, ValuesRange)
{
    EXPECT_EQ(lex("256\n"), (list{"!3|Value is out of range|1"}));
    EXPECT_EQ(lex("1 2\n\n99999999999999999999999999\n"),
              (list{"1:1:1", "1:2:2", "!3|Value is out of range|3"}));
    EXPECT_EQ(lex("0\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("007\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("12a\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("-5\n"), (list{"!3|invalid token|1"}));
    // The delimiter is tested before the range.
    EXPECT_EQ(lex("300x\n"), (list{"!3|invalid token|1"}));
}

TEST(TfiToken, BadBytesAndDelimiters)
{
    EXPECT_EQ(lex("a-b\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("ok\nname:x\n"), (list{"0:ok", "!3|invalid token|2"}));
    EXPECT_EQ(lex("a~\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("a.b\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("# comment\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("// comment\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("\"s\"x\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("\"s\"\"t\"\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("a\"b\"\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("caf\xc3\xa9\n"), (list{"!3|invalid token|1"}));
    EXPECT_EQ(lex("\x80\n"), (list{"!3|invalid token|1"}));
}

TEST(TfiToken, QuotedStrings)
{
    EXPECT_EQ(lex("\"one\ntwo\" next\n"), (list{"2:one\ntwo", "0:next"}));
    EXPECT_EQ(lex("\"\xc3\xa9\xff # - ~\"\n"), (list{"2:\xc3\xa9\xff # - ~"}));
    // Line feeds inside a string are not counted.
    EXPECT_EQ(lex("\"a\n\n\nb\" 256\n"), (list{"2:a\n\n\nb", "!3|Value is out of range|1"}));
    EXPECT_EQ(lex("\n\"open\nstring\n"), (list{"!3|unexpected end of input|2"}));
}

TEST(TfiToken, ANulByteEndsTheInput)
{
    EXPECT_EQ(lex(std::string("a b \0c d\n", 9)), (list{"0:a", "0:b"}));
    EXPECT_EQ(lex(std::string("a b\0c d\n", 8)), (list{"0:a", "!3|unexpected end of input|1"}));
    EXPECT_EQ(lex(std::string("ab\0", 3)), (list{"!3|unexpected end of input|1"}));
    EXPECT_EQ(lex(std::string("\"ab\0\"", 5)), (list{"!3|unexpected end of input|1"}));
}

TEST(TfiToken, LongTokensAreAcceptedWhole)
{
    std::string name79(79, 'n'), name80(80, 'n'), quoted(500, 'q');
    EXPECT_EQ(lex(name79 + " " + name80 + " \"" + quoted + "\""),
              (list{"0:" + name79, "0:" + name80, "2:" + quoted}));
}

TEST(TfiToken, TokenTextsAreLocalBelowEightyBytes)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("t.tfi", std::string(79, 'a') + " " + std::string(80, 'b') + "\n");
    trcTfiTokenFactory factory(path.c_str());
    trcTfiToken short79(factory), long80(factory);
    EXPECT_TRUE(short79.text.isLocal());
    EXPECT_FALSE(long80.text.isLocal());
}

TEST(TfiToken, LineNumbersAtTheEndOfInput)
{
    kelvotest::TempDir dir;
    struct {
        std::string content;
        int line;
    } cases[] = {{"", 2}, {"a\nb\nc\n", 5}, {"  \t \r\n", 3}, {"x", 2}, {"\n\n", 4}};
    for (const auto& c : cases) {
        std::string path = dir.write("t.tfi", c.content);
        trcTfiTokenFactory factory(path.c_str());
        EXPECT_EQ(failureOf([&] {
                      for (;;)
                          trcTfiToken token(factory);
                  }),
                  "3|unexpected end of input|" + path + "|" + std::to_string(c.line))
            << c.content;
        EXPECT_EQ(factory.line(), c.line);
        EXPECT_EQ(*factory.cursor, '\0');
    }
}

TEST(TfiToken, LineOfATokenIsReadRightBehindIt)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("t.tfi", "\n\nfirst\n\n second\n");
    trcTfiTokenFactory factory(path.c_str());
    EXPECT_EQ(factory.line(), 1);
    trcTfiToken first(factory);
    EXPECT_EQ(factory.line(), 3);
    trcTfiToken second(factory);
    EXPECT_EQ(factory.line(), 5);
    // The file's last line feed and the one added behind it.
    factory.advance();
    EXPECT_EQ(factory.line(), 7);
    EXPECT_EQ(factory.file(), path.c_str());
}

TEST(TfiToken, ExpectedTypeFailsWithTheCallersText)
{
    kelvotest::TempDir dir;
    std::string path = dir.write("t.tfi", "name\n12\n\"q\"\n");
    trcTfiTokenFactory factory(path.c_str());
    trcTfiToken name(factory, trcTfiTokenName, "expected a name");
    EXPECT_STREQ(name.text, "name");
    EXPECT_EQ(failureOf([&] { trcTfiToken t(factory, trcTfiTokenQuoted, "expected a string"); }),
              "3|expected a string|" + path + "|2");
    trcTfiToken quoted(factory, trcTfiTokenQuoted, "expected a string");
    EXPECT_STREQ(quoted.text, "q");
}

TEST(TfiToken, LoadingFailures)
{
    kelvotest::TempDir dir;
    std::string missing = dir.file("none.tfi");
    EXPECT_EQ(failureOf([&] { trcTfiTokenFactory factory(missing.c_str()); }),
              "5|Error opening file " + missing + "|(null)|0");
    EXPECT_EQ(failureOf([&] { trcTfiTokenFactory factory(dir.path().c_str()); }),
              "5|Could not read from file " + dir.path() + "|(null)|0");
}
