// Holding the trace for reading. Every holder sees the area complete and
// unchanging; several readers may hold it at once.
//
// Where writers store into the area itself, they place no record while any
// reader holds it (they drop and count it), and the first reader puts the
// area in order. Where they store into lanes (trclanes.h), they go on while
// the area is read: a reader that finds nobody else reading the area holds
// the lanes for a moment and merges them into it, and then lets them go;
// while the area is read, it stays as the last merge left it, and a dump
// made meanwhile merges the lanes into its own copy. Holders are
// kept by process id in the control page, so that the hold of a reader that
// died is given back.
#ifndef KELVO_TRCHOLD_H
#define KELVO_TRCHOLD_H

#include "trclive.h"

namespace kelvo {

// How long a reader waits for writers to finish the places they took, and
// for another reader that is putting the area in order.
constexpr int64_t settleWaitNs = 50'000'000;
constexpr int64_t settlerWaitNs = 10'000'000'000;

// Takes a hold and puts the area in order. 0, or EAGAIN when the table of
// holders is full. Never waits longer than the bounds above. When `aside`
// (an area of the buffer's size) is given and another reader reads the area
// as an earlier merge left it, the lanes are merged into `aside` instead,
// and `*asideFilled` says so.
int holdTake(Live& live, uint8_t* aside = nullptr, bool* asideFilled = nullptr);
void holdRelease(Live& live);

// The settler: one process at a time puts the area or the lanes in order,
// merges them, or clears them. Waits at most settlerWaitNs for another;
// false when it is still at work then.
bool settlerTake(Live& live);
void settlerGive(Live& live);

// Holds every lane for a moment, so that no writer takes a place in one:
// false, with none held, when one cannot be held.
bool holdLanes(Live& live);
void releaseLanes(Live& live);

// Waits until the caller's hold is the only one: 0, or EAGAIN after
// `seconds`.
int holdAlone(Live& live, int seconds);

// Gives back the holds of processes that no longer exist, and a hold count
// that no holder stands behind (a stray write). Cheap enough for writers to
// call now and then.
void holdSweep(Live& live);

}  // namespace kelvo

#endif
