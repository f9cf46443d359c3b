// Helpers that the command functions share: the usage printer, the number
// parsers of the command line, and the look-up of the service account.
#include "trcentry.h"

#include <grp.h>
#include <pwd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "trcmsg.h"

void usage(int usageMessage, int errorMessage)
{
    if (errorMessage != -1) {
        std::printf("%s\n\n", trcMsgGet(errorMessage));
    }
    std::printf("%s\n", trcMsgGet(usageMessage));
    std::exit(1);
}

// Reads text as strtol in base 0 does, saturating at the bounds of a 32-bit
// long: numbers on the command line mean the same on every host. Sets
// usedUp when the whole text was consumed.
static long parseNumber(char* text, bool& usedUp)
{
    char* end = text;
    const long value = std::strtol(text, &end, 0);
    usedUp = (*end == '\0');
    if (value > INT32_MAX) {
        return INT32_MAX;
    }
    if (value < INT32_MIN) {
        return INT32_MIN;
    }
    return value;
}

long strToLong(char* text)
{
    bool usedUp = false;
    const long value = parseNumber(text, usedUp);
    if (!usedUp || value < 0) {
        return -1;
    }
    return value;
}

int strToInt(char* text)
{
    bool usedUp = false;
    const long value = parseNumber(text, usedUp);
    if (!usedUp) {
        return -2;
    }
    return static_cast<int>(value);
}

long get_uid(const char* name)
{
    const passwd* entry = getpwnam(name);
    return (entry != nullptr) ? static_cast<long>(entry->pw_uid) : -99;
}

long get_gid(const char* name)
{
    const group* entry = getgrnam(name);
    return (entry != nullptr) ? static_cast<long>(entry->gr_gid) : -99;
}
