// printf family with positional arguments.
//
// One pass over the format decides whether every conversion carries a
// one-digit position. If so, the positions are dropped from a rewritten
// format, the arguments are fetched in the order of their position digits,
// each with the C type its conversion expects, and the rewritten format is
// printed conversion by conversion with the values in the order it uses them.
// Otherwise the format goes to the C library untouched.
#include "trcprint.h"
#include "trcnumber.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

constexpr char conversions[] = "diouxXcspnfeEgG%";
constexpr int positions = 10;
constexpr std::size_t formatRoom = 1024;
constexpr int maxArguments = 9;
constexpr int maxStars = 2;

// Bytes an argument takes in a 32-bit argument area, by conversion index
// times two, plus one with a length modifier. Only its zeros matter here:
// a conversion of size 0 ("%%" written with a position) takes no argument.
// clang-format off
constexpr std::uint32_t areaWidth[32] = {
    4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4,
    8, 12, 8, 12, 8, 12, 8, 12, 8, 12, 0, 0,
};

enum class Kind : unsigned char {
    None, Int, UInt, Long, ULong, WInt, Str, WStr, Ptr,
    IntPtr, LongPtr, ShortPtr, CharPtr, Double, LongDouble,
};
// clang-format on

struct Slot {
    std::uint16_t size;
    std::uint16_t order;
    Kind kind;
};

struct Conversion {
    std::size_t start;  // the "%" in the rewritten format
    std::size_t end;    // behind the conversion character
    int stars;
    char character;
};

struct Pass {
    char format[formatRoom];
    std::size_t length;
    Slot slot[positions];
    int uses[maxArguments + 1];  // by order (from 1): the position used
    Conversion found[maxArguments];
    int conversionCount;
    int count;
};

union Value {
    int i;
    unsigned u;
    long l;
    unsigned long ul;
    wint_t wc;
    const char* s;
    const wchar_t* ws;
    void* p;
    int* ip;
    long* lp;
    short* sp;
    signed char* cp;
    double d;
    long double ld;
};

bool isConversion(char c) { return c != '\0' && std::strchr(conversions, c) != nullptr; }

bool put(Pass& ps, char c)
{
    if (ps.length >= formatRoom) {
        return false;
    }
    ps.format[ps.length++] = c;
    return true;
}

// Records the next use of a position. A position used twice, or a tenth
// use, cannot be laid out: the format is then left to the C library.
bool usePosition(Pass& ps, int position, std::uint16_t size, Kind kind)
{
    Slot& slot = ps.slot[position];
    if (ps.count >= maxArguments || slot.order != 0) {
        return false;
    }
    ++ps.count;
    slot = Slot{size, static_cast<std::uint16_t>(ps.count), kind};
    ps.uses[ps.count] = position;
    return true;
}

Kind integerKind(char modifier, Kind plain, Kind withL)
{
    if (modifier == 'L') {
        return Kind::None;
    }
    return modifier == 'l' ? withL : plain;
}

// The C type of the argument of a conversion; None for a combination that
// has no well-defined argument type, which keeps the format away from the
// positional path.
Kind kindOf(char conv, char modifier, int halves)
{
    switch (conv) {
    case 'd':
    case 'i':
        return integerKind(modifier, Kind::Int, Kind::Long);
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        return integerKind(modifier, Kind::UInt, Kind::ULong);
    case 'n':
        if (modifier == 'L' || (modifier == 'l' && halves > 0)) {
            return Kind::None;
        }
        if (modifier == 'l') {
            return Kind::LongPtr;
        }
        return halves == 0 ? Kind::IntPtr : (halves == 1 ? Kind::ShortPtr : Kind::CharPtr);
    default:
        break;
    }
    if (halves > 0) {
        return Kind::None;
    }
    switch (conv) {
    case 'c':
        return integerKind(modifier, Kind::Int, Kind::WInt);
    case 's':
        return integerKind(modifier, Kind::Str, Kind::WStr);
    case 'p':
        return modifier == 0 ? Kind::Ptr : Kind::None;
    default:
        return modifier == 'L' ? Kind::LongDouble : Kind::Double;
    }
}

void skipDigits(const char*& p)
{
    while (trcIsDigit(*p)) {
        ++p;
    }
}

