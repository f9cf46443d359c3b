// `kelvo chg`: changes what a running trace records. It starts from the
// settings in the live header, so that only what the command line names
// changes, and hands the whole set to the facility in one call.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmsg.h"
#include "trcopts.h"

namespace {

[[noreturn]] void reportChgFailure()
{
    if (errno == ENOENT) {
        trcFail(trcMsgGet(msgChangeOff));
    } else {
        trcFailSys(trcMsgGet(msgUnexpected));
    }
    std::exit(1);
}

// Copies are taken before any option is read: the facility sees a change
// only through trcChg. flags starts empty, since trcChg takes only the
// crash and pause bits, and the crash mask carries a value only once -crash
// has set its bit.
void copyFromHeader(const trcHeader_t* header, trcTraceParams_t* p)
{
    std::memcpy(p->mask, header->mask, sizeof p->mask);
    p->pid = header->tracePid;
    p->tid = header->traceTid;
    p->cpid = header->traceCpid;
    p->thisPointer = header->thisPointer;
    p->returnCode = header->sysErrRc;
    p->maxSevereErrors = header->maxSevereErrors;
    p->maxRecordSize = header->maxRecordSize;
    p->flags = 0;
    std::memset(p->crashMask, 0, sizeof p->crashMask);
    std::memcpy(p->pauseMask, header->pauseMask, sizeof p->pauseMask);
    p->pauseAttrib = header->pauseAttrib;
    p->maskGiven = false;
}

}  // namespace

int mainChg(int count, char** args)
{
    if (count < 2 || std::strcmp(args[1], "help") == 0) {
        usage(msgUsageChg, -1);
    }
    // Attached before the options are read: with no trace there is nothing
    // to change, whatever the command line says.
    const trcHeader_t* header = trcAttach(0, 0, 0);
    if (header == nullptr) {
        reportChgFailure();
    }
    trcTraceParams_t params;
    copyFromHeader(header, &params);
    for (int at = 1; at < count;) {
        if (!trcParseSharedOption(count, args, &at, msgUsageChg, &params)) {
            usage(msgUsageChg, msgIncorrectOption);
        }
    }
    const trcTraceParams_t& p = params;
    if (trcChg(p.mask, p.pid, p.tid, p.cpid, p.thisPointer, p.returnCode, p.maxSevereErrors, p.maxRecordSize, p.flags,
               p.crashMask, p.pauseMask, p.pauseAttrib) != 0) {
        reportChgFailure();
    }
    return 0;
}
