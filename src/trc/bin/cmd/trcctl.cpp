// `kelvo off` and `kelvo clr`: one call each on the running trace as a
// whole, and the translation of its errno into a message.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kelvo/facility.h"
#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmsg.h"

namespace {}  // namespace

int mainOff(int count)
{
    // Any word behind the command, "help" or not, asks for the usage.
    if (count != 1) {
        usage(msgUsageOff, -1);
    }
    if (trcOff(0) == 0) {
        std::printf("%s", trcMsgGet(msgTurnedOff));
        return 0;
    }
    if (errno == ENOENT) {
        trcFail(trcMsgGet(msgAlreadyOff));
    } else {
        trcFailSys(trcMsgGet(msgUnexpected));
    }
    return 1;
}

int mainClr(int count, char** /*args*/)
{
    if (count != 1) {
        usage(msgUsageClr, -1);
    }
    if (trcClear(0) == 0) {
        return 0;
    }
    switch (errno) {
    case ENOENT:
        trcFail(trcMsgGet(msgClearOff));
        break;
    case EINVAL:
        trcFail(trcMsgGet(msgClearNative));
        break;
    default:
        trcFailSys(trcMsgGet(msgUnexpected));
        break;
    }
    return 1;
}
