// Mapping a published live block, and the trace file behind it.
#include "trclive.h"
#include "trcsize.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kelvo {
namespace {

void* mapShared(int fd, std::size_t bytes)
{
    void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return at == MAP_FAILED ? nullptr : at;
}

// Maps the whole trace file; the area lies behind its header.
bool mapTraceFile(Live& live)
{
    char name[TRC_FILE_NAME_SIZE];
    std::memcpy(name, live.header->fileName, sizeof name);
    name[sizeof name - 1] = '\0';
    int fd = open(name, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::size_t bytes = TRC_HEADER_SIZE + static_cast<std::size_t>(live.bufferSize);
    struct stat st {};
    void* at = nullptr;
    if (fstat(fd, &st) == 0 && static_cast<std::size_t>(st.st_size) >= bytes)
        at = mapShared(fd, bytes);
    else
        errno = EINVAL;
    int saved = errno;
    close(fd);
    errno = saved;
    if (at == nullptr)
        return false;
    live.fileHeader = static_cast<trcHeader_t*>(at);
    live.area = static_cast<uint8_t*>(at) + TRC_HEADER_SIZE;
    return true;
}

bool sizeFits(const struct stat& st, const Live& live)
{
    std::size_t need = controlBytes + TRC_HEADER_SIZE;
    if (live.destination == Destination::shared)
        need += static_cast<std::size_t>(live.bufferSize);
    return static_cast<std::size_t>(st.st_size) >= need;
}

bool describe(Live& live, uint8_t* block)
{
    live.control = reinterpret_cast<Control*>(block);
    live.header = reinterpret_cast<trcHeader_t*>(block + controlBytes);
    errno = ENOENT;
    if (live.control->magic != controlMagic || live.control->layout != controlLayout)
        return false;
    live.destination = static_cast<Destination>(live.control->destination);
    live.bufferSize = live.header->bufferSize;
    if (live.destination != Destination::native && !usableBufferSize(live.bufferSize))
        return false;
    live.segmentSize = trcSegmentSize(live.bufferSize);
    live.fileHeader = nullptr;
    live.area = nullptr;
    if (live.destination == Destination::shared)
        live.area = block + controlBytes + TRC_HEADER_SIZE;
    return true;
}

} // namespace

Live* mapLive(bool needFile)
{
    int fd = open(instancePath().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return nullptr;
    struct stat st {};
    void* block = nullptr;
    if (fstat(fd, &st) == 0 && static_cast<std::size_t>(st.st_size) >= controlBytes + TRC_HEADER_SIZE)
        block = mapShared(fd, static_cast<std::size_t>(st.st_size));
    else
        errno = ENOENT;
    int saved = errno;
    close(fd);
    errno = saved;
    if (block == nullptr)
        return nullptr;
    Live live{};
    bool usable = describe(live, static_cast<uint8_t*>(block)) && sizeFits(st, live) &&
                  (live.destination != Destination::file || mapTraceFile(live) || !needFile);
    if (!usable) {
        saved = errno;
        munmap(block, static_cast<std::size_t>(st.st_size));
        errno = saved == 0 ? ENOENT : saved;
        return nullptr;
    }
    return new Live(live);
}

} // namespace kelvo
