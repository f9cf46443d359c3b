// The options that `on` and `chg` share: each one word with one value,
// tested and stored by a small setter of its own.
#include "trcopts.h"
#include "trcnumber.h"
#include "trcmsgid.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcentry.h"
#include "trcmask.h"

namespace {

constexpr int largestRecord = 32768;

// A setter tests the value and stores it; false refuses the value.
using trcOptionSet_t = bool (*)(char* value, trcTraceParams_t* params);

bool setMask(char* value, trcTraceParams_t* params)
{
    params->maskGiven = true;
    return trcStrToMask(value, params->mask) == 0;
}

bool setPid(char* value, trcTraceParams_t* params)
{
    // One number only: a thread filter is dropped with a new process.
    params->tid = -1;
    return trcWholeNumber(value, &params->pid);
}

bool setCpid(char* value, trcTraceParams_t* params) { return trcWholeNumber(value, &params->cpid); }

bool setReturnCode(char* value, trcTraceParams_t* params)
{
    return trcWholeNumber(value, &params->returnCode) && params->returnCode != 0;
}

bool setSevereErrors(char* value, trcTraceParams_t* params)
{
    const int number = strToInt(value);
    params->maxSevereErrors = number;
    return number >= -1 && number != 0;
}

bool setRecordSize(char* value, trcTraceParams_t* params)
{
    const int number = strToInt(value);
    params->maxRecordSize = number;
    return number >= 0 && number <= largestRecord;
}

bool setCrashMask(char* value, trcTraceParams_t* params)
{
    params->flags |= TRC_USE_CRASH_MASK;
    return trcCrashStrToMask(value, params->crashMask) == 0;
}

bool setPauseMask(char* value, trcTraceParams_t* params)
{
    params->flags |= TRC_USE_PAUSE_MASK;
    return trcStrToMask(value, params->pauseMask) == 0;
}

bool setPauseAttrib(char* value, trcTraceParams_t* params)
{
    const int number = strToInt(value);
    params->flags |= TRC_USE_PAUSE_ATTRIB;
    params->pauseAttrib = number;
    return number >= -1;
}

bool setThisPointer(char* value, trcTraceParams_t* params)
{
    int32_t number = 0;
    const bool whole = trcWholeNumber(value, &number);
    params->thisPointer = static_cast<uint32_t>(number);
    return whole;
}

struct trcSharedOption_t {
    const char* word;
    int refusal;  // message of a value that the setter refuses
    trcOptionSet_t set;
};

const trcSharedOption_t sharedOptions[] = {
    {"-m", msgIncorrectMask, setMask},
    {"-p", msgIncorrectPid, setPid},
    {"-c", msgIncorrectCpid, setCpid},
    {"-rc", msgIncorrectReturnCode, setReturnCode},
    {"-e", msgIncorrectMaxSevereErrors, setSevereErrors},
    {"-r", msgIncorrectMaxRecordSize, setRecordSize},
    {"-crash", msgIncorrectCrashMask, setCrashMask},
    {"-pause_mask", msgIncorrectMask, setPauseMask},
    {"-pause_attrib", msgIncorrectPauseAttrib, setPauseAttrib},
    {"-this", msgIncorrectThisPointer, setThisPointer},
};

const trcSharedOption_t* findSharedOption(const char* word)
{
    for (const trcSharedOption_t& option : sharedOptions) {
        if (std::strcmp(option.word, word) == 0) {
            return &option;
        }
    }
    return nullptr;
}

}  // namespace

bool trcParseSharedOption(int count, char** args, int* at, int usageMessage, trcTraceParams_t* params)
{
    const trcSharedOption_t* option = findSharedOption(args[*at]);
    if (option == nullptr) {
        return false;
    }
    // The value is the next word, whatever it looks like.
    if (*at + 1 >= count) {
        usage(usageMessage, msgEndOfArguments);
    }
    *at += 1;
    if (!option->set(args[*at], params)) {
        usage(usageMessage, option->refusal);
    }
    *at += 1;
    return true;
}
