// File access for the tool. The tool names the modes by the values 0 (read)
// and 257 (write and create); they are mapped to this host's own flags.
#include <kelvo/facility.h>

#include "trcexport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

extern "C" {

KELVO_EXPORT int32_t trcFileAttach(const char* name, int32_t mode)
{
    int flags = 0;
    if (mode == TRC_FILE_READ)
        flags = O_RDONLY;
    else if (mode == TRC_FILE_WRITE_CREATE)
        flags = O_WRONLY | O_CREAT;
    else {
        errno = EINVAL;
        return -1;
    }
    if (name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return open(name, flags | O_CLOEXEC, 0666);
}

KELVO_EXPORT int32_t trcFileDetach(int32_t handle) { return close(handle) == 0 ? 0 : -1; }

KELVO_EXPORT int32_t trcFileRead(int32_t handle, void* buffer, int32_t count)
{
    if (count < 0) {
        errno = EINVAL;
        return -1;
    }
    for (;;) {
        ssize_t n = read(handle, buffer, static_cast<std::size_t>(count));
        if (n >= 0 || errno != EINTR)
            return static_cast<int32_t>(n);
    }
}

KELVO_EXPORT int64_t trcFileSeek(int32_t handle, int64_t offset, int32_t origin)
{
    int whence = origin == 0 ? SEEK_SET : origin == 1 ? SEEK_CUR : origin == 2 ? SEEK_END : -1;
    if (whence < 0) {
        errno = EINVAL;
        return -1;
    }
    return lseek(handle, offset, whence);
}

}  // extern "C"
