// The command line of `kelvo fmt`, `kelvo flw` and the programs beside the
// tool that take the same options: -p, -m, -x, the order options and the
// files.
#include <climits>
#include <cstring>

#include "trcf.h"
#include "trcmask.h"
#include "trcmsgid.h"
#include "trcnumber.h"

namespace {

// The numbers of -x grow without bound in the text; they stop at INT_MAX,
// which lies behind every record.
int addDigit(int value, char digit)
{
    const int d = digit - '0';
    return value > (INT_MAX - d) / 10 ? INT_MAX : value * 10 + d;
}

// The range text: [first][-[last]]. A later -x overwrites only the numbers
// that it gives.
void parseRange(const char* text, fOptions_t* o, const trcFParse_t* how)
{
    enum { start, inFirst, afterDash, inLast } state = start;
    for (const char* c = text; *c != '\0'; ++c) {
        switch (state) {
        case start:
        case inFirst:
            if (*c == '-') {
                state = afterDash;
            } else if (trcIsDigit(*c)) {
                o->firstRecord = state == start ? *c - '0' : addDigit(o->firstRecord, *c);
                state = inFirst;
            } else {
                how->usage(how->usageMessage,
                           std::strchr(c, '-') != nullptr ? msgIncorrectFirstRecord : msgIncorrectOnlyRecord);
            }
            break;
        case afterDash:
        case inLast:
            if (!trcIsDigit(*c)) {
                how->usage(how->usageMessage, msgIncorrectLastRecord);
            }
            o->lastRecord = state == afterDash ? *c - '0' : addDigit(o->lastRecord, *c);
            state = inLast;
            break;
        }
    }
    if (state == inFirst) {
        o->lastRecord = o->firstRecord;
    }
}

// A process number, read like strtol of a 32-bit long: values beyond it
// stop at its bounds.
long parsePid(const char* text, const trcFParse_t* how)
{
    int32_t value = 0;
    if (!trcWholeNumber(text, &value)) {
        how->usage(how->usageMessage, msgIncorrectPid);
    }
    return value;
}

}  // namespace

void trcFParseArgs(int count, char** args, const trcFParse_t* how, fOptions_t* o)
{
    const int usageMessage = how->usageMessage;
    std::memset(o->mask, 0xFF, sizeof o->mask);
    if (count == 2 && std::strcmp(args[1], "help") == 0) {
        how->usage(usageMessage, -1);
    }
    for (int i = 1; i < count; ++i) {
        const char* word = args[i];
        const bool takesValue =
            std::strcmp(word, "-p") == 0 || std::strcmp(word, "-m") == 0 || std::strcmp(word, "-x") == 0;
        if (takesValue && i + 1 >= count) {
            how->usage(usageMessage, msgEndOfArguments);
        }
        int used = 0;
        if (std::strcmp(word, "-p") == 0) {
            o->pid = parsePid(args[++i], how);
        } else if (std::strcmp(word, "-m") == 0) {
            if (trcStrToMask(args[++i], o->mask) != 0) {
                how->usage(usageMessage, msgIncorrectMask);
            }
        } else if (std::strcmp(word, "-x") == 0) {
            parseRange(args[++i], o, how);
        } else if (how->orderOptions && std::strcmp(word, "-r") == 0) {
            o->step = -1;
        } else if (how->orderOptions && std::strcmp(word, "-j") == 0) {
            o->join = 1;
        } else if (word[0] == '-' && word[1] != '\0' && how->extra != nullptr &&
                   (used = how->extra(count, args, i, how->context)) > 0) {
            i += used - 1;
        } else if (word[0] == '-' && word[1] != '\0') {
            how->usage(usageMessage, msgIncorrectOption);
        } else if (o->source == nullptr) {
            o->source = word;
        } else if (o->destination == nullptr && how->files > 1) {
            o->destination = word;
        } else {
            how->usage(usageMessage, msgTooManyArguments);
        }
    }
}
