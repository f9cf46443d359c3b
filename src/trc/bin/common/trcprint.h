// printf family that also takes formats with positional arguments ("%2$s").
//
// A format whose conversions all carry a one-digit position ("%2$s",
// "%1$*2$d") is rewritten without the positions and printed with its
// arguments taken in the order the format uses them. Any other format goes
// to the C library's vsprintf as it stands. Formats must use each position
// once, leave no gap between positions and use at most nine arguments; a
// format outside those limits, or one whose rewritten form would exceed 1023
// characters, is handed to the C library unchanged.
#ifndef KELVO_TRCPRINT_H
#define KELVO_TRCPRINT_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>

// Formats into dest (which the caller makes large enough); returns dest.
char* trcPrintCore(char* dest, const char* format, va_list args);

// Bounded form of trcPrintCore: writes at most size bytes, the terminating
// zero included (nothing if size is 0), and returns the length of the whole
// text as vsnprintf does, or -1 if the text cannot be produced (an encoding
// error of a wide character, or a text longer than INT_MAX).
int trcPrintCoreN(char* dest, std::size_t size, const char* format, va_list args);

// Length of the text in dest (strlen): after a conversion that failed
// part-way, the length of the text produced before it.
int trcPrintStr(char* dest, const char* format, ...);
int trcPrintStrVar(char* dest, const char* format, va_list args);

// The result of printing the text with printf/fprintf. After a conversion
// that failed part-way, the text produced before it is printed; -1 without
// printing when no room could be allocated. Texts of any length are printed
// whole.
int trcPrintOut(const char* format, ...);
int trcPrintOutVar(const char* format, va_list args);
int trcPrintFile(FILE* stream, const char* format, ...);
int trcPrintFileVar(FILE* stream, const char* format, va_list args);

#endif
