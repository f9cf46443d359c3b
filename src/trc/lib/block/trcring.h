// The ring: how writers take their place in the record area without a lock,
// and how a record is written into the place taken. A trace with lanes
// (trclanes.h) has one such ring per lane; its area is then written only by
// the readers that merge the lanes.
//
// One 64-bit word in the control page, the ring word, says where the next
// record goes (`end`), how often the area has wrapped (`lap`, also stamped
// into every record so that a record of this lap can be told from the bytes
// of an older one), how many readers hold the trace, and a few flags. A
// writer reads the word, computes its place by the layout rules of the
// trace format (a record and the end mark behind it must fit in the
// segment, else the segment is closed by a filler and the record starts the
// next one, or offset 0 behind the last), and installs the new word with
// one compare-and-swap. Once that succeeds the bytes are its own: it marks
// the slot pending, writes the record, and commits it by storing its length
// word last. Nobody waits for anybody: a writer that finds the trace held by
// a reader, closed or full drops its record and counts the loss, and a
// writer that stops between reserving and committing leaves a pending slot
// that the next reader gives up (trcsettle.h).
//
// A writer taken off its processor between reserving and committing must
// not find its place overwritten by the others when they come round the
// whole area. So the area is counted in zones (whole segments, at most
// maxZones of them): every record and filler adds its bytes to its zone's
// count after its commit, and a writer whose place would enter a zone first
// claims it by taking a whole zone's bytes off that count. The claim only
// succeeds when every byte of the zone's last lap was committed; otherwise
// the record is dropped and counted as lost, and the ring stays where it is
// until the slow writer commits. A writer that holds its place for more than
// 50 ms (stopped, or killed) is given up, as a reader gives it up: the zone
// is then claimed all the same.
//
// In an area of one zone the zone claim cannot cover the filler that closes
// the area before a wrap: the writer that wraps claims the zone for its own
// record and writes that filler itself, while the others go on from its
// record onwards. So it sets the tail guard before its swap, and no record
// of the new lap may reach the filler's place until the filler is written.
// A guard held for more than 50 ms is given up like a zone.
//
// The writer whose place enters a zone notes, right after its swap, the lap
// in which it entered it. A writer looks at its zone's lap before each store
// of its record's structure and before its data: once the others have
// entered the zone again, its place holds their records, and a writer that
// was given up and goes on (a debugger let it go) stores nothing more and
// counts its record as lost.
// Only a writer stopped in the few stores between two looks (its fixed
// fields, or its data) can still land those bytes on newer records; closing
// that gap needs the kernel's help (restartable sequences), which the
// writer does not use.
#ifndef KELVO_TRCRING_H
#define KELVO_TRCRING_H

#include "trclive.h"

#include <cstdint>

namespace kelvo {

constexpr uint64_t closedBit = 1ull << 56;
constexpr uint64_t fullBit = 1ull << 57;
constexpr uint64_t lossBit = 1ull << 58;
constexpr uint64_t wrappedBit = 1ull << 59;
// The bits of the ring word that the order of the area does not depend on:
// the holds, and the losses that writers count while the trace is held.
constexpr uint64_t notAreaBits = uint64_t{0xFF} << 48 | lossBit;

// Every write goes through the functions of this header down to the
// compare-and-swap, so they are inline.
struct RingState {
    uint32_t end = 0;          // offset of the end mark: the next record goes here
    uint16_t lap = 0;          // bumped at every wrap and every clear
    uint8_t holds = 0;         // readers that hold the trace
    bool closed = false;       // off: no record is placed any more
    bool full = false;         // keeping the initial records, and the area is full
    bool lossPending = false;  // losses wait to be reported by the next writer
    bool wrapped = false;      // the area has wrapped since it was last emptied

