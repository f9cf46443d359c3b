// Mask text to mask record: dimensions separated by ".", items by ",", an
// item being a number, a range of two numbers or "*".
#include "trcmask.h"
#include "trcnumber.h"

#include <cstring>

namespace {

constexpr int maxValue = 255;
constexpr int dimensions = trcMaskBytes / trcMaskMapBytes;

// Reads a run of decimal digits. The value saturates just above 255, so a
// long run of digits is refused as too large instead of wrapping round.
int readNumber(const char*& p)
{
    int value = 0;
    while (trcIsDigit(*p)) {
        value = value * 10 + (*p - '0');
        if (value > maxValue) {
            value = maxValue + 1;
        }
        ++p;
    }
    return value;
}

void setBits(unsigned char* map, int first, int last)
{
    for (int v = first; v <= last; ++v) {
        map[v >> 3] = static_cast<unsigned char>(map[v >> 3] | (1u << (v & 7)));
    }
}

// One item at p into map; advances p behind it. False if the item is refused.
bool readItem(const char*& p, unsigned char* map)
{
    if (*p == '*') {
        std::memset(map, 0xff, trcMaskMapBytes);
        ++p;
        return true;
    }
    if (!trcIsDigit(*p)) {
        return false;
    }
    int first = readNumber(p);
    if (first > maxValue) {
        return false;
    }
    int last = first;
    if (*p == '-') {
        ++p;
        if (!trcIsDigit(*p)) {
            return false;
        }
        last = readNumber(p);
        if (last > maxValue || last < first) {
            return false;
        }
    }
    setBits(map, first, last);
    return true;
}

}  // namespace

int trcStrToMask(const char* text, unsigned char* mask)
{
    if (text == nullptr) {
        return -1;
    }
    std::memset(mask, 0, trcMaskBytes);
    const char* p = text;
    int d = 0;
    for (;;) {
        if (!readItem(p, mask + d * trcMaskMapBytes)) {
            return -1;
        }
        if (*p == '\0') {
            break;
        }
        if (*p == '.') {
            if (d + 1 >= dimensions) {
                return -1;
            }
            ++d;
        } else if (*p != ',') {
            return -1;
        }
        ++p;
    }
    // A short mask leaves the dimensions it does not name unrestricted.
    for (int rest = d + 1; rest < dimensions; ++rest) {
        std::memset(mask + rest * trcMaskMapBytes, 0xff, trcMaskMapBytes);
    }
    return 0;
}

int trcCrashStrToMask(const char* text, unsigned char* mask)
{
    if (text == nullptr) {
        return -1;
    }
    // The first field (the product) is skipped unread: the facility takes
    // the crash mask from the event onwards.
    const char* p = text;
    while (trcIsDigit(*p) || *p == ',' || *p == '-' || *p == '*') {
        ++p;
    }
    if (*p != '.') {
        return -1;
    }
    return trcStrToMask(p + 1, mask) == 0 ? 0 : -1;
}
