// Buffered output and the escaping of record texts for JSON and CSV.
#include "trcxout.h"
#include "trcmsgid.h"

#include <cstdlib>

#include "trcerror.h"
#include "trcf.h"
#include "trcmsg.h"

namespace {
constexpr std::size_t bufferSize = 1 << 18;
constexpr char replacement[] = "\xEF\xBF\xBD";  // U+FFFD

}  // namespace

void trcxOutOpen(trcxOut_t* o, FILE* out, const char* outName) noexcept
{
    o->buffer = static_cast<char*>(std::malloc(bufferSize));
    if (o->buffer == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoTextMemory));
    }
    o->used = 0;
    o->capacity = bufferSize;
    o->out = out;
    o->outName = outName;
}

void trcxOutFlush(trcxOut_t* o) noexcept
{
    if (o->used != 0 && std::fwrite(o->buffer, 1, o->used, o->out) != o->used) {
        trcError(trcFExit, trcMsgGet(msgCannotWrite), o->outName);
    }
    o->used = 0;
}

void trcxOutDiscard(trcxOut_t* o) noexcept
{
    std::free(o->buffer);
    o->buffer = nullptr;
    o->used = 0;
}

void trcxOutClose(trcxOut_t* o) noexcept
{
    trcxOutFlush(o);
    if (std::fflush(o->out) != 0 || std::ferror(o->out)) {
        trcError(trcFExit, trcMsgGet(msgCannotWrite), o->outName);
    }
    std::free(o->buffer);
    o->buffer = nullptr;
}

void trcxDigits(char* last, unsigned long long value) noexcept
{
    static constexpr char pairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                                    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                                    "8081828384858687888990919293949596979899";
    while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100) * 2;
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

void trcxPutMicros(trcxOut_t* o, int64_t ns) noexcept
{
    unsigned long long v = static_cast<unsigned long long>(ns);
    if (ns < 0) {
        trcxPutChar(o, '-');
        v = 0ull - v;
    }
    trcxPutUnsigned(o, v / 1000);
    const unsigned fraction = static_cast<unsigned>(v % 1000);
    char text[4] = {'.', static_cast<char>('0' + fraction / 100), static_cast<char>('0' + fraction / 10 % 10),
                    static_cast<char>('0' + fraction % 10)};
    trcxPut(o, text, sizeof text);
}

void trcxPutHex(trcxOut_t* o, unsigned long long value) noexcept
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    char digits[18];
    char* last = digits + sizeof digits;
    char* first = last;
    do {
        *--first = hexDigits[value & 0xF];
        value >>= 4;
    } while (value != 0);
    *--first = 'x';
    *--first = '0';
    trcxPut(o, first, static_cast<std::size_t>(last - first));
}

// Well-formed UTF-8 as Unicode defines it: no overlong forms, no
// surrogates, nothing above U+10FFFF.
std::size_t trcxUtf8Length(const unsigned char* t, std::size_t left) noexcept
{
    const unsigned char c = t[0];
    if (c < 0x80) {
        return 1;
    }
    std::size_t n;
    unsigned char low = 0x80, high = 0xBF;  // bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        if (c == 0xE0) {
            low = 0xA0;
        } else if (c == 0xED) {
            high = 0x9F;
        }
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        if (c == 0xF0) {
            low = 0x90;
        } else if (c == 0xF4) {
            high = 0x8F;
        }
    } else {
        return 0;
    }
    if (left < n || t[1] < low || t[1] > high) {
        return 0;
    }
    for (std::size_t k = 2; k < n; ++k) {
        if (t[k] < 0x80 || t[k] > 0xBF) {
            return 0;
        }
    }
    return n;
}

namespace {

// The byte at i begins a character outside ASCII: copies it when it is
// valid UTF-8, else puts U+FFFD for that one byte. Returns where the next
// character begins.
std::size_t putUtf8At(trcxOut_t* o, const char* text, std::size_t length, std::size_t i) noexcept
{
    const auto* t = reinterpret_cast<const unsigned char*>(text);
    const std::size_t n = trcxUtf8Length(t + i, length - i);
    if (n == 0) {
        trcxPut(o, replacement);
        return i + 1;
    }
    trcxPut(o, text + i, n);
    return i + n;
}

}  // namespace

void trcxPutJsonText(trcxOut_t* o, const char* text, std::size_t length) noexcept
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    const auto* t = reinterpret_cast<const unsigned char*>(text);
    std::size_t i = 0;
    while (i < length) {
        // Plain bytes in runs: the common text needs no escape at all.
        std::size_t run = i;
        while (run < length && t[run] >= 0x20 && t[run] < 0x80 && t[run] != '"' && t[run] != '\\') {
            ++run;
        }
        if (run > i) {
            trcxPut(o, text + i, run - i);
            i = run;
            continue;
        }
        const unsigned char c = t[i];
        if (c == '"' || c == '\\') {
            const char escaped[2] = {'\\', static_cast<char>(c)};
            trcxPut(o, escaped, 2);
            ++i;
        } else if (c < 0x20) {
            switch (c) {
            case '\n':
                trcxPut(o, "\\n");
                break;
            case '\t':
                trcxPut(o, "\\t");
                break;
            case '\r':
                trcxPut(o, "\\r");
                break;
            default: {
                const char escaped[6] = {'\\', 'u', '0', '0', hexDigits[c >> 4], hexDigits[c & 0xF]};
                trcxPut(o, escaped, 6);
            }
            }
            ++i;
        } else {
            i = putUtf8At(o, text, length, i);
        }
    }
}

void trcxPutCsvText(trcxOut_t* o, const char* text, std::size_t length) noexcept
{
    const auto* t = reinterpret_cast<const unsigned char*>(text);
    trcxPutChar(o, '"');
    std::size_t i = 0;
    while (i < length) {
        // Plain bytes in runs: the common text needs no change at all.
        std::size_t run = i;
        while (run < length && t[run] != 0 && t[run] < 0x80 && t[run] != '"') {
            ++run;
        }
        if (run > i) {
            trcxPut(o, text + i, run - i);
            i = run;
            continue;
        }
        const unsigned char c = t[i];
        if (c == '"') {
            trcxPut(o, "\"\"");
            ++i;
        } else if (c == 0) {
            trcxPut(o, replacement);
            ++i;
        } else {
            i = putUtf8At(o, text, length, i);
        }
    }
    trcxPutChar(o, '"');
}
