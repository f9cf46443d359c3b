// printf family that also takes formats with positional arguments ("%2$s").
#ifndef KELVO_TRCPRINT_H
#define KELVO_TRCPRINT_H

#include <cstdarg>
#include <cstdio>

// Formats into dest (which the caller makes large enough); returns dest.
char* trcPrintCore(char* dest, const char* format, va_list args);

int trcPrintStr(char* dest, const char* format, ...);
int trcPrintStrVar(char* dest, const char* format, va_list args);
int trcPrintOut(const char* format, ...);
int trcPrintOutVar(const char* format, va_list args);
int trcPrintFile(FILE* stream, const char* format, ...);
int trcPrintFileVar(FILE* stream, const char* format, va_list args);

#endif
