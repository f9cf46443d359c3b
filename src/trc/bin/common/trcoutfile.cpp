// Output files of the tool and the programs beside it.
#include "trcoutfile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

bool trcFMayExist(const char* name) { return access(name, F_OK) == 0 || errno != ENOENT; }

int trcCreateOutFd(const char* name, mode_t mode)
{
    return open(name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

FILE* trcCreateOutFile(const char* name, mode_t mode)
{
    const int fd = trcCreateOutFd(name, mode);
    if (fd == -1) {
        return nullptr;
    }
    FILE* out = fdopen(fd, "w");
    if (out == nullptr) {
        const int saved = errno;
        close(fd);
        errno = saved;
    }
    return out;
}
