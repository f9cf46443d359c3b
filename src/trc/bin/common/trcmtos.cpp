// Mask record to its canonical text: six dimensions, each the maximal runs
// of set values, "*" for a full map, nothing for an empty one.
#include "trcmask.h"

namespace {

constexpr int mapValues = 256;
constexpr int dimensions = trcMaskBytes / trcMaskMapBytes;

bool isSet(const unsigned char* map, int v) { return (map[v >> 3] >> (v & 7)) & 1u; }

// Writes a value of 0 to 255 in decimal; returns the end of the text.
char* putNumber(char* out, int value)
{
    if (value >= 100) {
        *out++ = static_cast<char>('0' + value / 100);
    }
    if (value >= 10) {
        *out++ = static_cast<char>('0' + value / 10 % 10);
    }
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

char* putMap(char* out, const unsigned char* map)
{
    bool first = true;
    int v = 0;
    while (v < mapValues) {
        if (!isSet(map, v)) {
            ++v;
            continue;
        }
        int start = v;
        while (v < mapValues && isSet(map, v)) {
            ++v;
        }
        int last = v - 1;
        if (!first) {
            *out++ = ',';
        }
        first = false;
        if (start == 0 && last == mapValues - 1) {
            *out++ = '*';
        } else {
            out = putNumber(out, start);
            if (last != start) {
                *out++ = '-';
                out = putNumber(out, last);
            }
        }
    }
    return out;
}

}  // namespace

int trcMaskToStr(unsigned char* mask, char* buffer)
{
    char* out = buffer;
    for (int d = 0; d < dimensions; ++d) {
        if (d > 0) {
            *out++ = '.';
        }
        out = putMap(out, mask + d * trcMaskMapBytes);
    }
    *out = '\0';
    return static_cast<int>(out - buffer);
}
