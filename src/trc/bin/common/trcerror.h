// Failure reports of the commands and the program's name for diagnostics.
#ifndef KELVO_TRCERROR_H
#define KELVO_TRCERROR_H

#include "trcpgmname.h"

// What a report calls to end the process; the commands pass exit, or null
// when the caller goes on after the report.
using trcExitFunction_t = void (*)(int);

// Points trcPgmName behind the last '/' of path (into the caller's string,
// nothing is copied); a null path leaves the name as it is.
void trcErrorName(const char* path) noexcept;

// Prints the formatted text and "\n" on standard output, then calls
// exitFunction(1) if one is given, else returns. The format is usually a
// message from trcMsgGet.
void trcError(trcExitFunction_t exitFunction, const char* format, ...) noexcept;

// As trcError, but adds a line with the errno found on entry: message 415
// for a positive value, 416 with the value negated for a negative one, an
// empty line for zero.
void trcErrorSys(trcExitFunction_t exitFunction, const char* format, ...) noexcept;

// trcError and trcErrorSys that end the process with status 1: the way for
// a command to report a failure it does not go on from.
[[noreturn]] void trcFail(const char* format, ...) noexcept;
[[noreturn]] void trcFailSys(const char* format, ...) noexcept;

#endif
