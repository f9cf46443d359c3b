// printf family with positional arguments.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "trcprint.h"

namespace {

// The text through trcPrintStr; its result must be the text's length.
template <typename... A>
std::string viaStr(const char* format, A... args)
{
    static char dest[8192];
    std::memset(dest, '#', sizeof dest);
    const int length = trcPrintStr(dest, format, args...);
    EXPECT_EQ(length, static_cast<int>(std::strlen(dest))) << format;
    return dest;
}

// What the C library makes of a format (never a literal here, so the
// compiler leaves formats outside its own checks alone).
std::string reference(const char* format, ...)
{
    static char dest[8192];
    va_list args;
    va_start(args, format);
    std::vsnprintf(dest, sizeof dest, format, args);
    va_end(args);
    return dest;
}

// trcPrintCoreN on size bytes, or for SIZE_MAX trcPrintCore, whose result must be dest.
int coreN(char* dest, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = size == SIZE_MAX ? (trcPrintCore(dest, format, args) == dest ? 0 : -1)
                                        : trcPrintCoreN(dest, size, format, args);
    va_end(args);
    return result;
}

// What trcPrintFile (toFile) or trcPrintOut printed, then "|" and its result.
template <typename... A>
std::string printed(bool toFile, const char* format, A... args)
{
    FILE* file = std::tmpfile();
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(toFile ? saved : fileno(file), STDOUT_FILENO);
    const int result = toFile ? trcPrintFile(file, format, args...) : trcPrintOut(format, args...);
    std::fflush(nullptr);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string text(4096, '\0');
    std::rewind(file);
    text.resize(std::fread(text.data(), 1, text.size(), file));
    std::fclose(file);
    return text + "|" + std::to_string(result);
}

}  // namespace

