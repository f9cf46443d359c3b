// Sizes of a record area that the trace format can use.
#ifndef KELVO_TRCSIZE_H
#define KELVO_TRCSIZE_H

#include <cstdint>

namespace kelvo {

// A power of two from 64 to 65536, or a multiple of 65536 that fits the
// 32-bit fields of the format. Smaller areas cannot hold a record with its
// end mark behind the start marker.
inline bool usableBufferSize(int64_t size)
{
    constexpr int64_t segment = 65536;
    constexpr int64_t largest = 0x7FFF0000;  // below 2 GiB with room for the header
    if (size < 64 || size > largest)
        return false;
    if (size <= segment)
        return (size & (size - 1)) == 0;
    return size % segment == 0;
}

}  // namespace kelvo

#endif
