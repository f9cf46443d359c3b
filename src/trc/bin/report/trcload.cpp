// Loading a trace: the live block as the facility holds it, or a whole
// binary trace file copied into memory so that a report never touches the
// disk again.
#include "trcload.h"
#include "trcmsgid.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcerror.h"
#include "trcmsg.h"

namespace {

constexpr int32_t readChunk = 16384;
// The record area is addressed by 32-bit offsets: a larger size cannot be a
// trace's, and is taken as unreadable. A directory on some file systems
// reports the largest offset there is as its size.
constexpr int64_t largestFile = TRC_HEADER_SIZE + static_cast<int64_t>(INT32_MAX);

// Copies of files stay for the life of the process; holding them here keeps
// them reachable to the end. Marked used so that the compiler keeps the
// store, which nothing in this program reads back.
[[gnu::used]] uint8_t* loadedCopy = nullptr;

struct trcLoad_t {
    const char* file;  // what is read, and named in the messages
    bool semHeld;      // the trace semaphore is taken
};

// Reports message with arg and ends the process, the semaphore released.
[[noreturn]] void fail(const trcLoad_t& load, int message, const char* arg)
{
    if (load.semHeld) {
        trcSemV();
    }
    trcFail(trcMsgGet(message), arg);
    std::exit(1);
}

[[noreturn]] void failOnFile(const trcLoad_t& load, int message) { fail(load, message, load.file); }

[[noreturn]] void failAttach()
{
    if (errno == ENOENT) {
        trcFail(trcMsgGet(msgTraceIsOff));
    } else {
        trcFailSys(trcMsgGet(msgUnexpected));
    }
    std::exit(1);
}

// Size of the open file, the position back at its start; -1 if unknown.
int64_t fileSize(int32_t handle)
{
    const int64_t size = trcFileSeek(handle, 0, 2);
    if (size < 0 || trcFileSeek(handle, 0, 0) != 0) {
        return -1;
    }
    return size;
}

// Reads exactly size bytes into block. A read never asks for more than is
// left of the allocation, so a file that has grown is read only up to the
// size it had; one that ends early (it has shrunk) fails like a read error.
bool readWhole(int32_t handle, uint8_t* block, int64_t size)
{
    int64_t total = 0;
    while (total < size) {
        const auto want = static_cast<int32_t>(std::min<int64_t>(readChunk, size - total));
        const int32_t got = trcFileRead(handle, block + total, want);
        if (got <= 0 || got > want) {
            return false;
        }
        total += got;
    }
    return true;
}

// Checks what a writer must get right for the copy to be read as a trace.
void checkCopy(const trcLoad_t& load, const uint8_t* block)
{
    const auto* header = reinterpret_cast<const trcHeader_t*>(block);
    if (std::strcmp(header->magic, TRC_MAGIC) != 0) {
        failOnFile(load, msgInvalidFile);
    }
    if (header->layoutId != TRC_LAYOUT_ID) {
        // The version text may run on into the fields behind it; the zero
        // byte behind the copy ends it at the latest.
        fail(load, msgOtherVersion, reinterpret_cast<const char*>(block) + 12);
    }
}

trcHeader_t* loadFile(trcLoad_t& load, long* areaSize)
{
    const int32_t handle = trcFileAttach(load.file, TRC_FILE_READ);
    if (handle == -1) {
        failOnFile(load, msgCannotOpen);
    }
    const int64_t size = fileSize(handle);
    if (size < 0 || size > largestFile) {
        failOnFile(load, msgCannotRead);
    }
    if (size < TRC_HEADER_SIZE) {
        failOnFile(load, msgInvalidFile);
    }
    auto* block = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(size) + 1));
    if (block == nullptr) {
        failOnFile(load, msgNoMemory);
    }
    loadedCopy = block;
    if (!readWhole(handle, block, size)) {
        failOnFile(load, msgCannotRead);
    }
    block[size] = 0;
    checkCopy(load, block);
    trcFileDetach(handle);
    if (load.semHeld) {
        trcSemV();
        load.semHeld = false;
    }
    *areaSize = static_cast<long>(size - TRC_HEADER_SIZE);
    return reinterpret_cast<trcHeader_t*>(block);
}

}  // namespace

int readFile(trcHeader_t** header, const char* file, int forFormatting, long* areaSize)
{
    trcHeader_t* live = trcAttach(0, 0, 0);
    *header = live;
    trcLoad_t load{file, false};
    char liveFileName[TRC_FILE_NAME_SIZE];
    if (std::strcmp(file, "-") == 0) {
        if (live == nullptr) {
            failAttach();
        }
        if (live->traceOff != 0) {
            fail(load, msgTraceIsOff, nullptr);
        }
        trcSemP();
        load.semHeld = true;
        *areaSize = live->bufferSize;
        if (forFormatting && (live->flags & TRC_DEST_NATIVE)) {
            fail(load, msgFormatNative, nullptr);
        }
        if (forFormatting && (live->flags & TRC_DEST_FILE)) {
            std::memcpy(liveFileName, live->fileName, sizeof liveFileName);
            liveFileName[sizeof liveFileName - 1] = '\0';
            load.file = liveFileName;
        }
        if (std::strcmp(load.file, "-") == 0) {
            trcSemV();
            return 0;
        }
    } else if (live != nullptr && forFormatting && (live->flags & TRC_DEST_FILE) && live->traceOff == 0) {
        // A running trace writes this file, or may: read it with the
        // writers kept out.
        trcSemP();
        load.semHeld = true;
    }
    *header = loadFile(load, areaSize);
    return 0;
}
