// Turning a trace on. The new block is built under a scratch name and
// published by linking it to the instance's name, which fails if a block
// exists: readers never see a half-made block, and a failed start leaves
// nothing behind.
#include <kelvo/facility.h>

#include "trcexport.h"
#include "trcfilter.h"
#include "trcheader.h"
#include "trclanes.h"
#include "trcprocess.h"
#include "trcring.h"
#include "trcsize.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace kelvo {
namespace {

constexpr mode_t blockMode = 0660;

Destination destinationOf(uint32_t flags)
{
    if (flags & TRC_DEST_FILE)
        return Destination::file;
    if ((flags & TRC_DEST_NATIVE) && !(flags & TRC_DEST_SHARED))
        return Destination::native;
    return Destination::shared;
}

// A relative file name is made absolute, so that writers and the tool find
// the file from any directory; when that would not fit, it stays as given.
std::string absoluteName(const char* name)
{
    if (name[0] == '/')
        return name;
    char cwd[TRC_FILE_NAME_SIZE];
    if (getcwd(cwd, sizeof cwd) == nullptr)
        return name;
    std::string full = std::string(cwd) + "/" + name;
    return full.size() < TRC_FILE_NAME_SIZE ? full : std::string(name);
}

// Makes room for a new trace: a running trace is refused; a stopped one,
// one that off left behind, and one that no longer makes sense are removed.
// Nothing here waits. 0 or EEXIST.
int retireExisting()
{
    Live* live = currentLive();
    if (live != nullptr && loadRelaxed(live->control->removed) == 0 && loadRelaxed(live->header->traceOff) == 0 &&
        !RingState::decode(loadRing(*live)).closed)
        return EEXIST;
    retireBlock();
    return 0;
}

// A block under construction, undone unless it is published.
class Building {
public:
    ~Building()
    {
        if (block_ != nullptr)
            munmap(block_, blockBytes_);
        if (file_ != nullptr)
            munmap(file_, fileBytes_);
        if (fd_ >= 0)
            close(fd_);
        if (!scratch_.empty())
            unlink(scratch_.c_str());
        if (!published_ && !fileName_.empty())
            unlink(fileName_.c_str());
    }

    int createBlock(std::size_t bytes)
    {
        scratch_ = instanceScratchPath();
        fd_ = open(scratch_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, blockMode);
        if (fd_ < 0) {
            scratch_.clear();
            return errno == ENOSPC ? ENOMEM : errno;
        }
        fchmod(fd_, blockMode);
        blockBytes_ = bytes;
        int rc = posix_fallocate(fd_, 0, static_cast<off_t>(bytes));
        if (rc != 0)
            return ENOMEM;
        void* at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        if (at == MAP_FAILED)
            return ENOMEM;
        block_ = static_cast<uint8_t*>(at);
        return 0;
    }

    int createFile(const std::string& name, std::size_t bytes)
    {
        int fd = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, blockMode);
        if (fd < 0)
            return errno;
        fileName_ = name;
        fileBytes_ = bytes;
        int rc = posix_fallocate(fd, 0, static_cast<off_t>(bytes));
        void* at = rc == 0 ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
        close(fd);
        if (rc != 0)
            return rc == ENOSPC ? ENOMEM : rc;
        if (at == MAP_FAILED)
            return ENOMEM;
        file_ = static_cast<uint8_t*>(at);
        return 0;
    }

    // Links the finished block to the instance's name.
    int publish()
    {
        if (link(scratch_.c_str(), instancePath().c_str()) != 0)
            return errno;
        published_ = true;
        return 0;
    }

    uint8_t* block() const { return block_; }
    uint8_t* file() const { return file_; }

private:
    std::string scratch_;
    std::string fileName_;
    int fd_ = -1;
    uint8_t* block_ = nullptr;
    std::size_t blockBytes_ = 0;
    uint8_t* file_ = nullptr;
    std::size_t fileBytes_ = 0;
    bool published_ = false;
};

int build(const TraceSettings& settings, Destination destination, const std::string& fileName, int32_t bufferSize)
{
    bool hasArea = destination != Destination::native;
    int32_t areaBytes = hasArea ? bufferSize : 0;
    int32_t lanes = laneCountFor(destination, settings.flags);
    Building building;
    int rc = building.createBlock(blockBytesFor(destination, areaBytes, lanes));
    if (rc == 0 && destination == Destination::file)
        rc = building.createFile(fileName, TRC_HEADER_SIZE + static_cast<std::size_t>(bufferSize));
    if (rc != 0)
        return rc;
    Live live{};
    live.control = reinterpret_cast<Control*>(building.block());
    live.header = reinterpret_cast<trcHeader_t*>(building.block() + controlBytes);
    live.bufferSize = areaBytes;
    live.segmentSize = trcSegmentSize(areaBytes);
    live.destination = destination;
    live.control->magic = controlMagic;
    live.control->layout = controlLayout;
    live.control->destination = static_cast<uint32_t>(destination);
    live.control->keptFlags = settings.flags;
    live.control->laneCount = static_cast<uint32_t>(lanes);
    fillHeader(*live.header, settings, fileName.c_str(), areaBytes);
    live.control->takesAll = takesEverything(*live.header) ? 1 : 0;
    if (destination == Destination::file) {
        live.fileHeader = reinterpret_cast<trcHeader_t*>(building.file());
        *live.fileHeader = *live.header;
        live.area = building.file() + TRC_HEADER_SIZE;
    } else if (destination == Destination::shared) {
        live.area = building.block() + controlBytes + TRC_HEADER_SIZE;
    }
    std::vector<Live> laneViews(static_cast<std::size_t>(lanes));
    live.laneCount = lanes;
    live.lanes = laneViews.data();
    lanesPoint(live, building.block(), live.lanes);
    if (hasArea)
        ringReset(live);
    lanesReset(live);
    return building.publish();
}

}  // namespace
}  // namespace kelvo

extern "C" KELVO_EXPORT int32_t trcOn(int32_t, const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid,
                                      uint32_t thisPointer, int32_t returnCode, int32_t maxSevereErrors,
                                      int32_t maxRecordSize, uint32_t flags, const uint8_t* crashMask,
                                      const uint8_t* pauseMask, int32_t pauseAttrib, const char* fileName,
                                      int64_t bufferSize)
{
    using namespace kelvo;
    int rc = 0;
    Destination destination = destinationOf(flags);
    std::string name;
    if (flags & TRC_DEST_MMIO)
        rc = ENODEV;
    else if (destination != Destination::native && !usableBufferSize(bufferSize))
        rc = EINVAL;
    else if (destination == Destination::file && (fileName == nullptr || fileName[0] == '\0' ||
                                                  strnlen(fileName, TRC_FILE_NAME_SIZE) >= TRC_FILE_NAME_SIZE))
        rc = EINVAL;
    if (rc == 0 && destination == Destination::file)
        name = absoluteName(fileName);
    if (rc == 0)
        rc = retireExisting();
    if (rc == 0) {
        TraceSettings settings{mask,          pid,   tid,       cpid,      thisPointer, returnCode, maxSevereErrors,
                               maxRecordSize, flags, crashMask, pauseMask, pauseAttrib};
        rc = build(settings, destination, name,
                   static_cast<int32_t>(destination == Destination::native ? 0 : bufferSize));
    }
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    // The writers of this process see the new trace at once.
    currentLive();
    return 0;
}
