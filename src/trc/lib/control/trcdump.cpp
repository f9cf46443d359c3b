// Dumping a trace in shared memory to a binary trace file. The block is
// copied while the trace is held and written after it is let go, so that
// writers drop records for the time of a memory copy only, never for the
// time of the disk.
#include <kelvo/facility.h>

#include "trcexport.h"
#include "trcprocess.h"
#include "trchold.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

namespace kelvo {
namespace {

int writeAll(int fd, const uint8_t* bytes, std::size_t count)
{
    while (count != 0) {
        ssize_t n = write(fd, bytes, count);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return errno;
        if (n == 0)
            return ENOSPC;
        bytes += n;
        count -= static_cast<std::size_t>(n);
    }
    return 0;
}

int dump(int fd)
{
    Live* live = currentLive();
    if (live == nullptr)
        return ENOENT;
    if (live->destination != Destination::shared)
        return EINVAL;
    std::size_t bytes = TRC_HEADER_SIZE + static_cast<std::size_t>(live->bufferSize);
    std::unique_ptr<uint8_t[]> copy(new (std::nothrow) uint8_t[bytes]);
    if (!copy)
        return ENOMEM;
    // While another reader reads the area as an earlier merge left it, the
    // lanes are merged straight into the copy, so that the dump is current.
    bool merged = false;
    int rc = holdTake(*live, copy.get() + TRC_HEADER_SIZE, &merged);
    if (rc != 0)
        return rc;
    if (loadRelaxed(live->control->removed) != 0) {
        holdRelease(*live);
        return ENOENT;
    }
    std::memcpy(copy.get(), live->header, TRC_HEADER_SIZE);
    if (!merged)
        std::memcpy(copy.get() + TRC_HEADER_SIZE, live->area, static_cast<std::size_t>(live->bufferSize));
    holdRelease(*live);
    return writeAll(fd, copy.get(), bytes);
}

}  // namespace
}  // namespace kelvo

extern "C" KELVO_EXPORT int32_t trcDump(int32_t, int32_t handle)
{
    int rc = kelvo::dump(handle);
    if (rc == 0)
        return 0;
    errno = rc;
    return -1;
}