    static RingState decode(uint64_t word);
    uint64_t encode() const;
};

inline RingState RingState::decode(uint64_t word)
{
    RingState s;
    s.end = static_cast<uint32_t>(word);
    s.lap = static_cast<uint16_t>(word >> 32);
    s.holds = static_cast<uint8_t>(word >> 48);
    s.closed = (word & closedBit) != 0;
    s.full = (word & fullBit) != 0;
    s.lossPending = (word & lossBit) != 0;
    s.wrapped = (word & wrappedBit) != 0;
    return s;
}

inline uint64_t RingState::encode() const
{
    return uint64_t{end} | uint64_t{lap} << 32 | uint64_t{holds} << 48 | (closed ? closedBit : 0) |
           (full ? fullBit : 0) | (lossPending ? lossBit : 0) | (wrapped ? wrappedBit : 0);
}

inline uint64_t loadRing(const Live& live) { return __atomic_load_n(&live.control->ring, __ATOMIC_ACQUIRE); }

inline bool casRing(Live& live, uint64_t& expected, uint64_t desired)
{
    return __atomic_compare_exchange_n(&live.control->ring, &expected, desired, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}

// The lap after `lap`; 0 is skipped so that a wrapped lap is never 0.
inline uint16_t nextLap(uint16_t lap) { return lap == 0xFFFF ? 1 : static_cast<uint16_t>(lap + 1); }

inline uint16_t previousLap(uint16_t lap) { return lap <= 1 ? 0xFFFF : static_cast<uint16_t>(lap - 1); }

// Where one record goes, and the filler that closes the segment before it.
struct Placement {
    int32_t at = 0;
    int32_t fillerAt = 0;
    int32_t fillerSize = 0;  // 0: no filler
    uint16_t lap = 0;        // of the record placed at `at`
};

// The lap of the filler before place `p`: a filler that closes the area
// belongs to the lap before the wrap.
inline uint16_t ringFillerLap(const Placement& p) { return p.at < p.fillerAt ? previousLap(p.lap) : p.lap; }

// True when a record can start at `state.end`; only a stray write into the
// control page makes it false.
inline bool ringEndUsable(const Live& live, const RingState& state)
{
    return state.end < static_cast<uint32_t>(live.bufferSize) && state.end % 4 == 0 &&
           (state.wrapped || state.end >= TRC_START_MARKER);
}

// Advances `state` past one record of `aligned` bytes, from a usable end.
// False when the trace keeps its initial records and the last segment
// cannot take it. Segment sizes are powers of two.
inline bool ringPlace(const Live& live, RingState& state, int32_t aligned, bool keepInitial, Placement& out)
{
    int64_t at = state.end;
    int32_t segmentEnd = (static_cast<int32_t>(at) & ~(live.segmentSize - 1)) + live.segmentSize;
    out.fillerSize = 0;
    if (aligned + 4 > segmentEnd - at) [[unlikely]] {
        if (keepInitial && segmentEnd == live.bufferSize)
            return false;
        out.fillerAt = static_cast<int32_t>(at);
        out.fillerSize = segmentEnd - static_cast<int32_t>(at);
        at = segmentEnd;
        if (at == live.bufferSize) {
            at = 0;
            state.lap = nextLap(state.lap);
            state.wrapped = true;
        }
    }
    out.at = static_cast<int32_t>(at);
    out.lap = state.lap;
    state.end = static_cast<uint32_t>(at + aligned);
    return true;
}

// Zones: a power of two of bytes, whole segments, at most maxZones.
inline int ringZoneBits(const Live& live)
{
    int segmentBits = __builtin_ctz(static_cast<uint32_t>(live.segmentSize));
    int areaBits = 32 - __builtin_clz(static_cast<uint32_t>(live.bufferSize) - 1);
    int fewest = areaBits - __builtin_ctz(static_cast<uint32_t>(maxZones));
    return segmentBits > fewest ? segmentBits : fewest;
}

inline int32_t ringZoneOf(const Live& live, int32_t offset) { return offset >> ringZoneBits(live); }

// True when a record placed at `at` behind a filler enters a new zone.
inline bool ringEntersZone(const Live& live, const Placement& p)
{
    return p.fillerSize != 0 && (p.at & ((int32_t{1} << ringZoneBits(live)) - 1)) == 0;
}

// The claim of the zone that place `p` enters, before the ring enters it;
// false when a record of its last lap is still unfinished. A claim whose
// swap of the ring word then fails is given back.
bool ringEnterZone(Live& live, const Placement& p);
void ringGiveBackZone(Live& live, const Placement& p);
// Notes the lap of place `p` as the lap its zone was entered in; only after
// the swap that took the place, since a claim whose swap fails enters
// nothing.
void ringNoteEntered(Live& live, const Placement& p);
// True when `seen`, a zone's lap, leaves a place of `lap` in it to its
// writer: the zone was entered in that lap, or the writer that entered it
// has yet to note it (right after its swap).
inline bool ringLapOwns(uint16_t seen, uint16_t lap) { return seen == lap || seen == previousLap(lap); }

// The bytes of the filler before `p` that lie in the zone it enters: in an
// area of one zone, the filler that closes it before the wrap. They are
// taken into the claim, so its writer does not count them again; in an area
// of several zones a filler is counted in the zone it closes.
int32_t ringOwnFiller(const Live& live, const Placement& p);

// The tail guard of place `p`, 0 for a place that needs none: a place that
// wraps an area of one zone.
uint64_t ringTailGuardOf(const Live& live, const Placement& p);
// Sets the guard before the swap that takes the place, and lets it go when
// the swap fails or once the filler is written.
void ringSetTailGuard(Live& live, uint64_t guard);
void ringDropTailGuard(Live& live, uint64_t guard);
// True when a record of `lap` that ends, with the end mark behind it, at
// `end` keeps clear of the guarded filler.
inline bool ringClearOfTail(const Live& live, uint16_t lap, uint32_t end)
{
    uint64_t guard = __atomic_load_n(&live.control->tailGuard, __ATOMIC_ACQUIRE);
    return guard == 0 || static_cast<uint16_t>(guard >> 32) != lap || end <= static_cast<uint32_t>(guard);
}
// As ringClearOfTail for place `p` of `aligned` bytes; a guard held too
// long is given up (the writer holding it stores no filler then).
bool ringPassTail(Live& live, const Placement& p, int32_t aligned);

// Counts a committed slot of `lap` in its zone; writers call it after the
// commit. A writer given up meanwhile counts nothing: the zone's count is
// the others' now.
void ringCountCommit(Live& live, int32_t at, uint16_t lap, int32_t bytes);

// Sets the zone counts for an area in order whose end mark is at `end`:
// every zone whole but the end mark's, which holds what lies below it. The
// zones up to the end mark's were entered in `state`'s lap, those above it
// in the lap before when the area has wrapped.
void ringRecount(Live& live, const RingState& state);

// True while a place taken in `lap` at offset `at` is still its writer's:
// its zone has not been entered again since (ringLapOwns).
bool ringOwns(const Live& live, int32_t at, uint16_t lap);

// Largest length of a record that a segment can hold.
int32_t ringLargestRecord(const Live& live);

// Empties the area: start marker, end mark, a new lap. Only for a block no
// writer sees yet, or under an exclusive hold.
void ringReset(Live& live);

// The words of the area, read and stored as single 32-bit accesses.
int32_t ringWord(const Live& live, int32_t offset);
void ringStore(Live& live, int32_t offset, int32_t value);
// The commit: a release store, so that a reader that sees the length sees
// the record behind it.
void ringCommit(Live& live, int32_t offset, int32_t length);

// A pending slot's first word: negative, with the low 15 bits of the lap
// and the record's length.
int32_t pendingWord(uint16_t lap, int32_t length);
bool isPending(int32_t word);
int32_t pendingLength(int32_t word);
uint16_t pendingLap(int32_t word);

// Bits 15 to 0 of ident1, which readers of the format do not read, carry
// the lap of the record.
constexpr uint32_t lapBits = 0xFFFFu;

// A filler of 12 bytes or more carries its lap in its second word.
void ringWriteFiller(Live& live, int32_t at, int32_t size, uint16_t lap);
// The filler that closes the segment before place `p`: a filler that closes
// the area belongs to the lap before the wrap. With `owned`, only while the
// writer still owns its place (ringOwns); false when it no longer does.
bool ringWriteFillerBefore(Live& live, const Placement& p, bool owned = false);

// The fields of a record as its writer gives them; ident1's low bits are
// the ring's.
struct RecordFields {
    uint32_t ident1;
    uint32_t ident2;
    uint32_t thisPointer;
    uint32_t pid;
    uint32_t tid;
    int32_t node;
    uint32_t cpid;
    int32_t sec;
    int32_t nsec;
    const uint8_t* data;
    uint32_t dataLength;
};

// Writes a record of `length` bytes at the place taken: marks the slot
// pending, writes the fields straight into the area (staging them and
// copying costs a stalled load), then the trailing word, and commits it by
// its length word. Data beyond the length is cut. With `owned`, each store
// of the slot's structure, and the data, is made only while the writer
// still owns its place (ringOwns); false when it stopped for that reason.
bool ringWriteRecord(Live& live, int32_t at, uint16_t lap, const RecordFields& fields, int32_t length,
                     bool owned = false);

// Flags that writers set on the ring word while they drop records.
void ringMarkLoss(Live& live);
void ringMarkFull(Live& live);
void ringClearLoss(Live& live);
// Off: no record is placed any more.
void ringClose(Control& control);

#ifdef KELVO_AREA_STORE_HOOK
// Tests only: called before every word of the ring's structure is stored,
// so that a test can stop a writer between any two such stores.
void areaStoreHook();
#endif

}  // namespace kelvo

#endif
