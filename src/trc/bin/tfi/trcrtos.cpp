// The two text forms of a trace record. Rendering is the inner loop of the
// format and flow reports: it allocates nothing, looks names up by plain
// indexing, and formats numbers by hand rather than through printf. Every
// write is clipped to the caller's buffer, since a record's length comes
// from the trace.
#include "trcrtos.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

// Every put writes at p, clipped at end, and returns the new position; a
// position at end means the buffer is full and the text possibly cut. The
// position travels by value so that it stays in a register while bytes are
// stored through char pointers.

char* put(char* p, char* end, const char* text, std::size_t length)
{
    std::size_t room = static_cast<std::size_t>(end - p);
    if (length > room)
        length = room;
    std::memcpy(p, text, length);
    return p + length;
}

// Names are short: one pass that copies and finds the end at once.
inline char* put(char* p, char* end, const char* text)
{
    while (*text != '\0' && p != end)
        *p++ = *text++;
    return p;
}

// With room enough the copy has a constant size and needs no call.
template <std::size_t N>
inline char* putLiteral(char* p, char* end, const char (&text)[N])
{
    if (static_cast<std::size_t>(end - p) >= N - 1) {
        std::memcpy(p, text, N - 1);
        return p + N - 1;
    }
    return put(p, end, text, N - 1);
}

inline unsigned digitCount(unsigned long long value)
{
    unsigned count = 1;
    while (value >= 100) {
        value /= 100;
        count += 2;
    }
    return value >= 10 ? count + 1 : count;
}

// Writes the decimal digits of value backwards from last, two at a time.
inline void writeDigits(char* last, unsigned long long value)
{
    static constexpr char pairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                                    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                                    "8081828384858687888990919293949596979899";
    while (value >= 100) {
        unsigned pair = static_cast<unsigned>(value % 100) * 2;
        value /= 100;
        *--last = pairs[pair + 1];
        *--last = pairs[pair];
    }
    if (value >= 10) {
        *--last = pairs[value * 2 + 1];
        *--last = pairs[value * 2];
    } else {
        *--last = static_cast<char>('0' + value);
    }
}

inline char* putUnsigned(char* p, char* end, unsigned long long value)
{
    unsigned count = digitCount(value);
    if (static_cast<std::size_t>(end - p) >= count) {
        writeDigits(p + count, value);
        return p + count;
    }
    char digits[24];
    writeDigits(digits + count, value);
    return put(p, end, digits, count);
}

inline char* putSigned(char* p, char* end, long long value)
{
    if (value >= 0)
        return putUnsigned(p, end, static_cast<unsigned long long>(value));
    p = putLiteral(p, end, "-");
    return putUnsigned(p, end, 0ull - static_cast<unsigned long long>(value));
}

// "0x" and lower-case hexadecimal digits: what %#x and %p give for non-zero values.
char* putHex(char* p, char* end, unsigned long long value)
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    char digits[2 + 16];
    char* last = digits + sizeof digits;
    char* first = last;
    do {
        *--first = hexDigits[value & 0xF];
        value >>= 4;
    } while (value != 0);
    *--first = 'x';
    *--first = '0';
    return put(p, end, first, static_cast<std::size_t>(last - first));
}

// The names of a record, each reached by one to four indexed loads.
struct names {
    const char* event;
    const char* product;
    const char* component;
    const char* klass;
    const char* function;
};

names lookUp(const trcRecord_t* r)
{
    unsigned p = trcRecProduct(r), c = trcRecComponent(r), k = trcRecClass(r), f = trcRecFunction(r);
    return {trcNameEvent[trcRecEvent(r)], trcNameProd[p], trcNameComp[p][c], trcNameClass[p][c][k],
            trcNameFnc[p][c][k][f]};
}

const char* dataOf(const trcRecord_t* r) { return reinterpret_cast<const char*>(r) + TRC_RECORD_FIXED; }

// The return code: the first four bytes of the data, whatever the length
// says. They lie within the 44 bytes that every record handed over has, and
// in a record without data they are its trailing length word.
int32_t returnCode(const trcRecord_t* r)
{
    int32_t rc;
    std::memcpy(&rc, dataOf(r), sizeof rc);
    return rc;
}

char* putTitle(char* p, char* end, const trcRecord_t* r, const names& n, unsigned long number, int join)
{
    p = putLiteral(p, end, "\n");
    p = putUnsigned(p, end, number);
    p = putLiteral(p, end, "\t");
    p = put(p, end, n.event);
    p = putLiteral(p, end, " ");
    p = put(p, end, n.product);
    p = putLiteral(p, end, " ");
    p = put(p, end, n.component);
    p = putLiteral(p, end, " ");
    p = put(p, end, n.klass);
    p = putLiteral(p, end, "::");
    p = put(p, end, n.function);
    p = putLiteral(p, end, " (");
    p = putUnsigned(p, end, trcRecProduct(r));
    p = putLiteral(p, end, ".");
    p = putUnsigned(p, end, trcRecEvent(r));
    p = putLiteral(p, end, ".");
    p = putUnsigned(p, end, trcRecComponent(r));
    p = putLiteral(p, end, ".");
    p = putUnsigned(p, end, trcRecClass(r));
    p = putLiteral(p, end, ".");
    p = putUnsigned(p, end, trcRecFunction(r));
    p = putLiteral(p, end, ".");
    p = putUnsigned(p, end, trcRecTracePoint(r));
    p = putLiteral(p, end, ")");
    return join != 0 ? putLiteral(p, end, "; ") : putLiteral(p, end, "\n\t");
}

