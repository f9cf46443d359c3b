// Holding the trace for reading; see trchold.h.
#include "trchold.h"

#include "trcclock.h"
#include "trclanes.h"
#include "trcring.h"
#include "trcsettle.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace kelvo {
namespace {

constexpr long pollNs = 1'000'000;

void nap()
{
    struct timespec step {
        0, pollNs
    };
    nanosleep(&step, nullptr);
}

bool alive(int32_t pid) { return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM); }

int32_t* holderSlot(Live& live, int i) { return &live.control->holders[i]; }

bool claimSlot(Live& live, int32_t pid)
{
    for (int i = 0; i < maxHolders; ++i) {
        int32_t expected = 0;
        if (__atomic_compare_exchange_n(holderSlot(live, i), &expected, pid, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return true;
    }
    return false;
}

void freeSlot(Live& live, int32_t pid)
{
    for (int i = 0; i < maxHolders; ++i) {
        int32_t expected = pid;
        if (__atomic_compare_exchange_n(holderSlot(live, i), &expected, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return;
    }
}

// Adds `delta` to the hold count, kept within 0 to 255. False when a hold
// cannot be added.
bool addHolds(Live& live, int delta)
{
    uint64_t word = loadRing(live);
    for (;;) {
        RingState s = RingState::decode(word);
        int holds = s.holds + delta;
        if (holds > 255)
            return false;
        s.holds = static_cast<uint8_t>(holds < 0 ? 0 : holds);
        if (casRing(live, word, s.encode()))
            return true;
    }
}

bool anyHolder(Live& live)
{
    for (int i = 0; i < maxHolders; ++i)
        if (__atomic_load_n(holderSlot(live, i), __ATOMIC_ACQUIRE) != 0)
            return true;
    return false;
}

// Puts the area in order unless the ring has not moved since the last
// reader did; one reader at a time does it, the others wait for it.
void settle(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    int32_t* settler = &live.control->settler;
    int64_t until = monotonicNs() + settlerWaitNs;
    for (;;) {
        int32_t owner = 0;
        if (__atomic_compare_exchange_n(settler, &owner, pid, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            break;
        if (owner != pid && !alive(owner))
            __atomic_compare_exchange_n(settler, &owner, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
        else if (monotonicNs() >= until)
            return;  // go on over what is there; the tool reads it safely
        else
            nap();
    }
    uint64_t key = loadRing(live) & ~notAreaBits;
    if (live.laneCount != 0) {
        lanesGather(live, settleWaitNs);
    } else if (__atomic_load_n(&live.control->settled, __ATOMIC_ACQUIRE) != key) {
        ringRestoreHeader(live);
        ringSettle(live, settleWaitNs);
        __atomic_store_n(&live.control->settled, loadRing(live) & ~notAreaBits, __ATOMIC_RELEASE);
    }
    __atomic_store_n(settler, 0, __ATOMIC_RELEASE);
}

// One hold of one ring: claimed in the table before it is counted, and
// given back after, so that a sweep that reads the table never counts fewer
// holds than there are.
bool holdRing(Live& ring, int32_t pid)
{
    if (!claimSlot(ring, pid))
        return false;
    if (!addHolds(ring, 1)) {
        freeSlot(ring, pid);
        return false;
    }
    return true;
}

void releaseRing(Live& ring, int32_t pid)
{
    addHolds(ring, -1);
    freeSlot(ring, pid);
}

}  // namespace

int holdTake(Live& live)
{
    holdSweep(live);
    auto pid = static_cast<int32_t>(getpid());
    if (!holdRing(live, pid))
        return EAGAIN;
    for (int32_t i = 0; i < live.laneCount; ++i) {
        holdSweep(live.lanes[i]);
        if (!holdRing(live.lanes[i], pid)) {
            while (i-- > 0)
                releaseRing(live.lanes[i], pid);
            releaseRing(live, pid);
            return EAGAIN;
        }
    }
    settle(live);
    return 0;
}

void holdRelease(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    for (int32_t i = 0; i < live.laneCount; ++i)
        releaseRing(live.lanes[i], pid);
    releaseRing(live, pid);
}

int holdAlone(Live& live, int seconds)
{
    int64_t until = monotonicNs() + int64_t{seconds} * 1'000'000'000;
    for (;;) {
        if (RingState::decode(loadRing(live)).holds <= 1)
            return 0;
        if (monotonicNs() >= until)
            return EAGAIN;
        holdSweep(live);
        nap();
    }
}

void holdSweep(Live& live)
{
    int dead = 0;
    for (int i = 0; i < maxHolders; ++i) {
        int32_t pid = __atomic_load_n(holderSlot(live, i), __ATOMIC_ACQUIRE);
        if (pid != 0 && !alive(pid) &&
            __atomic_compare_exchange_n(holderSlot(live, i), &pid, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            ++dead;
    }
    if (dead != 0)
        addHolds(live, -dead);
    // A count with nobody in the table: the ring word was read before the
    // table, so a reader counted after it makes the swap fail.
    uint64_t word = loadRing(live);
    RingState s = RingState::decode(word);
    if (s.holds != 0 && !anyHolder(live)) {
        s.holds = 0;
        casRing(live, word, s.encode());
    }
}

}  // namespace kelvo
