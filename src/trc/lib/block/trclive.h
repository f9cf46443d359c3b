// The live block of a trace and this process's view of it.
//
// The block is one shared memory object per instance: a control page, the
// 3000-byte trace header, and for the shared memory destination the record
// area, followed by the lanes that writers store into (trclanes.h). A file
// destination keeps its header copy and area in the file.
#ifndef KELVO_TRCLIVE_H
#define KELVO_TRCLIVE_H

#include <kelvo/trcformat.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace kelvo {

constexpr uint32_t controlMagic = 0x4B4C564Fu;  // "KLVO"
constexpr uint32_t controlLayout = 6;
constexpr std::size_t controlBytes = 4096;
constexpr int32_t smallestBuffer = 64;
constexpr int maxHolders = 32;
// The area is counted in at most this many zones (see trcring.h).
constexpr int maxZones = 512;
// Writers store into at most this many lanes (see trclanes.h).
constexpr int maxLanes = 4;

enum class Destination : uint32_t { shared = 1, file = 2, native = 3 };

// The control page. Any process that maps the block can write anything into
// it, so every reader of these words checks them before it trusts them.
struct Control {
    // Read by every write: kept apart from the ring word, which every
    // write changes.
    uint32_t magic;
    uint32_t layout;
    uint32_t removed;      // set by off: the block is gone for good
    uint32_t generation;   // bumped by every change; ends pauses
    uint32_t destination;  // a Destination
    uint32_t keptFlags;    // the flags as on and chg set them
    uint32_t takesAll;     // mask selects all, no filter: writers test nothing
    uint32_t laneCount;    // lanes behind the area; 0: writers store into the area
    // The ring word: where the next record goes and who may place one (see
    // trcring.h). Every write changes it, so it has its cache line, with
    // only the tail guard beside it, which every write reads.
    alignas(64) uint64_t ring;
    // In an area of one zone, the lap and offset of the filler that closes
    // the area before a wrap while its writer has not written it yet, or 0:
    // no record of that lap may reach it (trcring.h).
    uint64_t tailGuard;
    // Losses not yet reported by a record of the facility, by cause, and all
    // losses since the trace began.
    alignas(64) uint32_t lostHeld;
    uint32_t lostFull;
    uint64_t lostTotal;
    int32_t severeErrors;
    // The reader that puts the area in order, and the ring word it found in
    // order last, so that a second reader need not look again.
    int32_t settler;
    uint64_t settled;
    // Processes that hold the trace for reading.
    int32_t holders[maxHolders];
    // Losses not yet reported because the zone ahead still held a record
    // that its writer had not finished.
    uint32_t lostBusy;
    // When writers first found the zone ahead unfinished (coarse monotonic
    // ns), or 0.
    int64_t stallSince;
    // What the writers wait for since then: the lap and offset of the place
    // that they cannot take. A wait for another place starts anew.
    uint64_t stallKey;
    // With lanes: the processes that read the area as the last merge left
    // it, which no merge may change under them.
    int32_t readers[maxHolders];
    // Bytes committed in each zone of the area since writers last entered
    // it (trcring.h).
    alignas(64) uint32_t committed[maxZones];
    // The lap in which writers last entered each zone: a writer whose place
    // was given up finds its zone entered again and stores nothing more.
    alignas(64) uint16_t zoneLap[maxZones];
};
static_assert(sizeof(Control) <= controlBytes);
static_assert(offsetof(Control, ring) == 64);
static_assert(offsetof(Control, lostHeld) == 128);
static_assert(offsetof(Control, committed) % 64 == 0);

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
    std::size_t mappedBytes;  // of the block itself, the guard behind it not counted
    Live* older;              // the blocks this process mapped before
    int32_t laneCount;        // 0, or a power of two up to maxLanes
    Live* lanes;              // the rings of the lanes, each with its own control page
};

template <typename T>
inline T loadRelaxed(const T& field)
{
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}
template <typename T>
inline void storeRelaxed(T& field, T value)
{
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

// Name of the shared memory object of this process's instance, as a path
// below /dev/shm.
std::string instancePath();
// A fresh name beside it for building a block before it is published.
std::string instanceScratchPath();

// Maps the published block of the instance; null with ENOENT when there is
// none or it is damaged. Without needFile, a file trace whose file cannot be
// mapped is mapped all the same, with no area: enough to end it.
Live* mapLive(bool needFile = true);

// Ends whatever block the instance's name holds, damaged or not: marks it
// removed and closed where its control page can be mapped, so that the
// writers that use it let go of it, and unlinks the name. 0, or ENOENT when
// there is no block.
int retireBlock();

}  // namespace kelvo

#endif
