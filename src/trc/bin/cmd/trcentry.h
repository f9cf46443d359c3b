// Shared helpers of the command functions: usage text and number parsers,
// service account look-ups.
#ifndef KELVO_TRCENTRY_H
#define KELVO_TRCENTRY_H

// Prints message errorMessage (unless -1) with "%s\n\n", then message
// usageMessage with "%s\n" on standard output, and exits with status 1.
[[noreturn]] void usage(int usageMessage, int errorMessage);

// Both parsers read like strtol in base 0 (decimal, "0x" hex, leading "0"
// octal) with the range of a 32-bit long: a value out of that range counts
// as the nearest bound, as strtol reports it there. The empty text is 0.
//
// strToLong: -1 if text is not used up or the value is negative.
long strToLong(char* text);
// strToInt: -2 if text is not used up, otherwise the value (may be negative).
int strToInt(char* text);

// Ids of the named user and group; -99 if there is none.
long get_uid(const char* name);
long get_gid(const char* name);

#endif
