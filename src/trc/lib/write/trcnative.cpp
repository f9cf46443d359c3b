// The native destination. Each record becomes one line in the kernel's
// trace buffer through tracefs, where this process may write it, otherwise
// in the system log. Such a trace cannot be read back by the tool.
#include "trcnative.h"

#include "trcprocess.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <mutex>

namespace kelvo {
namespace {

constexpr std::size_t lineBytes = 1024;
constexpr const char* markerPaths[] = {"/sys/kernel/tracing/trace_marker", "/sys/kernel/debug/tracing/trace_marker"};

int markerFd()
{
    static int fd = -1;
    static std::once_flag once;
    std::call_once(once, [] {
        for (const char* path : markerPaths) {
            fd = open(path, O_WRONLY | O_CLOEXEC);
            if (fd >= 0)
                return;
        }
    });
    return fd;
}

// Text of the record on one line: line ends and other control bytes become
// blanks.
std::size_t describe(char* line, const RecordSource& record, bool rcEvent)
{
    const uint8_t* id = record.ids.id;
    int n = std::snprintf(line, lineBytes, "kelvo %u.%u.%u.%u.%u.%u pid %u tid %u this %#x", id[0], id[1], id[2], id[3],
                          id[4], id[5], processId(), threadId(), record.thisPointer);
    std::size_t used = n < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(n), lineBytes - 1);
    if (rcEvent) {
        int32_t rc = 0;
        std::memcpy(&rc, record.data, std::min<uint32_t>(record.length, sizeof rc));
        n = std::snprintf(line + used, lineBytes - used, " rc %d", rc);
        used += n < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(n), lineBytes - 1 - used);
        return used;
    }
    if (record.length != 0 && used + 1 < lineBytes - 1)
        line[used++] = ' ';
    for (uint32_t i = 0; i < record.length && used < lineBytes - 1; ++i) {
        unsigned char c = record.data[i];
        line[used++] = (c < 0x20 || c == 0x7F) ? ' ' : static_cast<char>(c);
    }
    return used;
}

}  // namespace

void nativeEmit(const RecordSource& record, bool rcEvent)
{
    char line[lineBytes];
    std::size_t used = describe(line, record, rcEvent);
    line[used] = '\0';
    int fd = markerFd();
    if (fd >= 0) {
        line[used] = '\n';
        if (write(fd, line, used + 1) == static_cast<ssize_t>(used + 1))
            return;
        line[used] = '\0';
    }
    syslog(LOG_USER | LOG_DEBUG, "%s", line);
}

}  // namespace kelvo
