// Failure reports of the commands and the program's name for diagnostics.
#ifndef KELVO_TRCERROR_H
#define KELVO_TRCERROR_H

using trcExitFunction_t = void (*)(int);

// Name of the running program without directories; "???" until set.
extern const char* trcPgmName;

// Points trcPgmName behind the last '/' of path (into the caller's string).
void trcErrorName(const char* path);

// Prints the formatted text and "\n" on standard output, then calls
// exitFunction(1) if one is given. trcErrorSys adds the errno line.
void trcError(trcExitFunction_t exitFunction, const char* format, ...);
void trcErrorSys(trcExitFunction_t exitFunction, const char* format, ...);

#endif
