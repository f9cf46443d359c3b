// Numbered messages: the compiled-in table, its lookup, and the services for
// reading a message file.
#ifndef KELVO_TRCMSG_H
#define KELVO_TRCMSG_H

#include <cstdio>

// One row of the message table. Texts with placeholders are printf formats.
struct trcMsgRow_t {
    int number;
    const char* text;
};

// The table in its stored order (numbers unique, not sorted); the lookup
// walks it from the first row. Exposed so that its contents can be checked.
extern const trcMsgRow_t defaultMsgs[];
extern const int defaultMsgCount;

// Text of a message; the empty text (after a line on standard output) if the
// number is unknown. The pointer lives for the whole process.
const char* trcMsgGet(int number) noexcept;
const char* trcMsgGetDefault(int number) noexcept;

// Writes "<program>: " the formatted text and ".\n" to standard output; the
// format itself ends without full stop or newline.
void trcMsgError(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

// Opens the first "<dir>/<fileName>" along the ':'-separated list held in the
// environment variable envName. Null if none opens: errno is EINVAL if the
// variable is unset, ENAMETOOLONG if the last joined path was too long to
// try, otherwise what the last fopen left.
FILE* trcMsgOpenFile(const char* envName, const char* fileName, const char* mode);

// First place of key in the first length bytes of text, outside of quoted
// strings, bracketed groups and the tail of a line behind '*'; a match at
// offset 0 always counts. Null if none. Reads no byte at or past length.
const char* trcMsgFind(const char* text, const char* key, int length);

#endif