TEST(PrintStr, PositionalAndPlainFormats)
{
    const wchar_t* wide = L"wide";
    const std::pair<std::string, std::string> cases[] = {
        {viaStr("100%% and %%%%"), "100% and %%"},
        {viaStr(""), ""},
        // Two digits are no position: the library reads the tenth argument.
        {viaStr("%10$d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10), "10"},
        {viaStr("%2$s %1$d", 7, "text"), "text 7"},
        {viaStr("[%1$*2$d]", 7, 5), "[    7]"},
        {viaStr("%3$d %2$lf %1$Le", 1.0L, 2.0, 3), "3 2.000000 1.000000e+00"},
        {viaStr("%0$d-%1$s", 5, "x"), "5-x"},
        {viaStr("%1$c%2$s", 0, "x"), ""},
        {viaStr("%1$% %2$d", 9), "% 9"},
        {viaStr("100%% %1$d%%", 5), "100% 5%"},
        {viaStr("%9$d%8$d%7$d%6$d%5$d%4$d%3$d%2$d%1$d", 1, 2, 3, 4, 5, 6, 7, 8, 9), "987654321"},
        {viaStr("%3$s|%1$-5d|%2$08.3f", 42, 3.14159, "abc"), "abc|42   |0003.142"},
        {viaStr("%2$ld %1$lu %3$lx", ULONG_MAX, LONG_MIN, 0xdeadbeefcafeL),
         "-9223372036854775808 18446744073709551615 deadbeefcafe"},
        {viaStr("[%1$*3$.*2$f]", 3.14159, 2, 10), "[      3.14]"},
        {viaStr("%2$p %1$#o %3$X", 8u, reinterpret_cast<void*>(0x1234), 255u), "0x1234 010 FF"},
        {viaStr("%2$hd %1$hhu", 300, 65537), "1 44"},
        {viaStr("%2$ls|%1$lc|%3$5i|%4$ -7.3i|", wint_t(L'z'), wide, -4, 12), "wide|z|   -4| 012   |"},
        {viaStr("<%1$.*2$s>", "truncate", 3), "<tru>"},
        // An unencodable character ends the text; the result is still its length.
        {viaStr("ab%lsc", L"\x20ac"), "ab"},
        {viaStr("ab%1$lsc", L"\x20ac"), "ab"},
    };
    for (const auto& [got, expected] : cases) {
        EXPECT_EQ(got, expected);
    }
    char dest[8];
    EXPECT_EQ(trcPrintStr(dest, "a%cb", 0), 1);  // the length of the text, not what was written
}

// Mixed styles, positions used twice, incomplete conversions and formats
// too long to rewrite go to the C library as they stand.
TEST(PrintStr, FormatsBeyondTheReorderingGoToTheLibrary)
{
    for (const char* format : {"%1$d %d", "%d %1$d", "%1$d %1$d", "%1$*1$d", "%1$5%|", "%1$zd", "%1$", "%1$-5", "%1$l",
                               "%1$*", "%1$*2", "%1$ll", "%2$d%1$d%2$*1$d"}) {
        EXPECT_EQ(viaStr(format, 5, 6), reference(format, 5, 6)) << format;
    }
    for (std::size_t length : {1010u, 1100u}) {
        const std::string format = std::string(length, 'x') + "%2$s %1$d";
        EXPECT_EQ(viaStr(format.c_str(), 7, "t"), std::string(length, 'x') + "t 7");
    }
}

TEST(PrintStr, CountOfCharactersSoFar)
{
    int count = -1;
    long longCount = -1;
    short shortCount = -1;
    signed char charCount = -1;
    EXPECT_EQ(viaStr("%2$s%1$n|%3$d%4$ln%5$hn%6$hhn", &count, "hello", 42, &longCount, &shortCount, &charCount),
              "hello|42");
    EXPECT_EQ(std::to_string(count) + std::to_string(longCount) + std::to_string(shortCount) +
                  std::to_string(charCount),
              "5888");
    // The count is that of the whole text even where the room ends first.
    char small[4];
    EXPECT_EQ(coreN(small, sizeof small, "%2$s%1$n!", &count, "abcdef"), 7);
    EXPECT_EQ(count, 6);
    EXPECT_STREQ(small, "abc");
}

// At most size bytes written, the zero included; the whole length back.
TEST(PrintCore, BoundedAndUnbounded)
{
    char dest[32];
    EXPECT_EQ(coreN(dest, SIZE_MAX, "%2$s-%1$d", 12345, "abc"), 0);
    EXPECT_STREQ(dest, "abc-12345");
    for (std::size_t size : {0u, 4u, 6u}) {
        std::memset(dest, '#', sizeof dest);
        EXPECT_EQ(coreN(dest, size, "%2$s-%1$d", 12345, "abc"), 9);
        const std::string written = size == 0 ? "" : std::string("abc-12345", size - 1) + '\0';
        EXPECT_EQ(std::string(dest, size + 1), written + '#');
    }
    EXPECT_EQ(coreN(dest, 6, "%s-%d", "abc", 12345), 9);
    EXPECT_STREQ(dest, "abc-1");
}

// Standard output and files get what was produced, whole however long, and
// up to a character that cannot be encoded in the locale.
TEST(PrintStream, OutAndFilePrintWhatWasProduced)
{
    const std::string edge(1023, 'e');
    for (bool toFile : {false, true}) {
        SCOPED_TRACE(toFile ? "trcPrintFile" : "trcPrintOut");
        EXPECT_EQ(printed(toFile, "%2$s %1$d\n", 7, "text"), "text 7\n|7");
        EXPECT_EQ(printed(toFile, "plain %d\n", 3), "plain 3\n|8");
        EXPECT_EQ(printed(toFile, "before %1$ls after", L"\x20ac"), "before |7");
        EXPECT_EQ(printed(toFile, "before %ls after", L"\x20ac"), "before |7");
        // At the edge of a local buffer: 1023 and 1024 characters.
        EXPECT_EQ(printed(toFile, "%1$s", edge.c_str()), edge + "|1023");
        EXPECT_EQ(printed(toFile, "%s:", edge.c_str()), edge + ":|1024");
    }
}
