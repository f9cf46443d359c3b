// `kelvo off` and `kelvo clr`: one call each on the running trace as a
// whole, and the translation of its errno into a message.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kelvo/facility.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmsg.h"

namespace {

constexpr int usageClr = 2;
constexpr int usageOff = 7;
constexpr int msgAlreadyOff = 200;
constexpr int msgClearOff = 201;
constexpr int msgClearNative = 206;
constexpr int msgTurnedOff = 337;
constexpr int msgUnexpected = 417;

}  // namespace

int mainOff(int count)
{
    // Any word behind the command, "help" or not, asks for the usage.
    if (count != 1) {
        usage(usageOff, -1);
    }
    if (trcOff(0) == 0) {
        std::printf("%s", trcMsgGet(msgTurnedOff));
        return 0;
    }
    if (errno == ENOENT) {
        trcError(std::exit, trcMsgGet(msgAlreadyOff));
    } else {
        trcErrorSys(std::exit, trcMsgGet(msgUnexpected));
    }
    return 1;
}

int mainClr(int count, char** /*args*/)
{
    if (count != 1) {
        usage(usageClr, -1);
    }
    if (trcClear(0) == 0) {
        return 0;
    }
    switch (errno) {
    case ENOENT:
        trcError(std::exit, trcMsgGet(msgClearOff));
        break;
    case EINVAL:
        trcError(std::exit, trcMsgGet(msgClearNative));
        break;
    default:
        trcErrorSys(std::exit, trcMsgGet(msgUnexpected));
        break;
    }
    return 1;
}
