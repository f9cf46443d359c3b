// Helpers that the command functions share: the usage printer, the number
// parsers of the command line, and the look-up of the service account.
#include "trcentry.h"
#include "trcnumber.h"

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

long strToLong(char* text)
{
    int32_t value = 0;
    if (!trcWholeNumber(text, &value) || value < 0) {
        return -1;
    }
    return value;
}

int strToInt(char* text)
{
    int32_t value = 0;
    if (!trcWholeNumber(text, &value)) {
        return -2;
    }
    return value;
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
