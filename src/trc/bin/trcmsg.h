// Numbered messages: the compiled-in table, its lookup, and the services for
// reading a message file.
#ifndef KELVO_TRCMSG_H
#define KELVO_TRCMSG_H

#include <cstdio>

// Text of a message; the empty text (after a line on standard output) if the
// number is unknown. The pointer lives for the whole process.
const char* trcMsgGet(int number);
const char* trcMsgGetDefault(int number);

// Writes "<program>: " the formatted text and ".\n" to standard output.
void trcMsgError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Opens the first "<dir>/<fileName>" along the ':'-separated list held in the
// environment variable envName; null if none opens (errno EINVAL if unset).
FILE* trcMsgOpenFile(const char* envName, const char* fileName, const char* mode);

// First place of key in the first length bytes of text, outside of quoted
// strings, bracketed groups and the tail of a line behind '*'; null if none.
const char* trcMsgFind(const char* text, const char* key, int length);

#endif
