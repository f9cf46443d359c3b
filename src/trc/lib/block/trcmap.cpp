// Mapping a published live block, and the trace file behind it.
//
// Every process that maps the block may write anything into it, so nothing
// that the block says about its own size is believed: the size of the
// record area comes from the size of the shared memory object (or of the
// trace file), and a block whose words disagree with it counts as damaged
// and is not used. The tool reads the live header's bufferSize, which a
// stray write can change at any time; behind every mapping lies a region of
// private zero pages as large as any 32-bit offset and length can reach, so
// that no value read from the block leads a reader outside its mapping.
#include "trclanes.h"
#include "trclive.h"
#include "trcring.h"
#include "trcsize.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kelvo {
namespace {

// Room for an offset of up to 2 GiB plus a record length of up to 2 GiB.
constexpr std::size_t guardBytes = (std::size_t{1} << 32) + 65536;

void* mapShared(int fd, std::size_t bytes)
{
    void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return at == MAP_FAILED ? nullptr : at;
}

// The object mapped at the start of a private zero region; where that
// region cannot be had, the object alone. `total` is what was mapped.
void* mapGuarded(int fd, std::size_t bytes, std::size_t& total)
{
    total = bytes + guardBytes;
    void* region = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (region == MAP_FAILED) {
        total = bytes;
        return mapShared(fd, bytes);
    }
    void* at = mmap(region, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
    if (at == MAP_FAILED) {
        munmap(region, bytes + guardBytes);
        return nullptr;
    }
    return at;
}

// Maps the whole trace file; the area lies behind its header.
bool mapTraceFile(Live& live)
{
    char name[TRC_FILE_NAME_SIZE];
    std::memcpy(name, live.header->fileName, sizeof name);
    name[sizeof name - 1] = '\0';
    int fd = open(name, O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    std::size_t bytes = TRC_HEADER_SIZE + static_cast<std::size_t>(live.bufferSize);
    struct stat st {};
    void* at = nullptr;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && static_cast<std::size_t>(st.st_size) >= bytes)
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

bool headerSane(const trcHeader_t& h)
{
    return std::memcmp(h.magic, TRC_MAGIC, sizeof TRC_MAGIC) == 0 && h.layoutId == TRC_LAYOUT_ID;
}

// Fills `live` from a mapped block of `size` bytes; false when the block is
// damaged or of another layout.
bool describe(Live& live, uint8_t* block, std::size_t size)
{
    live.control = reinterpret_cast<Control*>(block);
    live.header = reinterpret_cast<trcHeader_t*>(block + controlBytes);
    live.fileHeader = nullptr;
    live.area = nullptr;
    const Control& c = *live.control;
    if (c.magic != controlMagic || c.layout != controlLayout || !headerSane(*live.header))
        return false;
    std::size_t fixed = controlBytes + TRC_HEADER_SIZE;
    live.destination = static_cast<Destination>(c.destination);
    live.laneCount = 0;
    live.lanes = nullptr;
    switch (live.destination) {
    case Destination::shared: {
        // Read once: the count that this process uses is its own.
        uint32_t lanes = loadRelaxed(c.laneCount);
        if (!usableLaneCount(lanes))
            return false;
        int64_t bufferSize = bufferSizeOfBlock(size, static_cast<int32_t>(lanes));
        if (bufferSize < 0)
            return false;
        live.laneCount = static_cast<int32_t>(lanes);
        live.bufferSize = static_cast<int32_t>(bufferSize);
        live.area = block + fixed;
        break;
    }
    case Destination::file:
        live.bufferSize = live.header->bufferSize;
        break;
    case Destination::native:
        live.bufferSize = 0;
        live.segmentSize = 0;
        return true;
    default:
        return false;
    }
    if (!usableBufferSize(live.bufferSize) || live.header->bufferSize != live.bufferSize)
        return false;
    live.segmentSize = trcSegmentSize(live.bufferSize);
    return true;
}

}  // namespace

Live* mapLive(bool needFile)
{
    int fd = open(instancePath().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return nullptr;
    struct stat st {};
    void* block = nullptr;
    std::size_t size = 0;
    std::size_t total = 0;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
        static_cast<std::size_t>(st.st_size) >= controlBytes + TRC_HEADER_SIZE) {
        size = static_cast<std::size_t>(st.st_size);
        block = mapGuarded(fd, size, total);
    } else {
        errno = ENOENT;
    }
    int saved = errno;
    close(fd);
    errno = saved;
    if (block == nullptr)
        return nullptr;
    Live live{};
    bool usable = describe(live, static_cast<uint8_t*>(block), size) &&
                  (live.destination != Destination::file || mapTraceFile(live) || !needFile);
    if (!usable) {
        munmap(block, total);
        errno = ENOENT;
        return nullptr;
    }
    live.mappedBytes = size;
    if (live.laneCount != 0) {
        live.lanes = new Live[static_cast<std::size_t>(live.laneCount)];
        lanesPoint(live, static_cast<uint8_t*>(block), live.lanes);
    }
    return new Live(live);
}

int retireBlock()
{
    std::string path = instancePath();
    // A block this user may not open reads as no trace, as it does for
    // every other command.
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return ENOENT;
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
        static_cast<std::size_t>(st.st_size) >= controlBytes + TRC_HEADER_SIZE) {
        void* at = mapShared(fd, controlBytes + TRC_HEADER_SIZE);
        if (at != nullptr) {
            auto* control = static_cast<Control*>(at);
            auto* header = reinterpret_cast<trcHeader_t*>(static_cast<uint8_t*>(at) + controlBytes);
            __atomic_store_n(&control->removed, 1u, __ATOMIC_RELEASE);
            ringClose(*control);
            __atomic_add_fetch(&control->generation, 1u, __ATOMIC_RELEASE);
            storeRelaxed(header->traceOff, int32_t{1});
            munmap(at, controlBytes + TRC_HEADER_SIZE);
        }
    }
    close(fd);
    // The name may be another user's in the sticky shared memory directory;
    // the block is closed all the same.
    unlink(path.c_str());
    return 0;
}

}  // namespace kelvo
