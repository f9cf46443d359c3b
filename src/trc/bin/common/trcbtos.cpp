// Hexadecimal dump: one tab-indented line per 16 bytes, the bytes in pairs
// of hexadecimal digits, then the printable ones as characters.
#include "trcbtos.h"

namespace {

constexpr int lineBytes = 16;
constexpr char hexDigits[] = "0123456789abcdef";

char* putHex(char* out, int i, unsigned char byte)
{
    *out++ = hexDigits[byte >> 4];
    *out++ = hexDigits[byte & 0x0f];
    if (i % 2 == 1) {
        *out++ = ' ';
    }
    return out;
}

// Pads the hexadecimal part of a line of n bytes to its full width, so the
// character column always starts at the same place.
char* putPadding(char* out, int n)
{
    for (int j = n; j < lineBytes; ++j) {
        *out++ = ' ';
        *out++ = ' ';
        if (j % 2 == 1) {
            *out++ = ' ';
        }
    }
    return out;
}

char* putChars(char* out, const unsigned char* line, int n)
{
    for (int k = 0; k < n; ++k) {
        unsigned char c = line[k];
        *out++ = (c >= 0x20 && c <= 0x7e) ? static_cast<char>(c) : '.';
    }
    return out;
}

}  // namespace

int trcBinToStr(int count, const unsigned char* bytes, char* dest)
{
    char* out = dest;
    *out++ = '\t';
    for (int i = 0; i < count; ++i) {
        out = putHex(out, i, bytes[i]);
        int n = i % lineBytes + 1;
        if (n == lineBytes || i == count - 1) {
            out = putPadding(out, n);
            out = putChars(out, bytes + (i + 1 - n), n);
            *out++ = '\n';
            *out++ = '\t';
        }
    }
    // The tab that would open a further line is not part of the text.
    *--out = '\0';
    return static_cast<int>(out - dest);
}
