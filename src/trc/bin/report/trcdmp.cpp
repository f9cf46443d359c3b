// `kelvo dmp`: has the facility write the running trace into a new binary
// trace file. A dump never overwrites a file, never writes through a link,
// and a dump that fails leaves no file of its own behind.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcoutfile.h"
#include "trcmsgid.h"
#include "trc.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcmsg.h"

namespace {

// Whatever the existence test cannot show to be absent counts as present,
// a directory that may not be searched included.
// The dump holds what the trace holds, which only its owner and group may
// read. The descriptor is the handle that trcDump and trcFileDetach take, as
// the one trcFileAttach gives is.
int32_t createDump(const char* name) { return trcCreateOutFd(name, 0660); }

// Whether name still stands for the file open on handle: a failed dump
// removes the file it created, and no other that has taken its name since.
bool namesOwnDump(const char* name, int32_t handle)
{
    struct stat own {
    }, named{};
    return fstat(handle, &own) == 0 && lstat(name, &named) == 0 && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
}

void reportDumpFailure(int error)
{
    errno = error;
    switch (error) {
    case ENOENT:
        trcFail(trcMsgGet(msgDumpOff));
        break;
    case EINVAL:
        trcFail(trcMsgGet(msgDumpNotShared));
        break;
    case ENOSPC:
        trcFail(trcMsgGet(msgDiskFull));
        break;
    default:
        trcFailSys(trcMsgGet(msgUnexpected));
        break;
    }
}

}  // namespace

int mainDmp(int count, char** args)
{
    if (count != 2 || std::strcmp(args[1], "help") == 0) {
        usage(msgUsageDmp, -1);
    }
    const char* destination = args[1];
    if (trcFMayExist(destination)) {
        usage(msgUsageDmp, msgExistingFile);
    }
    const int32_t handle = createDump(destination);
    if (handle == -1) {
        trcFail(trcMsgGet(msgCannotCreate), destination);
    }
    if (trcDump(0, handle) != 0) {
        // The file goes before the failure is told, so that the same
        // command can be given again at once.
        const int error = errno;
        const bool own = namesOwnDump(destination, handle);
        trcFileDetach(handle);
        if (own) {
            std::remove(destination);
        }
        reportDumpFailure(error);
        return 1;
    }
    if (trcFileDetach(handle) == -1) {
        trcFail(trcMsgGet(msgCannotClose), destination);
    }
    return 0;
}
