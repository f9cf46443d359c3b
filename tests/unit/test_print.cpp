// printf family with positional arguments.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cfloat>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "trcmsg.h"
#include "trcprint.h"

namespace {

constexpr std::size_t room = 8192;

// The text through trcPrintStr; its result must be the text's length.
template <typename... A>
std::string viaStr(const char* format, A... args)
{
    static char dest[room];
    std::memset(dest, '#', sizeof dest);
    int length = trcPrintStr(dest, format, args...);
    EXPECT_EQ(length, static_cast<int>(std::strlen(dest))) << format;
    return dest;
}

// What the C library makes of a format (never a literal here, so the
// compiler leaves formats outside its own checks alone).
std::string reference(const char* format, ...)
{
    static char dest[room];
    va_list args;
    va_start(args, format);
    std::vsnprintf(dest, sizeof dest, format, args);
    va_end(args);
    return dest;
}

// The format with every position ("1$" behind "%" or "*") removed.
std::string withoutPositions(const char* format)
{
    std::string plain;
    for (const char* p = format; *p != '\0'; ++p) {
        plain += *p;
        if ((*p == '%' || *p == '*') && p[1] >= '0' && p[1] <= '9' && p[2] == '$') {
            p += 2;
        }
    }
    return plain;
}

int coreN(char* dest, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int result = trcPrintCoreN(dest, size, format, args);
    va_end(args);
    return result;
}

char* core(char* dest, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    char* result = trcPrintCore(dest, format, args);
    va_end(args);
    return result;
}

std::string readAll(int fd)
{
    std::string text;
    char chunk[4096];
    ssize_t got;
    while ((got = read(fd, chunk, sizeof chunk)) > 0) {
        text.append(chunk, static_cast<std::size_t>(got));
    }
    return text;
}

std::string fileContent(FILE* file)
{
    std::fflush(file);
    std::rewind(file);
    std::string text;
    int c;
    while ((c = std::fgetc(file)) != EOF) {
        text += static_cast<char>(c);
    }
    return text;
}

// Standard output of one trcPrintOut call, and its result.
template <typename... A>
std::string viaOut(int& result, const char* format, A... args)
{
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    std::fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    dup2(fds[1], STDOUT_FILENO);
    result = trcPrintOut(format, args...);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(fds[1]);
    std::string text = readAll(fds[0]);
    close(fds[0]);
    return text;
}

template <typename... A>
std::string viaFile(int& result, const char* format, A... args)
{
    FILE* file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    result = trcPrintFile(file, format, args...);
    std::string text = fileContent(file);
    std::fclose(file);
    return text;
}

} // namespace

