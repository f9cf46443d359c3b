// Failure reports of the commands, and the program's name that the message
// diagnostics print.
#include "trcerror.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "trcmsg.h"
#include "trcmsgid.h"

const char* trcPgmName = "???";

void trcErrorName(const char* path) noexcept
{
    if (path == nullptr) {
        return;
    }
    const char* slash = std::strrchr(path, '/');
    trcPgmName = (slash != nullptr) ? slash + 1 : path;
}

// The value of 416 is the negated error number. Negation through unsigned
// arithmetic wraps instead of overflowing for the most negative value.
static int negated(int value) noexcept { return static_cast<int>(0u - static_cast<unsigned>(value)); }

static void printErrnoLine(int savedErrno) noexcept
{
    if (savedErrno > 0) {
        std::printf(trcMsgGet(msgLibraryErrno), savedErrno);
    } else if (savedErrno < 0) {
        std::printf(trcMsgGet(msgSystemErrno), negated(savedErrno));
    }
    std::printf("\n");
}

static void handleError(int withErrno, trcExitFunction_t exitFunction, const char* format, va_list args) noexcept
{
    // Taken first: the output below may change errno.
    const int savedErrno = errno;
    std::vprintf(format, args);
    std::printf("\n");
    if (withErrno) {
        printErrnoLine(savedErrno);
    }
    if (exitFunction != nullptr) {
        exitFunction(1);
    }
}

void trcError(trcExitFunction_t exitFunction, const char* format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    handleError(0, exitFunction, format, args);
    va_end(args);
}

void trcErrorSys(trcExitFunction_t exitFunction, const char* format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    handleError(1, exitFunction, format, args);
    va_end(args);
}

void trcFail(const char* format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    handleError(0, nullptr, format, args);
    va_end(args);
    std::exit(1);
}

void trcFailSys(const char* format, ...) noexcept
{
    va_list args;
    va_start(args, format);
    handleError(1, nullptr, format, args);
    va_end(args);
    std::exit(1);
}
