// Numbers of the command line.
#ifndef KELVO_TRCNUMBER_H
#define KELVO_TRCNUMBER_H

#include <cstdint>

// Reads text as strtol in base 0 does (decimal, "0x" hex, leading "0" octal)
// into *value, held to the range of a 32-bit long as a 32-bit strtol
// saturates, so that a number means the same on every host. True when the
// whole text was used; the empty text is 0.
bool trcWholeNumber(const char* text, int32_t* value);

inline bool trcIsDigit(char c) { return c >= '0' && c <= '9'; }

#endif