// Checks the rewritten conversion text (from "%" to its conversion
// character) against the printf grammar: flags, width, precision, "h" or
// "hh", a length modifier, the conversion. Gives the argument kind and the
// number of "*". False if the text is not one plain printf conversion.
bool checkConversion(const char* text, std::size_t length, Kind& kind, int& stars)
{
    const char* p = text + 1;
    const char* end = text + length - 1;  // the conversion character
    char conv = *end;
    if (conv == '%') {
        kind = Kind::None;
        stars = 0;
        return length == 2;
    }
    stars = 0;
    while (p < end && std::strchr("-+ #0'", *p) != nullptr) {
        ++p;
    }
    // Width, then an optional precision: each a "*" or digits.
    auto skipNumber = [&] {
        if (p < end && *p == '*') {
            ++stars;
            ++p;
        } else {
            skipDigits(p);
        }
    };
    skipNumber();
    if (p < end && *p == '.') {
        ++p;
        skipNumber();
    }
    int halves = 0;
    while (p < end && *p == 'h' && halves < 2) {
        ++halves;
        ++p;
    }
    char modifier = 0;
    if (p < end && (*p == 'l' || *p == 'L')) {
        modifier = *p++;
    }
    if (p != end || stars > maxStars || (conv == 'n' && end - text != 1 + halves + (modifier != 0))) {
        return false;
    }
    kind = kindOf(conv, modifier, halves);
    return kind != Kind::None;
}

// Copies the flags, width and precision of a positional conversion up to a
// conversion character or a length modifier; each "*" names the position of
// its value with a digit and "$", which are dropped.
bool copyUpToConversion(Pass& ps, const char*& p, char& reached)
{
    for (;;) {
        char c = *p;
        if (c == '\0' || !put(ps, c)) {
            return false;
        }
        ++p;
        if (isConversion(c) || c == 'l' || c == 'L') {
            reached = c;
            return true;
        }
        if (c == '*') {
            if (!trcIsDigit(p[0]) || p[1] != '$' || !usePosition(ps, p[0] - '0', 4, Kind::Int)) {
                return false;
            }
            p += 2;
        }
    }
}

// One positional conversion, p standing on its position digit.
bool passConversion(Pass& ps, const char*& p)
{
    int position = p[0] - '0';
    p += 2;
    std::size_t start = ps.length - 1;
    char c = 0;
    if (!copyUpToConversion(ps, p, c)) {
        return false;
    }
    bool modified = (c == 'l' || c == 'L');
    if (modified) {
        c = *p;
        if (c == '\0' || !put(ps, c)) {
            return false;
        }
        ++p;
    }
    if (!isConversion(c) || ps.conversionCount >= maxArguments) {
        return false;
    }
    Conversion& conv = ps.found[ps.conversionCount];
    conv = Conversion{start, ps.length, 0, c};
    Kind kind = Kind::None;
    if (!checkConversion(ps.format + start, ps.length - start, kind, conv.stars)) {
        return false;
    }
    int index = static_cast<int>(std::strchr(conversions, c) - conversions);
    std::uint16_t size = static_cast<std::uint16_t>(areaWidth[index * 2 + (modified ? 1 : 0)]);
    if (!usePosition(ps, position, size, kind)) {
        return false;
    }
    ++ps.conversionCount;
    return true;
}

// The pass over the format. True if the format is positional throughout
// and fits the rewritten format; false for the plain case.
bool runPass(const char* format, Pass& ps)
{
    std::memset(&ps, 0, sizeof ps);
    const char* p = format;
    for (;;) {
        char c = *p;
        if (!put(ps, c)) {
            return false;
        }
        if (c == '\0') {
            break;
        }
        ++p;
        if (c != '%') {
            continue;
        }
        if (*p == '%') {
            if (!put(ps, '%')) {
                return false;
            }
            ++p;
            continue;
        }
        if (!trcIsDigit(p[0]) || p[1] != '$' || !passConversion(ps, p)) {
            return false;
        }
    }
    return ps.conversionCount > 0;
}

