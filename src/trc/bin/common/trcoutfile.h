// Output files of the tool and the programs beside it: a file named for a
// dump or a report must not exist, and is created rather than found.
#ifndef KELVO_TRCOUTFILE_H
#define KELVO_TRCOUTFILE_H

#include <sys/types.h>

#include <cstdio>

// True unless name surely does not exist: an access that fails for any
// reason but ENOENT counts as existing.
bool trcFMayExist(const char* name);

// Creates name for writing with the given mode (less the umask). The
// existence test can be overtaken, and the tool often runs as root in a
// directory that others may write: O_EXCL refuses a name that appeared
// since, a symbolic link included, and O_NOFOLLOW says the same of a link on
// its own. -1 or null with errno on failure.
int trcCreateOutFd(const char* name, mode_t mode);
FILE* trcCreateOutFile(const char* name, mode_t mode);

#endif
