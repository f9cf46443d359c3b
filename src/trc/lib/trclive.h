// The live block of a trace and this process's view of it.
//
// The block is one shared memory object per instance: a control page, the
// 3000-byte trace header, and for the shared memory destination the record
// area. A file destination keeps its header copy and area in the file.
#ifndef KELVO_TRCLIVE_H
#define KELVO_TRCLIVE_H

#include <kelvo/trcformat.h>

#include <pthread.h>

#include <cstdint>
#include <string>

namespace kelvo {

constexpr uint32_t controlMagic = 0x4B4C564Fu;   // "KLVO"
constexpr uint32_t controlLayout = 2;
constexpr std::size_t controlBytes = 4096;
constexpr int32_t smallestBuffer = 64;

enum class Destination : uint32_t { shared = 1, file = 2, native = 3 };

// Fields that are written under the trace semaphore and read by writers
// without it are accessed through the atomic helpers below.
struct Control {
    // Read by every write before it takes the semaphore: kept apart from
    // the words the holder of the semaphore writes, so that the writers'
    // reads do not pull the holder's cache line away.
    uint32_t magic;
    uint32_t layout;
    uint32_t removed;        // set by off: the block is gone for good
    uint32_t generation;     // bumped by every change; ends pauses
    uint32_t destination;    // a Destination
    // Written under the semaphore.
    alignas(64) pthread_mutex_t mutex;   // the trace semaphore: process-shared and robust
    int32_t endOffset;       // where the end mark stands
    int32_t oldStart;        // first intact record of the last lap behind it
    int32_t severeErrors;
};
static_assert(sizeof(Control) <= controlBytes);

// This process's mapping of a live block. Never freed: the tool keeps
// pointers into it for the life of the process.
struct Live {
    Control* control;
    trcHeader_t* header;      // the live header
    trcHeader_t* fileHeader;  // header in the trace file, or null
    uint8_t* area;            // record area, or null for a native trace
    int32_t bufferSize;
    int32_t segmentSize;
    Destination destination;
    Live* older;              // the blocks this process mapped before
};

template <typename T> inline T loadRelaxed(const T& field)
{
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}
template <typename T> inline void storeRelaxed(T& field, T value)
{
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

// Name of the shared memory object of this process's instance, as a path
// below /dev/shm.
std::string instancePath();
// A fresh name beside it for building a block before it is published.
std::string instanceScratchPath();

// Maps the published block of the instance; null with errno when none.
// Without needFile, a file trace whose file cannot be mapped is mapped all
// the same, with no area: enough to end it.
Live* mapLive(bool needFile = true);

} // namespace kelvo

#endif
