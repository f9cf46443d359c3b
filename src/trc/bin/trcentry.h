// Shared helpers of the command functions: usage text and number parsers,
// service account look-ups.
#ifndef KELVO_TRCENTRY_H
#define KELVO_TRCENTRY_H

// Prints message errorMessage (unless -1) with "%s\n\n", then message
// usageMessage with "%s\n" on standard output, and exits with status 1.
[[noreturn]] void usage(int usageMessage, int errorMessage);

// strtol in base 0; -1 if text is not used up or the value is negative.
long strToLong(char* text);
// strtol in base 0; -2 if text is not used up, otherwise the value.
int strToInt(char* text);

// Ids of the named user and group; -99 if there is none.
long get_uid(const char* name);
long get_gid(const char* name);

#endif
