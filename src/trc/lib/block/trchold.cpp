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

// A table of process ids in the control page: the holders, or the readers.
using PidTable = int32_t (Control::*)[maxHolders];

bool claimIn(Live& live, PidTable table, int32_t pid)
{
    for (int32_t& slot : live.control->*table) {
        int32_t expected = 0;
        if (__atomic_compare_exchange_n(&slot, &expected, pid, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return true;
    }
    return false;
}

void freeIn(Live& live, PidTable table, int32_t pid)
{
    for (int32_t& slot : live.control->*table) {
        int32_t expected = pid;
        if (__atomic_compare_exchange_n(&slot, &expected, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return;
    }
}

bool claimSlot(Live& live, int32_t pid) { return claimIn(live, &Control::holders, pid); }
void freeSlot(Live& live, int32_t pid) { freeIn(live, &Control::holders, pid); }

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

// True when a process that is still alive reads the area as the last merge
// left it; the entries of dead ones are given back on the way.
bool anyReader(Live& live)
{
    bool found = false;
    for (int32_t& slot : live.control->readers) {
        int32_t pid = __atomic_load_n(&slot, __ATOMIC_ACQUIRE);
        if (pid == 0)
            continue;
        if (alive(pid))
            found = true;
        else
            __atomic_compare_exchange_n(&slot, &pid, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
    }
    return found;
}

// Merges the lanes into the area, unless another reader still reads the
// area as it is: then into `aside` if there is one (true), or not at all. A
// reader alone in the hold count merges whatever the table of readers says
// (a stray write may fill it), and empties that table.
bool mergeUnlessRead(Live& live, uint8_t* aside)
{
    bool read = false;
    if (RingState::decode(loadRing(live)).holds > 1) {
        read = anyReader(live);
    } else {
        for (int32_t& slot : live.control->readers)
            __atomic_store_n(&slot, 0, __ATOMIC_RELEASE);
    }
    if ((read && aside == nullptr) || !holdLanes(live))
        return false;
    if (read)
        lanesGatherAside(live, aside, settleWaitNs);
    else
        lanesGather(live, settleWaitNs);
    releaseLanes(live);
    return read;
}

// Puts the area in order unless the ring has not moved since the last
// reader did, or merges the lanes into it (or into `aside`, as
// mergeUnlessRead); one reader at a time does it, the others wait for it.
bool settle(Live& live, uint8_t* aside)
{
    if (!settlerTake(live))
        return false;  // go on over what is there; the tool reads it safely
    auto pid = static_cast<int32_t>(getpid());
    bool asideFilled = false;
    if (live.laneCount != 0) {
        asideFilled = mergeUnlessRead(live, aside);
        claimIn(live, &Control::readers, pid);
    } else if (__atomic_load_n(&live.control->settled, __ATOMIC_ACQUIRE) != (loadRing(live) & ~notAreaBits)) {
        ringRestoreHeader(live);
        ringSettle(live, settleWaitNs);
        __atomic_store_n(&live.control->settled, loadRing(live) & ~notAreaBits, __ATOMIC_RELEASE);
    }
    settlerGive(live);
    return asideFilled;
}

}  // namespace

bool settlerTake(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    int32_t* settler = &live.control->settler;
    int64_t until = monotonicNs() + settlerWaitNs;
    for (;;) {
        int32_t owner = 0;
        if (__atomic_compare_exchange_n(settler, &owner, pid, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED))
            return true;
        if (owner != pid && !alive(owner))
            __atomic_compare_exchange_n(settler, &owner, 0, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
        else if (monotonicNs() >= until)
            return false;
        else
            nap();
    }
}

void settlerGive(Live& live) { __atomic_store_n(&live.control->settler, 0, __ATOMIC_RELEASE); }

bool holdLanes(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    for (int32_t i = 0; i < live.laneCount; ++i) {
        holdSweep(live.lanes[i]);
        if (!holdRing(live.lanes[i], pid)) {
            while (i-- > 0)
                releaseRing(live.lanes[i], pid);
            return false;
        }
    }
    return true;
}

void releaseLanes(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    for (int32_t i = 0; i < live.laneCount; ++i)
        releaseRing(live.lanes[i], pid);
}

int holdTake(Live& live, uint8_t* aside, bool* asideFilled)
{
    holdSweep(live);
    if (!holdRing(live, static_cast<int32_t>(getpid())))
        return EAGAIN;
    bool filled = settle(live, aside);
    if (asideFilled != nullptr)
        *asideFilled = filled;
    return 0;
}

void holdRelease(Live& live)
{
    auto pid = static_cast<int32_t>(getpid());
    if (live.laneCount != 0)
        freeIn(live, &Control::readers, pid);
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