TEST(PrintPlain, FormatsWithoutPositionsGoToTheLibrary)
{
    EXPECT_EQ(viaStr("no conversions at all"), "no conversions at all");
    EXPECT_EQ(viaStr("100%% and %%%%"), "100% and %%");
    EXPECT_EQ(viaStr(""), "");
    EXPECT_EQ(viaStr(trcMsgGet(423), 42L, 100, 7, 3),
              "Records formatted       : 42     (pid: 100; tid: 7; node: 3)");
    EXPECT_EQ(viaStr("%s=%5.2f %c%x", "pi", 3.14159, 'z', 255u), "pi= 3.14 zff");
    // Two digits are no position: the library reads the tenth argument.
    EXPECT_EQ(viaStr("%10$d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10), "10");
    // Mixed styles go to the library as they stand.
    const char* mixed[] = {"%1$d %d", "%d %1$d", "%1$d %1$d", "%1$*1$d", "%1$5%|", "%1$zd"};
    for (const char* format : mixed) {
        EXPECT_EQ(viaStr(format, 5, 6), reference(format, 5, 6)) << format;
    }
}

TEST(PrintPositional, ArgumentsAreReordered)
{
    EXPECT_EQ(viaStr("%2$s %1$d", 7, "text"), "text 7");
    EXPECT_EQ(viaStr("[%1$*2$d]", 7, 5), "[    7]");
    EXPECT_EQ(viaStr("[%1$-*2$d]", 7, 3), "[7  ]");
    EXPECT_EQ(viaStr("%1$Lf", 1.5L), "1.500000");
    EXPECT_EQ(viaStr("%1$lf", 2.25), "2.250000");
    EXPECT_EQ(viaStr("%2$Lf %1$d", 3, 1.5L), "1.500000 3");
    EXPECT_EQ(viaStr("%3$d %2$lf %1$Le", 1.0L, 2.0, 3), "3 2.000000 1.000000e+00");
    EXPECT_EQ(viaStr("%0$d-%1$s", 5, "x"), "5-x");
    EXPECT_EQ(viaStr("%1$% %2$d", 9), "% 9");
    EXPECT_EQ(viaStr("100%% %1$d%%", 5), "100% 5%");
    EXPECT_EQ(viaStr("%9$d%8$d%7$d%6$d%5$d%4$d%3$d%2$d%1$d", 1, 2, 3, 4, 5, 6, 7, 8, 9),
              "987654321");
    EXPECT_EQ(viaStr("abc%1$5d", 3), "abc    3");
}

// A positional format prints what the format without its positions prints
// with the arguments written in the order that it uses them.
TEST(PrintPositional, SameAsTheFormatWithArgumentsInOrder)
{
    int value = 0;
    void* pointer = &value;
    const wchar_t* wide = L"wide";
    struct Case {
        const char* format;
        std::string got;
        std::string expected;
    };
#define CASE(format, positional, inOrder) \
    Case{format, viaStr(format, positional), reference(withoutPositions(format).c_str(), inOrder)}
#define ARGS(...) __VA_ARGS__
    const Case cases[] = {
        CASE("%3$s|%1$-5d|%2$08.3f", ARGS(42, 3.14159, "abc"), ARGS("abc", 42, 3.14159)),
        CASE("%2$ld %1$lu %3$lx", ARGS(ULONG_MAX, LONG_MIN, 0xdeadbeefcafeL),
             ARGS(LONG_MIN, ULONG_MAX, 0xdeadbeefcafeL)),
        CASE("%2$c%1$c%3$+.2e", ARGS('a', 'b', -12345.678), ARGS('b', 'a', -12345.678)),
        CASE("[%1$*3$.*2$f]", ARGS(3.14159, 2, 10), ARGS(10, 2, 3.14159)),
        CASE("%2$p %1$#o %3$X", ARGS(8u, pointer, 255u), ARGS(pointer, 8u, 255u)),
        CASE("%4$s%3$s%2$s%1$s", ARGS("a", "b", "c", "d"), ARGS("d", "c", "b", "a")),
        CASE("%2$-10s|%1$10.4s|", ARGS("abcdefgh", "xy"), ARGS("xy", "abcdefgh")),
        CASE("%1$Lg %2$G %3$g", ARGS(1.0L / 3, 2e-10, DBL_MAX), ARGS(1.0L / 3, 2e-10, DBL_MAX)),
        CASE("%2$hd %1$hhu", ARGS(300, 65537), ARGS(65537, 300)),
        CASE("%2$ls|%1$lc|%3$5i|%4$ -7.3i|", ARGS(wint_t(L'z'), wide, -4, 12),
             ARGS(wide, wint_t(L'z'), -4, 12)),
        CASE("%3$#x %2$+d %1$ 05d %4$.0e %5$#.3g", ARGS(-17, 17, 0x1fu, 0.5, 100.0),
             ARGS(0x1fu, 17, -17, 0.5, 100.0)),
        CASE("%2$E%1$s%3$o", ARGS("", 1e300, 0u), ARGS(1e300, "", 0u)),
        CASE("<%1$.*2$s>", ARGS("truncate", 3), ARGS(3, "truncate")),
    };
#undef CASE
#undef ARGS
    for (const Case& c : cases) {
        EXPECT_EQ(c.got, c.expected) << c.format;
    }
}

TEST(PrintPositional, CountOfCharactersSoFar)
{
    int count = -1;
    long longCount = -1;
    short shortCount = -1;
    EXPECT_EQ(viaStr("%2$s%1$n|%3$d%4$ln%5$hn", &count, "hello", 42, &longCount, &shortCount),
              "hello|42");
    EXPECT_EQ(count, 5);
    EXPECT_EQ(longCount, 8);
    EXPECT_EQ(shortCount, 8);

    // The count is that of the whole text even where the room ends first.
    char small[4];
    count = -1;
    EXPECT_EQ(coreN(small, sizeof small, "%2$s%1$n!", &count, "abcdef"), 7);
    EXPECT_EQ(count, 6);
    EXPECT_STREQ(small, "abc");
}

TEST(PrintCore, BoundedAndUnbounded)
{
    char dest[32];
    EXPECT_EQ(core(dest, "%2$s-%1$d", 12345, "abc"), dest);
    EXPECT_STREQ(dest, "abc-12345");

    std::memset(dest, '#', sizeof dest);
    EXPECT_EQ(coreN(dest, 4, "%2$s-%1$d", 12345, "abc"), 9);
    EXPECT_STREQ(dest, "abc");
    EXPECT_EQ(dest[4], '#');

    std::memset(dest, '#', sizeof dest);
    EXPECT_EQ(coreN(dest, 0, "%2$s-%1$d", 12345, "abc"), 9);
    EXPECT_EQ(dest[0], '#');

    std::memset(dest, '#', sizeof dest);
    EXPECT_EQ(coreN(dest, 6, "%s-%d", "abc", 12345), 9);
    EXPECT_STREQ(dest, "abc-1");

    EXPECT_EQ(coreN(dest, sizeof dest, "%1$s", "exact"), 5);
    EXPECT_STREQ(dest, "exact");
}

// Formats beyond the limits of the reordering are left to the C library,
// which must not overflow anything on the way.
TEST(PrintPositional, FormatsBeyondTheLimits)
{
    std::string longFormat = std::string(1100, 'x') + "%2$s %1$d";
    EXPECT_EQ(viaStr(longFormat.c_str(), 7, "t"), std::string(1100, 'x') + "t 7");
    std::string fits = std::string(1010, 'y') + "%2$s %1$d";
    EXPECT_EQ(viaStr(fits.c_str(), 7, "t"), std::string(1010, 'y') + "t 7");
    const char* unfinished[] = {"%1$", "%1$-5", "%1$l", "%1$*", "%1$*2", "%1$ll"};
    for (const char* format : unfinished) {
        EXPECT_EQ(viaStr(format, 5), reference(format, 5)) << format;
    }
    // A position used twice: the library reads the positions itself.
    EXPECT_EQ(viaStr("%2$d%1$d%2$*1$d", 3, 4), "43  4");
}

TEST(PrintStream, OutAndFilePrintWhatWasProduced)
{
    int result = 0;
    EXPECT_EQ(viaOut(result, "%2$s %1$d\n", 7, "text"), "text 7\n");
    EXPECT_EQ(result, 7);
    EXPECT_EQ(viaOut(result, "plain %d\n", 3), "plain 3\n");
    EXPECT_EQ(result, 8);
    EXPECT_EQ(viaFile(result, trcMsgGet(423), 12L, 1, 2, 3),
              "Records formatted       : 12     (pid: 1; tid: 2; node: 3)");
    EXPECT_EQ(result, 58);
    EXPECT_EQ(viaFile(result, "%2$s|%1$s", "b", "a"), "a|b");
    EXPECT_EQ(result, 3);

    // A character the locale cannot encode: no text, so nothing is printed.
    const wchar_t euro[] = {0x20ac, 0};
    EXPECT_EQ(viaFile(result, "before %1$ls after", euro), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(viaFile(result, "before %ls after", euro), "");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(viaOut(result, "before %1$ls after", euro), "");
    EXPECT_EQ(result, -1);
}

TEST(PrintStream, LongTextsComeOutWhole)
{
    std::string big(3000, 'b');
    int result = 0;
    std::string expected = "7:" + big + ":end";
    EXPECT_EQ(viaFile(result, "%2$d:%1$s:end", big.c_str(), 7), expected);
    EXPECT_EQ(result, static_cast<int>(expected.size()));
    EXPECT_EQ(viaFile(result, "%d:%s:end", 7, big.c_str()), expected);
    EXPECT_EQ(result, static_cast<int>(expected.size()));
    EXPECT_EQ(viaOut(result, "%2$d:%1$s:end", big.c_str(), 7), expected);
    EXPECT_EQ(result, static_cast<int>(expected.size()));

    // Exactly at the edge of the local buffer: 1023 and 1024 characters.
    std::string edge(1023, 'e');
    EXPECT_EQ(viaFile(result, "%1$s", edge.c_str()), edge);
    EXPECT_EQ(result, 1023);
    edge += 'f';
    EXPECT_EQ(viaFile(result, "%1$s", edge.c_str()), edge);
    EXPECT_EQ(result, 1024);
}

TEST(PrintStr, ResultIsTheLengthOfTheText)
{
    char dest[64];
    EXPECT_EQ(trcPrintStr(dest, "%2$s%1$s", "de", "abc"), 5);
    EXPECT_STREQ(dest, "abcde");
    EXPECT_EQ(trcPrintStr(dest, "a%cb", 0), 1);
    EXPECT_EQ(trcPrintStr(dest, "%1$c%2$s", 0, "x"), 0);
    EXPECT_EQ(trcPrintStr(dest, ""), 0);
}
