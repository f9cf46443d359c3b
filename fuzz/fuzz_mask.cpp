// Mask texts of any bytes: the parsers must stay inside the text, and every
// accepted mask must come back unchanged through its canonical text. The
// same bytes, read as a raw mask record, must print within the stated room.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "trcmask.h"

namespace {

// The text of a mask, in a buffer of exactly the stated room, so that a
// longer text is caught as an overflow.
std::vector<char> maskText(unsigned char* mask)
{
    std::vector<char> text(trcMaskTextMax + 1);
    int length = trcMaskToStr(mask, text.data());
    if (length < 0 || length > trcMaskTextMax || std::strlen(text.data()) != static_cast<std::size_t>(length)) {
        std::abort();
    }
    return text;
}

void checkRoundTrip(unsigned char* mask)
{
    std::vector<char> text = maskText(mask);
    unsigned char again[trcMaskBytes];
    if (trcStrToMask(text.data(), again) != 0 || std::memcmp(again, mask, trcMaskBytes) != 0) {
        std::abort();
    }
}

bool hasEmptyMap(const unsigned char* mask)
{
    static const unsigned char zeros[trcMaskMapBytes] = {};
    for (int map = 0; map < trcMaskBytes / trcMaskMapBytes; ++map) {
        if (std::memcmp(mask + map * trcMaskMapBytes, zeros, trcMaskMapBytes) == 0) {
            return true;
        }
    }
    return false;
}

// A record with an empty map prints an empty dimension, which no text may
// have; any other record must come back unchanged.
void checkRawRecord(const unsigned char* data)
{
    unsigned char mask[trcMaskBytes];
    std::memcpy(mask, data, trcMaskBytes);
    if (!hasEmptyMap(mask)) {
        checkRoundTrip(mask);
        return;
    }
    std::vector<char> text = maskText(mask);
    unsigned char again[trcMaskBytes];
    if (trcStrToMask(text.data(), again) != -1) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    // Exactly the bytes and a terminating zero, so a read past it is caught.
    std::vector<char> text(data, data + size);
    text.push_back('\0');
    unsigned char mask[trcMaskBytes];
    if (trcStrToMask(text.data(), mask) == 0) {
        checkRoundTrip(mask);
    }
    if (trcCrashStrToMask(text.data(), mask) == 0) {
        checkRoundTrip(mask);
    }
    if (size >= static_cast<std::size_t>(trcMaskBytes)) {
        checkRawRecord(data);
    }
    return 0;
}
