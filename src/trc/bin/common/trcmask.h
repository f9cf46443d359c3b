// Mask text and mask record: six maps of 256 bits (product, event,
// component, class, function, trace point), 192 bytes in all.
#ifndef KELVO_TRCMASK_H
#define KELVO_TRCMASK_H

#include <kelvo/trcformat.h>

constexpr int trcMaskBytes = TRC_MASK_SIZE;
constexpr int trcMaskMapBytes = TRC_MASK_MAP_SIZE;
// Longest text of trcMaskToStr, without the terminating zero.
constexpr int trcMaskTextMax = 3659;

// 0 on success, -1 on refused text (mask then undefined).
int trcStrToMask(const char* text, unsigned char* mask);
// Crash mask text: the first field is skipped, the rest fills maps 0 upward.
int trcCrashStrToMask(const char* text, unsigned char* mask);
// Canonical text of a mask; returns its length. buffer holds trcMaskTextMax + 1.
int trcMaskToStr(unsigned char* mask, char* buffer);

// True if the record with these six identifier bytes passes the mask.
inline bool trcMaskSelects(const unsigned char* mask, const unsigned char ids[6])
{
    for (int map = 0; map < 6; ++map) {
        if (!trcMaskBitOf(mask[trcMaskByteOf(map, ids[map])], ids[map]))
            return false;
    }
    return true;
}

// True if the record passes the mask by its six identifier bytes.
inline bool trcMaskSelectsRecord(const unsigned char* mask, const trcRecord_t* r)
{
    const unsigned char ids[6] = {
        static_cast<unsigned char>(trcRecProduct(r)),   static_cast<unsigned char>(trcRecEvent(r)),
        static_cast<unsigned char>(trcRecComponent(r)), static_cast<unsigned char>(trcRecClass(r)),
        static_cast<unsigned char>(trcRecFunction(r)),  static_cast<unsigned char>(trcRecTracePoint(r)),
    };
    return trcMaskSelects(mask, ids);
}

#endif
