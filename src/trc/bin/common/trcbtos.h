// Hexadecimal dump of a block of bytes with a character column.
#ifndef KELVO_TRCBTOS_H
#define KELVO_TRCBTOS_H

#include <cstddef>

// Bytes of destination needed for count input bytes: 58 per started line of
// 16 bytes, and the terminating zero.
// Computed in a size type: for the largest counts the room exceeds an int.
constexpr std::size_t trcBinToStrSize(int count)
{
    return count <= 0 ? 1 : (static_cast<std::size_t>(count) + 15) / 16 * 58 + 1;
}

// Writes the dump of count bytes into dest; returns its length.
int trcBinToStr(int count, const unsigned char* bytes, char* dest);

#endif