char* putOrigin(char* p, char* end, const trcRecord_t* r)
{
    p = putLiteral(p, end, "pid ");
    p = putUnsigned(p, end, r->pid);
    if (r->tid != 0) {
        p = putLiteral(p, end, "; tid ");
        p = putUnsigned(p, end, r->tid);
    }
    if (r->cpid != 0) {
        p = putLiteral(p, end, "; cpid ");
        p = putUnsigned(p, end, r->cpid);
    }
    if (r->sec != 0) {
        p = putLiteral(p, end, "; sec ");
        p = putSigned(p, end, r->sec);
        p = putLiteral(p, end, "; nsec ");
        p = putSigned(p, end, r->nsec);
    }
    if (r->thisPointer != 0) {
        p = putLiteral(p, end, "; this ");
        p = putHex(p, end, r->thisPointer);
    }
    return p;
}

char* putReturnCode(char* p, char* end, const trcRecord_t* r)
{
    int32_t rc = returnCode(r);
    if (rc == 0)
        return p;
    p = putLiteral(p, end, "\n\trc = ");
    p = putSigned(p, end, rc);
    p = putLiteral(p, end, " = ");
    p = putHex(p, end, static_cast<uint32_t>(rc));
    return putLiteral(p, end, "\n");
}

// The data as it stands, with a tab behind every line end but the last byte.
char* putText(char* p, char* end, const trcRecord_t* r)
{
    long long length = static_cast<long long>(r->length) - TRC_RECORD_MIN;
    if (length < 1)
        return p;
    p = putLiteral(p, end, "\n\t");
    // Every byte of the text takes at least one byte of room: what would
    // not fit is not even read.
    if (length > end - p)
        length = end - p;
    const char* text = dataOf(r);
    const char* last = text + length;
    while (text < last && p != end) {
        const void* found = std::memchr(text, '\n', static_cast<std::size_t>(last - text));
        const char* stop = found != nullptr ? static_cast<const char*>(found) + 1 : last;
        p = put(p, end, text, static_cast<std::size_t>(stop - text));
        text = stop;
        if (found != nullptr && text < last)
            p = putLiteral(p, end, "\t");
    }
    return p;
}

// The function as the flow report names it: the component in a column of
// four, then class::function.
char* putFncName(char* p, char* end, const names& n)
{
    char* column = p;
    p = put(p, end, n.component);
    while (p - column < 4 && p != end)
        *p++ = ' ';
    p = putLiteral(p, end, " ");
    p = put(p, end, n.klass);
    p = putLiteral(p, end, "::");
    return put(p, end, n.function);
}

}  // namespace

int trcRecFncName(const trcRecord_t* record, char* dest, int size)
{
    if (dest == nullptr || size <= 0)
        return 0;
    char* end = dest + size - 1;
    char* p = putFncName(dest, end, lookUp(record));
    *p = '\0';
    return static_cast<int>(p - dest);
}

// A full buffer ends in a line end: either the text fitted exactly, and its
// last byte is one already, or it was cut and the last byte becomes one.
int trcRecToStr(const trcRecord_t* record, char* dest, int size, unsigned long number, int join)
{
    if (dest == nullptr || size <= 0)
        return 0;
    char* end = dest + size;
    char* p = putTitle(dest, end, record, lookUp(record), number, join);
    p = putOrigin(p, end, record);
    if (trcIsRcEvent(trcRecEvent(record)))
        p = putReturnCode(p, end, record);
    else
        p = putText(p, end, record);
    if (p[-1] != '\n')
        p = putLiteral(p, end, "\n");
    if (p == end)
        p[-1] = '\n';
    return static_cast<int>(p - dest);
}

// One byte stays for the NUL; a full line is closed like trcRecToStr's.
char* trcRecToFnc(const trcRecord_t* record, char* dest, int size)
{
    if (dest == nullptr || size <= 0)
        return dest;
    char* end = dest + size - 1;
    names n = lookUp(record);
    char* p = put(dest, end, n.event);
    p = putLiteral(p, end, " ");
    p = putFncName(p, end, n);
    if (trcRecTracePoint(record) != 0) {
        p = putLiteral(p, end, " (");
        p = putUnsigned(p, end, trcRecTracePoint(record));
        p = putLiteral(p, end, ")");
    }
    if (trcIsRcEvent(trcRecEvent(record))) {
        int32_t rc = returnCode(record);
        if (rc == 0) {
            p = putLiteral(p, end, " -> 0");
        } else {
            p = putLiteral(p, end, " -> ");
            p = putHex(p, end, static_cast<uint32_t>(rc));
            p = putLiteral(p, end, " = ");
            p = putSigned(p, end, rc);
        }
    } else if (record->length > TRC_RECORD_FIXED) {
        p = putLiteral(p, end, " ...");
    }
    p = putLiteral(p, end, "\n");
    if (p == end && p != dest)
        p[-1] = '\n';
    *p = '\0';
    return dest;
}
