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
#include <tuple>
#include <utility>

#include "trcmsg.h"
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

// The format with every position ("1$" behind "%" or "*") removed.
std::string withoutPositions(const char* format)
{
    std::string plain;
    for (const char* p = format; *p != '\0'; ++p) {
        plain += *p;
        p += (*p == '%' || *p == '*') && p[1] >= '0' && p[1] <= '9' && p[2] == '$' ? 2 : 0;
    }
    return plain;
}

char* core(char* dest, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    char* result = trcPrintCore(dest, format, args);
    va_end(args);
    return result;
}

int coreN(char* dest, std::size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = trcPrintCoreN(dest, size, format, args);
    va_end(args);
    return result;
}

// What one trcPrintOut (toStdout) or trcPrintFile call printed, read back
// from a temporary file, and its result.
template <typename... A>
std::pair<std::string, int> printed(bool toStdout, const char* format, A... args)
{
    FILE* file = std::tmpfile();
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(toStdout ? fileno(file) : saved, STDOUT_FILENO);
    const int result = toStdout ? trcPrintOut(format, args...) : trcPrintFile(file, format, args...);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) {
        text += static_cast<char>(c);
    }
    std::fclose(file);
    return {text, result};
}

}  // namespace

TEST(PrintPlain, FormatsWithoutPositionsGoToTheLibrary)
{
    EXPECT_EQ(viaStr("100%% and %%%%"), "100% and %%");
    char dest[8];
    EXPECT_EQ(trcPrintStr(dest, "a%cb", 0), 1);  // the length of the text, not what was written
    EXPECT_EQ(viaStr(""), "");
    EXPECT_EQ(viaStr(trcMsgGet(423), 42L, 100, 7, 3), "Records formatted       : 42     (pid: 100; tid: 7; node: 3)");
    // Two digits are no position: the library reads the tenth argument.
    EXPECT_EQ(viaStr("%10$d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10), "10");
    // Mixed styles go to the library as they stand.
    for (const char* format : {"%1$d %d", "%d %1$d", "%1$d %1$d", "%1$*1$d", "%1$5%|", "%1$zd"}) {
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
    EXPECT_EQ(viaStr("%3$d %2$lf %1$Le", 1.0L, 2.0, 3), "3 2.000000 1.000000e+00");
    EXPECT_EQ(viaStr("%0$d-%1$s", 5, "x"), "5-x");
    EXPECT_EQ(viaStr("%1$c%2$s", 0, "x"), "");
    EXPECT_EQ(viaStr("%1$% %2$d", 9), "% 9");
    EXPECT_EQ(viaStr("100%% %1$d%%", 5), "100% 5%");
    EXPECT_EQ(viaStr("%9$d%8$d%7$d%6$d%5$d%4$d%3$d%2$d%1$d", 1, 2, 3, 4, 5, 6, 7, 8, 9), "987654321");
}

// A positional format prints what the format without its positions prints
// with the arguments written in the order that it uses them.
TEST(PrintPositional, SameAsTheFormatWithArgumentsInOrder)
{
    int value = 0;
    void* pointer = &value;
    const wchar_t* wide = L"wide";
#define CASE(format, positional, inOrder)                                                                              \
    {                                                                                                                  \
        viaStr(format, positional), reference(withoutPositions(format).c_str(), inOrder), format                       \
    }
#define ARGS(...) __VA_ARGS__
    const std::tuple<std::string, std::string, const char*> cases[] = {
        CASE("%3$s|%1$-5d|%2$08.3f", ARGS(42, 3.14159, "abc"), ARGS("abc", 42, 3.14159)),
        CASE("%2$ld %1$lu %3$lx", ARGS(ULONG_MAX, LONG_MIN, 0xdeadbeefcafeL),
             ARGS(LONG_MIN, ULONG_MAX, 0xdeadbeefcafeL)),
        CASE("%2$c%1$c%3$+.2e", ARGS('a', 'b', -12345.678), ARGS('b', 'a', -12345.678)),
        CASE("[%1$*3$.*2$f]", ARGS(3.14159, 2, 10), ARGS(10, 2, 3.14159)),
        CASE("%2$p %1$#o %3$X", ARGS(8u, pointer, 255u), ARGS(pointer, 8u, 255u)),
        CASE("%2$-10s|%1$10.4s|", ARGS("abcdefgh", "xy"), ARGS("xy", "abcdefgh")),
        CASE("%1$Lg %2$G %3$g", ARGS(1.0L / 3, 2e-10, DBL_MAX), ARGS(1.0L / 3, 2e-10, DBL_MAX)),
        CASE("%2$hd %1$hhu", ARGS(300, 65537), ARGS(65537, 300)),
        CASE("%2$ls|%1$lc|%3$5i|%4$ -7.3i|", ARGS(wint_t(L'z'), wide, -4, 12), ARGS(wide, wint_t(L'z'), -4, 12)),
        CASE("%3$#x %2$+d %1$ 05d %4$.0e %5$#.3g", ARGS(-17, 17, 0x1fu, 0.5, 100.0), ARGS(0x1fu, 17, -17, 0.5, 100.0)),
        CASE("%2$E%1$s%3$o", ARGS("", 1e300, 0u), ARGS(1e300, "", 0u)),
        CASE("<%1$.*2$s>", ARGS("truncate", 3), ARGS(3, "truncate")),
    };
#undef CASE
#undef ARGS
    for (const auto& [got, expected, format] : cases) {
        EXPECT_EQ(got, expected) << format;
    }
}

TEST(PrintPositional, CountOfCharactersSoFar)
{
    int count = -1;
    long longCount = -1;
    short shortCount = -1;
    EXPECT_EQ(viaStr("%2$s%1$n|%3$d%4$ln%5$hn", &count, "hello", 42, &longCount, &shortCount), "hello|42");
    EXPECT_EQ(std::make_tuple(count, longCount, shortCount), std::make_tuple(5, 8L, short{8}));
    // The count is that of the whole text even where the room ends first.
    char small[4];
    EXPECT_EQ(coreN(small, sizeof small, "%2$s%1$n!", &count, "abcdef"), 7);
    EXPECT_EQ(count, 6);
    EXPECT_STREQ(small, "abc");
}

TEST(PrintCore, BoundedAndUnbounded)
{
    char dest[32];
    EXPECT_EQ(core(dest, "%2$s-%1$d", 12345, "abc"), dest);
    EXPECT_STREQ(dest, "abc-12345");
    // At most size bytes written, the zero included; the whole length back.
    for (std::size_t size : {0u, 4u, 6u}) {
        std::memset(dest, '#', sizeof dest);
        EXPECT_EQ(coreN(dest, size, "%2$s-%1$d", 12345, "abc"), 9);
        const std::string written = size == 0 ? "" : std::string("abc-12345", size - 1) + '\0';
        EXPECT_EQ(std::string(dest, size + 1), written + '#');
    }
    EXPECT_EQ(coreN(dest, 6, "%s-%d", "abc", 12345), 9);
    EXPECT_STREQ(dest, "abc-1");
}

// Formats beyond the limits of the reordering are left to the C library,
// which must not overflow anything on the way.
TEST(PrintPositional, FormatsBeyondTheLimits)
{
    for (std::size_t length : {1010u, 1100u}) {
        const std::string format = std::string(length, 'x') + "%2$s %1$d";
        EXPECT_EQ(viaStr(format.c_str(), 7, "t"), std::string(length, 'x') + "t 7");
    }
    for (const char* format : {"%1$", "%1$-5", "%1$l", "%1$*", "%1$*2", "%1$ll"}) {
        EXPECT_EQ(viaStr(format, 5), reference(format, 5)) << format;
    }
    // A position used twice: the library reads the positions itself.
    EXPECT_EQ(viaStr("%2$d%1$d%2$*1$d", 3, 4), "43  4");
}

// Standard output and files get what was produced, whole however long, and
// up to a character that cannot be encoded in the locale.
TEST(PrintStream, OutAndFilePrintWhatWasProduced)
{
    using Printed = std::pair<std::string, int>;
    const wchar_t euro[] = {0x20ac, 0};
    const std::string big(3000, 'b'), edge(1023, 'e');
    const std::string bigText = "7:" + big + ":end";
    // The Str operations give the length of what stands in the destination.
    EXPECT_EQ(viaStr("ab%lsc", euro), "ab");
    EXPECT_EQ(viaStr("ab%1$lsc", euro), "ab");
    for (bool toStdout : {true, false}) {
        SCOPED_TRACE(toStdout ? "trcPrintOut" : "trcPrintFile");
        EXPECT_EQ(printed(toStdout, "%2$s %1$d\n", 7, "text"), (Printed{"text 7\n", 7}));
        EXPECT_EQ(printed(toStdout, "plain %d\n", 3), (Printed{"plain 3\n", 8}));
        EXPECT_EQ(printed(toStdout, trcMsgGet(423), 12L, 1, 2, 3),
                  (Printed{"Records formatted       : 12     (pid: 1; tid: 2; node: 3)", 58}));
        EXPECT_EQ(printed(toStdout, "before %1$ls after", euro), (Printed{"before ", 7}));
        EXPECT_EQ(printed(toStdout, "before %ls after", euro), (Printed{"before ", 7}));
        EXPECT_EQ(printed(toStdout, "%2$d:%1$s:end", big.c_str(), 7), (Printed{bigText, 3006}));
        EXPECT_EQ(printed(toStdout, "%d:%s:end", 7, big.c_str()), (Printed{bigText, 3006}));
        // At the edge of a local buffer: 1023 and 1024 characters.
        EXPECT_EQ(printed(toStdout, "%1$s", edge.c_str()), (Printed{edge, 1023}));
        EXPECT_EQ(printed(toStdout, "%1$s", (edge + 'f').c_str()), (Printed{edge + 'f', 1024}));
    }
}