void fetch(Kind kind, va_list& ap, Value& v)
{
    switch (kind) {
    case Kind::Int:
        v.i = va_arg(ap, int);
        break;
    case Kind::UInt:
        v.u = va_arg(ap, unsigned);
        break;
    case Kind::Long:
        v.l = va_arg(ap, long);
        break;
    case Kind::ULong:
        v.ul = va_arg(ap, unsigned long);
        break;
    case Kind::WInt:
        v.wc = va_arg(ap, wint_t);
        break;
    case Kind::Str:
        v.s = va_arg(ap, const char*);
        break;
    case Kind::WStr:
        v.ws = va_arg(ap, const wchar_t*);
        break;
    case Kind::Ptr:
        v.p = va_arg(ap, void*);
        break;
    case Kind::IntPtr:
        v.ip = va_arg(ap, int*);
        break;
    case Kind::LongPtr:
        v.lp = va_arg(ap, long*);
        break;
    case Kind::ShortPtr:
        v.sp = va_arg(ap, short*);
        break;
    case Kind::CharPtr:
        v.cp = va_arg(ap, signed char*);
        break;
    case Kind::Double:
        v.d = va_arg(ap, double);
        break;
    case Kind::LongDouble:
        v.ld = va_arg(ap, long double);
        break;
    case Kind::None:
        break;
    }
}

// Where the text goes: at most size bytes of dest, the zero included.
struct Sink {
    char* dest;
    std::size_t size;
    std::size_t length;
};

char* sinkAt(const Sink& sink) { return sink.length < sink.size ? sink.dest + sink.length : nullptr; }

std::size_t sinkRoom(const Sink& sink) { return sink.length < sink.size ? sink.size - sink.length : 0; }

bool advance(Sink& sink, int produced)
{
    constexpr std::size_t limit = INT_MAX;
    if (produced < 0 || sink.length > limit || static_cast<std::size_t>(produced) > limit - sink.length) {
        return false;
    }
    sink.length += static_cast<std::size_t>(produced);
    return true;
}

template <typename T>
int formatValue(const Sink& sink, const char* text, const int* stars, int count, T value)
{
    char* at = sinkAt(sink);
    std::size_t room = sinkRoom(sink);
    switch (count) {
    case 0:
        return std::snprintf(at, room, text, value);
    case 1:
        return std::snprintf(at, room, text, stars[0], value);
    default:
        return std::snprintf(at, room, text, stars[0], stars[1], value);
    }
}

int formatKind(const Sink& sink, const char* text, const int* stars, int count, Kind kind, const Value& v)
{
    switch (kind) {
    case Kind::Int:
        return formatValue(sink, text, stars, count, v.i);
    case Kind::UInt:
        return formatValue(sink, text, stars, count, v.u);
    case Kind::Long:
        return formatValue(sink, text, stars, count, v.l);
    case Kind::ULong:
        return formatValue(sink, text, stars, count, v.ul);
    case Kind::WInt:
        return formatValue(sink, text, stars, count, v.wc);
    case Kind::Str:
        return formatValue(sink, text, stars, count, v.s);
    case Kind::WStr:
        return formatValue(sink, text, stars, count, v.ws);
    case Kind::Ptr:
        return formatValue(sink, text, stars, count, v.p);
    case Kind::Double:
        return formatValue(sink, text, stars, count, v.d);
    case Kind::LongDouble:
        return formatValue(sink, text, stars, count, v.ld);
    default:
        return -1;
    }
}

// "%n": the count of characters produced so far in the whole text.
void storeCount(Kind kind, const Value& v, std::size_t length)
{
    switch (kind) {
    case Kind::IntPtr:
        *v.ip = static_cast<int>(length);
        break;
    case Kind::LongPtr:
        *v.lp = static_cast<long>(length);
        break;
    case Kind::ShortPtr:
        *v.sp = static_cast<short>(length);
        break;
    case Kind::CharPtr:
        *v.cp = static_cast<signed char>(length);
        break;
    default:
        break;
    }
}

void putChar(Sink& sink, char c)
{
    if (sink.length < sink.size) {
        sink.dest[sink.length] = c;
    }
    ++sink.length;
}

// Literal text of the rewritten format, where "%%" stands for "%".
void putLiteral(Sink& sink, const char* from, const char* to)
{
    while (from < to) {
        putChar(sink, *from);
        from += (from[0] == '%' && from + 1 < to && from[1] == '%') ? 2 : 1;
    }
}

bool putConversion(Sink& sink, const Pass& ps, const Conversion& conv, int& order, const Value* values)
{
    int stars[maxStars] = {0, 0};
    for (int k = 0; k < conv.stars; ++k) {
        stars[k] = values[ps.uses[order++]].i;
    }
    int position = ps.uses[order++];
    Kind kind = ps.slot[position].kind;
    if (conv.character == '%') {
        putChar(sink, '%');
        return true;
    }
    if (conv.character == 'n') {
        storeCount(kind, values[position], sink.length);
        return true;
    }
    char text[formatRoom];
    std::size_t length = conv.end - conv.start;
    std::memcpy(text, ps.format + conv.start, length);
    text[length] = '\0';
    return advance(sink, formatKind(sink, text, stars, conv.stars, kind, values[position]));
}

