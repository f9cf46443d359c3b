// The ring word and record placement; see trcring.h for the design.
#include "trcring.h"

#include "trcclock.h"

#include <algorithm>
#include <cstring>

namespace kelvo {
namespace {

constexpr uint32_t pendingFlag = 0x80000000u;
constexpr int64_t stallGiveUpNs = 50'000'000;

int32_t* wordAt(const Live& live, int32_t offset) { return reinterpret_cast<int32_t*>(live.area + offset); }

void storeWord(Live& live, int32_t offset, int32_t value)
{
    __atomic_store_n(wordAt(live, offset), value, __ATOMIC_RELAXED);
}

void commitWord(Live& live, int32_t offset, int32_t length)
{
    __atomic_store_n(wordAt(live, offset), length, __ATOMIC_RELEASE);
}

void hook()
{
#ifdef KELVO_AREA_STORE_HOOK
    areaStoreHook();
#endif
}

int32_t zoneBytes(const Live& live, int32_t zone)
{
    int64_t size = int64_t{1} << ringZoneBits(live);
    int64_t start = int64_t{zone} * size;
    return static_cast<int32_t>(std::min<int64_t>(size, live.bufferSize - start));
}

// True once writers have found the place `key` (lap and offset) held up
// for longer than its writer may take. A time that cannot be (a stray
// write) starts the wait anew, and so does a wait that began as long ago
// for another place: one that a writer found taken as it lost a race, and
// that nobody cleared. While another place's wait is younger, that one is
// given up first.
bool stalledTooLong(Live& live, uint64_t key)
{
    int64_t now = coarseNs();
    int64_t since = __atomic_load_n(&live.control->stallSince, __ATOMIC_RELAXED);
    bool same = __atomic_load_n(&live.control->stallKey, __ATOMIC_RELAXED) == key;
    bool over = since > 0 && since <= now && now - since >= stallGiveUpNs;
    if (since <= 0 || since > now || (!same && over)) {
        __atomic_store_n(&live.control->stallKey, key, __ATOMIC_RELAXED);
        __atomic_compare_exchange_n(&live.control->stallSince, &since, now, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
        return false;
    }
    return same && over;
}

uint64_t placeKey(const Placement& p) { return uint64_t{p.lap} << 32 | static_cast<uint32_t>(p.at); }

}  // namespace

int32_t ringOwnFiller(const Live& live, const Placement& p)
{
    bool sameZone = ringZoneOf(live, p.fillerAt) == ringZoneOf(live, p.at);
    return ringEntersZone(live, p) && sameZone ? p.fillerSize : 0;
}

bool ringEnterZone(Live& live, const Placement& p)
{
    int32_t zone = ringZoneOf(live, p.at);
    uint32_t* count = &live.control->committed[zone];
    auto due = static_cast<uint32_t>(zoneBytes(live, zone) - ringOwnFiller(live, p));
    uint32_t seen = __atomic_load_n(count, __ATOMIC_ACQUIRE);
    bool claimed = false;
    while (!claimed && seen >= due)
        claimed = __atomic_compare_exchange_n(count, &seen, seen - due, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    // The writer still inside is stopped or gone: its place is given up,
    // and so is the guard of a filler that it has still to write.
    bool gaveUp = false;
    if (!claimed)
        claimed = gaveUp = stalledTooLong(live, placeKey(p)) &&
                           __atomic_compare_exchange_n(count, &seen, 0u, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
    if (!claimed)
        return false;
    if (gaveUp)
        __atomic_store_n(&live.control->tailGuard, uint64_t{0}, __ATOMIC_RELEASE);
    __atomic_store_n(&live.control->stallSince, int64_t{0}, __ATOMIC_RELAXED);
    return true;
}

void ringNoteEntered(Live& live, const Placement& p)
{
    __atomic_store_n(&live.control->zoneLap[ringZoneOf(live, p.at)], p.lap, __ATOMIC_RELEASE);
}

void ringGiveBackZone(Live& live, const Placement& p)
{
    auto due = static_cast<uint32_t>(zoneBytes(live, ringZoneOf(live, p.at)) - ringOwnFiller(live, p));
    __atomic_add_fetch(&live.control->committed[ringZoneOf(live, p.at)], due, __ATOMIC_RELEASE);
}

uint64_t ringTailGuardOf(const Live& live, const Placement& p)
{
    if (ringOwnFiller(live, p) == 0)
        return 0;
    return uint64_t{p.lap} << 32 | static_cast<uint32_t>(p.fillerAt);
}

void ringSetTailGuard(Live& live, uint64_t guard)
{
    __atomic_store_n(&live.control->tailGuard, guard, __ATOMIC_RELEASE);
}

void ringDropTailGuard(Live& live, uint64_t guard)
{
    // The writers that it held up start a new wait for what holds them next.
    if (__atomic_compare_exchange_n(&live.control->tailGuard, &guard, uint64_t{0}, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_RELAXED))
        __atomic_store_n(&live.control->stallSince, int64_t{0}, __ATOMIC_RELAXED);
}

bool ringPassTail(Live& live, const Placement& p, int32_t aligned)
{
    auto end = static_cast<uint32_t>(p.at + aligned + 4);
    if (ringClearOfTail(live, p.lap, end))
        return true;
    uint64_t guard = __atomic_load_n(&live.control->tailGuard, __ATOMIC_ACQUIRE);
    if (!stalledTooLong(live, guard))
        return false;
    ringDropTailGuard(live, guard);
    return true;
}

void ringCountCommit(Live& live, int32_t at, uint16_t lap, int32_t bytes)
{
    if (ringOwns(live, at, lap))
        __atomic_add_fetch(&live.control->committed[ringZoneOf(live, at)], static_cast<uint32_t>(bytes),
                           __ATOMIC_RELEASE);
}

void ringRecount(Live& live, const RingState& state)
{
    auto end = static_cast<int32_t>(state.end);
    int32_t endZone = ringZoneOf(live, end);
    int32_t zones = ringZoneOf(live, live.bufferSize - 1) + 1;
    uint16_t above = state.wrapped ? previousLap(state.lap) : state.lap;
    for (int32_t z = 0; z < zones; ++z) {
        uint32_t count = z == endZone ? static_cast<uint32_t>(end - (z << ringZoneBits(live)))
                                      : static_cast<uint32_t>(zoneBytes(live, z));
        __atomic_store_n(&live.control->committed[z], count, __ATOMIC_RELEASE);
        __atomic_store_n(&live.control->zoneLap[z], z <= endZone ? state.lap : above, __ATOMIC_RELEASE);
    }
    __atomic_store_n(&live.control->tailGuard, uint64_t{0}, __ATOMIC_RELEASE);
    __atomic_store_n(&live.control->stallSince, int64_t{0}, __ATOMIC_RELAXED);
}

int32_t ringLargestRecord(const Live& live)
{
    return live.segmentSize - 4 - (live.segmentSize == live.bufferSize ? TRC_START_MARKER : 0);
}

void ringReset(Live& live)
{
    RingState s = RingState::decode(loadRing(live));
    ringStore(live, TRC_START_MARKER, 0);
    ringStore(live, 4, TRC_START_MARKER);
    ringStore(live, 0, TRC_START_MARKER);
    RingState fresh;
    fresh.end = TRC_START_MARKER;
    fresh.lap = nextLap(s.lap);
    fresh.holds = s.holds;
    fresh.closed = s.closed;
    __atomic_store_n(&live.control->ring, fresh.encode(), __ATOMIC_RELEASE);
    __atomic_store_n(&live.control->lostHeld, 0u, __ATOMIC_RELAXED);
    __atomic_store_n(&live.control->lostFull, 0u, __ATOMIC_RELAXED);
    __atomic_store_n(&live.control->lostBusy, 0u, __ATOMIC_RELAXED);
    ringRecount(live, fresh);
    __atomic_store_n(&live.control->settled, uint64_t{0}, __ATOMIC_RELAXED);
}

int32_t ringWord(const Live& live, int32_t offset) { return __atomic_load_n(wordAt(live, offset), __ATOMIC_ACQUIRE); }

void ringStore(Live& live, int32_t offset, int32_t value)
{
    hook();
    storeWord(live, offset, value);
}

void ringCommit(Live& live, int32_t offset, int32_t length)
{
    hook();
    commitWord(live, offset, length);
}

int32_t pendingWord(uint16_t lap, int32_t length)
{
    return static_cast<int32_t>(pendingFlag | (uint32_t{lap} & 0x7FFFu) << 16 |
                                (static_cast<uint32_t>(length) & 0xFFFFu));
}

bool isPending(int32_t word) { return word < 0; }

int32_t pendingLength(int32_t word) { return static_cast<int32_t>(static_cast<uint32_t>(word) & 0xFFFFu); }

uint16_t pendingLap(int32_t word) { return static_cast<uint16_t>((static_cast<uint32_t>(word) >> 16) & 0x7FFFu); }

void ringWriteFiller(Live& live, int32_t at, int32_t size, uint16_t lap)
{
    if (size >= 12)
        ringStore(live, at + 4, lap);
    if (size >= 8)
        ringStore(live, at + size - 4, size);
    ringCommit(live, at, size);
}

bool ringOwns(const Live& live, int32_t at, uint16_t lap)
{
    return ringLapOwns(__atomic_load_n(&live.control->zoneLap[ringZoneOf(live, at)], __ATOMIC_ACQUIRE), lap);
}

bool ringWriteFillerBefore(Live& live, const Placement& p, bool owned)
{
    uint16_t lap = ringFillerLap(p);
    // The filler that wraps an area of one zone is owned while its guard
    // stands; any other while the zone it closes is the writer's.
    uint64_t guard = owned ? ringTailGuardOf(live, p) : 0;
    if (guard != 0 && __atomic_load_n(&live.control->tailGuard, __ATOMIC_ACQUIRE) != guard)
        return false;
    if (owned && guard == 0 && !ringOwns(live, p.fillerAt, lap))
        return false;
    ringWriteFiller(live, p.fillerAt, p.fillerSize, lap);
    if (guard != 0)
        ringDropTailGuard(live, guard);
    return true;
}

bool ringWriteRecord(Live& live, int32_t at, uint16_t lap, const RecordFields& f, int32_t length, bool owned)
{
    const uint16_t* zoneLap = owned ? &live.control->zoneLap[ringZoneOf(live, at)] : &lap;
    auto owns = [&] { return ringLapOwns(__atomic_load_n(zoneLap, __ATOMIC_ACQUIRE), lap); };
    auto stillOwned = [&] {
        hook();
        return owns();
    };
    if (!stillOwned())
        return false;
    storeWord(live, at, pendingWord(lap, length));
    uint8_t* bytes = live.area + at;
    // The next records go behind this one: own their cache lines before the
    // next compare-and-swap, which waits for every store before it.
    if (at + 512 < live.bufferSize)
        __builtin_prefetch(bytes + 512, 1);
    auto* fixed = reinterpret_cast<trcRecord_t*>(bytes);
    fixed->ident1 = (f.ident1 & ~lapBits) | lap;
    fixed->ident2 = f.ident2;
    fixed->thisPointer = f.thisPointer;
    fixed->pid = f.pid;
    fixed->tid = f.tid;
    fixed->node = f.node;
    fixed->cpid = f.cpid;
    fixed->sec = f.sec;
    fixed->nsec = f.nsec;
    auto room = static_cast<uint32_t>(length - TRC_RECORD_MIN);
    uint32_t copied = room < f.dataLength ? room : f.dataLength;
    // The data is the longest stretch without a structure word: look again.
    if (!owns())
        return false;
    if (copied != 0)
        std::memcpy(bytes + TRC_RECORD_FIXED, f.data, copied);
    int32_t aligned = trcAligned(length);
    auto padding = static_cast<std::size_t>(aligned - 4 - TRC_RECORD_FIXED) - copied;
    if (padding != 0)
        std::memset(bytes + TRC_RECORD_FIXED + copied, 0, padding);
    if (!stillOwned())
        return false;
    storeWord(live, at + aligned - 4, length);
    if (!stillOwned())
        return false;
    commitWord(live, at, length);
    return true;
}

void ringMarkLoss(Live& live) { __atomic_fetch_or(&live.control->ring, lossBit, __ATOMIC_ACQ_REL); }

void ringMarkFull(Live& live) { __atomic_fetch_or(&live.control->ring, fullBit, __ATOMIC_ACQ_REL); }

void ringClearLoss(Live& live) { __atomic_fetch_and(&live.control->ring, ~lossBit, __ATOMIC_ACQ_REL); }

void ringClose(Control& control) { __atomic_fetch_or(&control.ring, closedBit, __ATOMIC_ACQ_REL); }

}  // namespace kelvo
