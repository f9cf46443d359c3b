// `kelvo on`: turns the command line into the settings of a new trace,
// settles where its records go and how much memory it takes, and starts it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmask.h"
#include "trcmsg.h"
#include "trcopts.h"

namespace {

constexpr int statusAlreadyOn = 123;
constexpr long defaultBufferSize = 0x100000;
constexpr long sizeNotGiven = -1;
constexpr size_t fileNameLimit = 256;
// Product 1, events 50 and 51: the records that the MMIO trace takes.
constexpr const char* mmioMask = "1.50,51.*.*";

constexpr uint32_t anyDestination = TRC_DEST_SHARED | TRC_DEST_FILE | TRC_DEST_NATIVE | TRC_DEST_MMIO;
constexpr uint32_t anyRetention = TRC_KEEP_LAST | TRC_KEEP_INITIAL;
constexpr uint32_t sizedDestination = TRC_DEST_SHARED | TRC_DEST_FILE;

// Everything trcOn takes.
struct trcOnArgs_t {
    trcTraceParams_t params;
    const char* fileName;
    long bufferSize;
};

void setDefaults(trcOnArgs_t* on)
{
    trcTraceParams_t& p = on->params;
    std::memset(p.mask, 0xFF, sizeof p.mask);
    p.pid = -1;
    p.tid = -1;
    p.cpid = -1;
    p.thisPointer = 0;
    p.returnCode = 0;
    p.maxSevereErrors = 1;
    p.maxRecordSize = 32768;
    p.flags = TRC_NO_POINTER_CHECK;
    std::memset(p.crashMask, 0, sizeof p.crashMask);
    std::memset(p.pauseMask, 0, sizeof p.pauseMask);
    p.pauseAttrib = -1;
    p.maskGiven = false;
    on->fileName = "";
    on->bufferSize = sizeNotGiven;
}

// -l and -i: a next word that does not begin with '-' is their size.
void readRetention(int count, char** args, int* at, uint32_t bit, trcOnArgs_t* on)
{
    on->params.flags |= bit;
    *at += 1;
    if (*at < count && args[*at][0] != '-') {
        on->bufferSize = strToLong(args[*at]);
        if (on->bufferSize == -1) {
            usage(msgUsageOn, msgIncorrectBufferSize);
        }
        *at += 1;
    }
}

void readFileName(int count, char** args, int* at, trcOnArgs_t* on)
{
    if (*at + 1 >= count) {
        usage(msgUsageOn, msgEndOfArguments);
    }
    on->fileName = args[*at + 1];
    if (std::strlen(on->fileName) >= fileNameLimit) {
        usage(msgUsageOn, msgFileNameTooLong);
    }
    on->params.flags |= TRC_DEST_FILE;
    *at += 2;
}

// Options without a value that only set a bit of flags; -debug clears one.
bool readSwitch(const char* word, trcOnArgs_t* on)
{
    uint32_t& flags = on->params.flags;
    if (std::strcmp(word, "-debug") == 0) {
        flags &= ~static_cast<uint32_t>(TRC_NO_POINTER_CHECK);
    } else if (std::strcmp(word, "-s") == 0) {
        flags |= TRC_DEST_SHARED;
    } else if (std::strcmp(word, "-n") == 0) {
        flags |= TRC_DEST_NATIVE;
    } else if (std::strcmp(word, "-t") == 0) {
        flags |= TRC_OPTION_T;
    } else if (std::strcmp(word, "-mmio") == 0) {
        flags |= TRC_DEST_MMIO;
        // A -m before it wins; one after it replaces this mask.
        if (!on->params.maskGiven) {
            trcStrToMask(mmioMask, on->params.mask);
        }
    } else {
        return false;
    }
    return true;
}

void readOption(int count, char** args, int* at, trcOnArgs_t* on)
{
    const char* word = args[*at];
    if (trcParseSharedOption(count, args, at, msgUsageOn, &on->params)) {
        return;
    }
    if (std::strcmp(word, "-f") == 0) {
        readFileName(count, args, at, on);
    } else if (std::strcmp(word, "-l") == 0) {
        readRetention(count, args, at, TRC_KEEP_LAST, on);
    } else if (std::strcmp(word, "-i") == 0) {
        readRetention(count, args, at, TRC_KEEP_INITIAL, on);
    } else if (readSwitch(word, on)) {
        *at += 1;
    } else {
        usage(msgUsageOn, msgIncorrectOption);
    }
}

// The native and MMIO destinations take no memory of their own, so a size
// and the keeping of the initial records make no sense for them. The MMIO
// trace goes alone; a native one may have shared memory or a file beside it,
// which then get the default size.
void resolveUnsized(trcOnArgs_t* on)
{
    const uint32_t flags = on->params.flags;
    if (flags & TRC_KEEP_INITIAL) {
        usage(msgUsageOn, msgInitialWithNative);
    }
    if (flags & TRC_DEST_MMIO) {
        if ((flags & (TRC_DEST_SHARED | TRC_DEST_FILE | TRC_DEST_NATIVE)) || on->bufferSize > 0) {
            usage(msgUsageOn, msgMmioAlone);
        }
        if (on->bufferSize == 0) {
            usage(msgUsageOn, msgSizeWithNative);
        }
        on->bufferSize = 0;
    } else if (on->bufferSize != sizeNotGiven) {
        usage(msgUsageOn, msgSizeWithNative);
    }
}

void resolve(trcOnArgs_t* on)
{
    uint32_t& flags = on->params.flags;
    if (!(flags & anyDestination)) {
        flags |= TRC_DEST_SHARED;
    }
    if (!(flags & anyRetention)) {
        flags |= TRC_KEEP_LAST;
    }
    if (flags & (TRC_DEST_NATIVE | TRC_DEST_MMIO)) {
        resolveUnsized(on);
    }
    if (on->bufferSize == sizeNotGiven) {
        on->bufferSize = (flags & sizedDestination) ? defaultBufferSize : 0;
    }
}

int reportOnFailure()
{
    switch (errno) {
    case EAGAIN:
        trcFail(trcMsgGet(msgTimedOut));
        break;
    case ENOMEM:
        trcFail(trcMsgGet(msgNoResources));
        break;
    case EEXIST:
        // No exit here: the command ends with a status of its own.
        trcError(nullptr, trcMsgGet(msgAlreadyOn));
        return statusAlreadyOn;
    case EINVAL:
        usage(msgUsageOn, msgIncorrectBufferSize);
    default:
        trcFailSys(trcMsgGet(msgUnexpected));
        break;
    }
    return 1;
}

int startTrace(const trcOnArgs_t& on)
{
    const trcTraceParams_t& p = on.params;
    const int32_t result =
        trcOn(0, p.mask, p.pid, p.tid, p.cpid, p.thisPointer, p.returnCode, p.maxSevereErrors, p.maxRecordSize, p.flags,
              p.crashMask, p.pauseMask, p.pauseAttrib, on.fileName, static_cast<int64_t>(on.bufferSize));
    if (result != 0) {
        return reportOnFailure();
    }
    std::printf("%s", trcMsgGet(msgTurnedOn));
    return 0;
}

}  // namespace

int mainOn(int count, char** args)
{
    if (count == 2 && std::strcmp(args[1], "help") == 0) {
        usage(msgUsageOn, -1);
    }
    trcOnArgs_t on;
    setDefaults(&on);
    for (int at = 1; at < count;) {
        readOption(count, args, &at, &on);
    }
    resolve(&on);
    return startTrace(on);
}
