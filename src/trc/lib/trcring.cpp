// The ring word and record placement; see trcring.h for the design.
#include "trcring.h"

#include <cstring>

namespace kelvo {
namespace {

constexpr uint64_t closedBit = 1ull << 56;
constexpr uint64_t fullBit = 1ull << 57;
constexpr uint64_t lossBit = 1ull << 58;
constexpr uint64_t wrappedBit = 1ull << 59;
constexpr uint32_t pendingFlag = 0x80000000u;

int32_t* wordAt(const Live& live, int32_t offset)
{
    return reinterpret_cast<int32_t*>(live.area + offset);
}

void hook()
{
#ifdef KELVO_AREA_STORE_HOOK
    areaStoreHook();
#endif
}

// Segment sizes are powers of two.
int32_t segmentEndOf(const Live& live, int32_t offset)
{
    return (offset & ~(live.segmentSize - 1)) + live.segmentSize;
}

} // namespace

RingState RingState::decode(uint64_t word)
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

uint64_t RingState::encode() const
{
    return uint64_t{end} | uint64_t{lap} << 32 | uint64_t{holds} << 48 | (closed ? closedBit : 0) |
           (full ? fullBit : 0) | (lossPending ? lossBit : 0) | (wrapped ? wrappedBit : 0);
}

uint64_t loadRing(const Live& live)
{
    return __atomic_load_n(&live.control->ring, __ATOMIC_ACQUIRE);
}

bool casRing(Live& live, uint64_t& expected, uint64_t desired)
{
    return __atomic_compare_exchange_n(&live.control->ring, &expected, desired, false,
                                       __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

uint16_t nextLap(uint16_t lap)
{
    return lap == 0xFFFF ? 1 : static_cast<uint16_t>(lap + 1);
}

uint16_t previousLap(uint16_t lap)
{
    return lap <= 1 ? 0xFFFF : static_cast<uint16_t>(lap - 1);
}

bool ringEndUsable(const Live& live, const RingState& state)
{
    return state.end < static_cast<uint32_t>(live.bufferSize) && state.end % 4 == 0 &&
           (state.wrapped || state.end >= TRC_START_MARKER);
}

bool ringPlace(const Live& live, RingState& state, int32_t aligned, bool keepInitial, Placement& out)
{
    int64_t at = state.end;
    int32_t segmentEnd = segmentEndOf(live, static_cast<int32_t>(at));
    out.fillerSize = 0;
    if (aligned + 4 > segmentEnd - at) {
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
    state.end = static_cast<uint32_t>(at + aligned);
    return true;
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
    __atomic_store_n(&live.control->settled, uint64_t{0}, __ATOMIC_RELAXED);
}

int32_t ringWord(const Live& live, int32_t offset)
{
    return __atomic_load_n(wordAt(live, offset), __ATOMIC_ACQUIRE);
}

void ringStore(Live& live, int32_t offset, int32_t value)
{
    hook();
    __atomic_store_n(wordAt(live, offset), value, __ATOMIC_RELAXED);
}

void ringCommit(Live& live, int32_t offset, int32_t length)
{
    hook();
    __atomic_store_n(wordAt(live, offset), length, __ATOMIC_RELEASE);
}

int32_t pendingWord(uint16_t lap, int32_t length)
{
    return static_cast<int32_t>(pendingFlag | (uint32_t{lap} & 0x7FFFu) << 16 |
                                (static_cast<uint32_t>(length) & 0xFFFFu));
}

bool isPending(int32_t word)
{
    return word < 0;
}

int32_t pendingLength(int32_t word)
{
    return static_cast<int32_t>(static_cast<uint32_t>(word) & 0xFFFFu);
}

uint16_t pendingLap(int32_t word)
{
    return static_cast<uint16_t>((static_cast<uint32_t>(word) >> 16) & 0x7FFFu);
}

void ringWriteFiller(Live& live, int32_t at, int32_t size, uint16_t lap)
{
    if (size >= 12)
        ringStore(live, at + 4, lap);
    if (size >= 8)
        ringStore(live, at + size - 4, size);
    ringCommit(live, at, size);
}

void ringWriteRecord(Live& live, int32_t at, uint16_t lap, const RecordFields& f, int32_t length)
{
    ringStore(live, at, pendingWord(lap, length));
    uint8_t* bytes = live.area + at;
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
    if (copied != 0)
        std::memcpy(bytes + TRC_RECORD_FIXED, f.data, copied);
    int32_t aligned = trcAligned(length);
    std::memset(bytes + TRC_RECORD_FIXED + copied, 0,
                static_cast<std::size_t>(aligned - 4 - TRC_RECORD_FIXED) - copied);
    ringStore(live, at + aligned - 4, length);
    ringCommit(live, at, length);
}

void ringMarkLoss(Live& live)
{
    __atomic_fetch_or(&live.control->ring, lossBit, __ATOMIC_ACQ_REL);
}

void ringMarkFull(Live& live)
{
    __atomic_fetch_or(&live.control->ring, fullBit, __ATOMIC_ACQ_REL);
}

void ringClearLoss(Live& live)
{
    __atomic_fetch_and(&live.control->ring, ~lossBit, __ATOMIC_ACQ_REL);
}

void ringClose(Control& control)
{
    __atomic_fetch_or(&control.ring, closedBit, __ATOMIC_ACQ_REL);
}

} // namespace kelvo
