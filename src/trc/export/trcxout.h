// Buffered output of the export and statistics programs: text, numbers and
// record texts made safe for JSON and CSV, gathered in one buffer that goes
// to the stream in large writes.
#ifndef KELVO_TRCXOUT_H
#define KELVO_TRCXOUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

struct trcxOut_t {
    char* buffer;
    std::size_t used;
    std::size_t capacity;
    FILE* out;
    const char* outName;  // for message 403
};

// Allocates the buffer (message 409 and the end of the process if there is
// no memory).
void trcxOutOpen(trcxOut_t* o, FILE* out, const char* outName) noexcept;
// Writes out what is gathered; message 403 with outName if that fails.
void trcxOutFlush(trcxOut_t* o) noexcept;
// Frees the buffer without writing it (a buffer that gathers a text).
void trcxOutDiscard(trcxOut_t* o) noexcept;
// Flushes, then flushes the stream itself and checks it; frees the buffer.
void trcxOutClose(trcxOut_t* o) noexcept;

// Room for n more bytes at o->buffer + o->used; n at most 4096.
inline char* trcxOutRoom(trcxOut_t* o, std::size_t n) noexcept
{
    if (o->capacity - o->used < n) {
        trcxOutFlush(o);
    }
    return o->buffer + o->used;
}

inline void trcxPut(trcxOut_t* o, const char* text, std::size_t length) noexcept
{
    while (length > 0) {
        std::size_t part = length < 4096 ? length : 4096;
        std::memcpy(trcxOutRoom(o, part), text, part);
        o->used += part;
        text += part;
        length -= part;
    }
}

template <std::size_t N>
inline void trcxPut(trcxOut_t* o, const char (&text)[N]) noexcept
{
    std::memcpy(trcxOutRoom(o, N - 1), text, N - 1);
    o->used += N - 1;
}

inline void trcxPutStr(trcxOut_t* o, const char* text) { trcxPut(o, text, std::strlen(text)); }

inline void trcxPutChar(trcxOut_t* o, char c) noexcept
{
    *trcxOutRoom(o, 1) = c;
    ++o->used;
}

// Number of decimal digits of value.
inline unsigned trcxDigitCount(unsigned long long value) noexcept
{
    unsigned count = 1;
    while (value >= 100) {
        value /= 100;
        count += 2;
    }
    return value >= 10 ? count + 1 : count;
}

// Writes the decimal digits of value backwards from last, two at a time.
void trcxDigits(char* last, unsigned long long value) noexcept;

// Numbers are the bulk of every row: written in place in the buffer.
inline void trcxPutUnsigned(trcxOut_t* o, unsigned long long value) noexcept
{
    const unsigned n = trcxDigitCount(value);
    char* room = trcxOutRoom(o, n);
    trcxDigits(room + n, value);
    o->used += n;
}

inline void trcxPutSigned(trcxOut_t* o, long long value) noexcept
{
    if (value < 0) {
        trcxPutChar(o, '-');
        trcxPutUnsigned(o, 0ull - static_cast<unsigned long long>(value));
    } else {
        trcxPutUnsigned(o, static_cast<unsigned long long>(value));
    }
}
// Nanoseconds as microseconds with three decimals: 1234567 -> "1234.567".
void trcxPutMicros(trcxOut_t* o, int64_t ns) noexcept;
// "0x" and lower-case hexadecimal digits.
void trcxPutHex(trcxOut_t* o, unsigned long long value) noexcept;

// The bytes as the inside of a JSON string: quote, backslash and control
// bytes escaped, every byte that does not belong to a well-formed UTF-8
// sequence replaced by U+FFFD.
void trcxPutJsonText(trcxOut_t* o, const char* text, std::size_t length) noexcept;
// The bytes as one quoted CSV field: quotes doubled, ill-formed UTF-8 and
// zero bytes replaced by U+FFFD.
void trcxPutCsvText(trcxOut_t* o, const char* text, std::size_t length) noexcept;

// Length of the well-formed UTF-8 sequence at text (at most left bytes),
// 0 if the byte there does not begin one.
std::size_t trcxUtf8Length(const unsigned char* text, std::size_t left) noexcept;

#endif