// Positional case: arguments in the order of their position digits (a
// position of size 0 takes none), output in the order the format uses them.
int printPositional(Sink& sink, const Pass& ps, va_list& ap)
{
    Value values[positions] = {};
    for (int position = 0; position < positions; ++position) {
        if (ps.slot[position].size != 0) {
            fetch(ps.slot[position].kind, ap, values[position]);
        }
    }
    const char* at = ps.format;
    int order = 1;
    for (int k = 0; k < ps.conversionCount; ++k) {
        const Conversion& conv = ps.found[k];
        putLiteral(sink, at, ps.format + conv.start);
        if (!putConversion(sink, ps, conv, order, values)) {
            // As the C library leaves it: the text up to the conversion
            // that failed, terminated.
            if (sink.size > 0) {
                sink.dest[sink.length < sink.size ? sink.length : sink.size - 1] = '\0';
            }
            return -1;
        }
        at = ps.format + conv.end;
    }
    putLiteral(sink, at, ps.format + ps.length - 1);
    if (sink.length > INT_MAX) {
        return -1;
    }
    if (sink.size > 0) {
        sink.dest[sink.length < sink.size ? sink.length : sink.size - 1] = '\0';
    }
    return static_cast<int>(sink.length);
}

// bounded: vsnprintf semantics on size bytes; otherwise vsprintf semantics.
int printInto(char* dest, std::size_t size, bool bounded, const char* format, va_list args)
{
    Pass ps;
    va_list ap;
    va_copy(ap, args);
    int result = -1;
    if (runPass(format, ps)) {
        Sink sink{dest, size, 0};
        result = printPositional(sink, ps, ap);
    } else {
        result = bounded ? std::vsnprintf(dest, size, format, ap) : std::vsprintf(dest, format, ap);
    }
    va_end(ap);
    return result;
}

int printStream(FILE* stream, const char* format, va_list args)
{
    char local[formatRoom];
    local[0] = '\0';
    va_list ap;
    va_copy(ap, args);
    int length = trcPrintCoreN(local, sizeof local, format, ap);
    va_end(ap);
    if (length < 0) {
        // A conversion that failed part-way (a character the locale cannot
        // encode): what was produced before it is printed.
        return std::fprintf(stream, "%s", local);
    }
    if (static_cast<std::size_t>(length) < sizeof local) {
        return std::fprintf(stream, "%s", local);
    }
    // Longer than the local buffer: format again into one of the exact size.
    char* heap = static_cast<char*>(std::malloc(static_cast<std::size_t>(length) + 1));
    if (heap == nullptr) {
        return -1;
    }
    va_copy(ap, args);
    int again = trcPrintCoreN(heap, static_cast<std::size_t>(length) + 1, format, ap);
    va_end(ap);
    int result = (again == length) ? std::fprintf(stream, "%s", heap) : -1;
    std::free(heap);
    return result;
}

}  // namespace

char* trcPrintCore(char* dest, const char* format, va_list args)
{
    printInto(dest, INT_MAX, false, format, args);
    return dest;
}

int trcPrintCoreN(char* dest, std::size_t size, const char* format, va_list args)
{
    return printInto(dest, size, true, format, args);
}

// The length of what stands in dest, also after a conversion that failed
// part-way.
int trcPrintStrVar(char* dest, const char* format, va_list args)
{
    printInto(dest, INT_MAX, false, format, args);
    return static_cast<int>(std::strlen(dest));
}

int trcPrintStr(char* dest, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int result = trcPrintStrVar(dest, format, args);
    va_end(args);
    return result;
}

int trcPrintOutVar(const char* format, va_list args) { return printStream(stdout, format, args); }

int trcPrintOut(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int result = trcPrintOutVar(format, args);
    va_end(args);
    return result;
}

int trcPrintFileVar(FILE* stream, const char* format, va_list args) { return printStream(stream, format, args); }

int trcPrintFile(FILE* stream, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    int result = trcPrintFileVar(stream, format, args);
    va_end(args);
    return result;
}
