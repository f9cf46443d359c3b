// `kelvo dmp`: has the facility write the running trace into a new binary
// trace file. A dump never overwrites a file, and a dump that fails leaves
// no file behind.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmsg.h"

namespace {

constexpr int usageDmp = 3;
constexpr int msgExistingFile = 119;
constexpr int msgDumpOff = 203;
constexpr int msgDumpNotShared = 208;
constexpr int msgCannotCreate = 401;
constexpr int msgCannotClose = 404;
constexpr int msgUnexpected = 417;
constexpr int msgDiskFull = 420;

// Whatever the existence test cannot show to be absent counts as present,
// a directory that may not be searched included.
bool mayExist(const char* name)
{
    return access(name, F_OK) == 0 || errno != ENOENT;
}

void reportDumpFailure(int error)
{
    errno = error;
    switch (error) {
    case ENOENT:
        trcError(std::exit, trcMsgGet(msgDumpOff));
        break;
    case EINVAL:
        trcError(std::exit, trcMsgGet(msgDumpNotShared));
        break;
    case ENOSPC:
        trcError(std::exit, trcMsgGet(msgDiskFull));
        break;
    default:
        trcErrorSys(std::exit, trcMsgGet(msgUnexpected));
        break;
    }
}

}  // namespace

int mainDmp(int count, char** args)
{
    if (count != 2 || std::strcmp(args[1], "help") == 0) {
        usage(usageDmp, -1);
    }
    const char* destination = args[1];
    if (mayExist(destination)) {
        usage(usageDmp, msgExistingFile);
    }
    const int32_t handle = trcFileAttach(destination, TRC_FILE_WRITE_CREATE);
    if (handle == -1) {
        trcError(std::exit, trcMsgGet(msgCannotCreate), destination);
        return 1;
    }
    if (trcDump(0, handle) != 0) {
        // The file goes before the failure is told, so that the same
        // command can be given again at once.
        const int error = errno;
        trcFileDetach(handle);
        std::remove(destination);
        reportDumpFailure(error);
        return 1;
    }
    if (trcFileDetach(handle) == -1) {
        trcError(std::exit, trcMsgGet(msgCannotClose), destination);
        return 1;
    }
    return 0;
}
