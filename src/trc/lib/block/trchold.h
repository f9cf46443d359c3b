// Holding the trace for reading. While any reader holds it, writers place
// no record (they drop and count it); the first reader puts the area in
// order, or, when writers store into lanes, holds the lanes too and merges
// them into the area (trclanes.h), and then every holder sees it complete
// and unchanging. Several readers may hold it at once. Holders are kept by process id in the
// control page, so that the hold of a reader that died is given back.
#ifndef KELVO_TRCHOLD_H
#define KELVO_TRCHOLD_H

#include "trclive.h"

namespace kelvo {

// How long a reader waits for writers to finish the places they took, and
// for another reader that is putting the area in order.
constexpr int64_t settleWaitNs = 50'000'000;
constexpr int64_t settlerWaitNs = 10'000'000'000;

// Takes a hold and puts the area in order. 0, or EAGAIN when the table of
// holders is full. Never waits longer than the bounds above.
int holdTake(Live& live);
void holdRelease(Live& live);

// Waits until the caller's hold is the only one: 0, or EAGAIN after
// `seconds`.
int holdAlone(Live& live, int seconds);

// Gives back the holds of processes that no longer exist, and a hold count
// that no holder stands behind (a stray write). Cheap enough for writers to
// call now and then.
void holdSweep(Live& live);

}  // namespace kelvo

#endif
