// Placing records in the record area. Every function here runs under the
// trace semaphore.
#ifndef KELVO_TRCAREA_H
#define KELVO_TRCAREA_H

#include "trclive.h"

namespace kelvo {

// Empties the area: start marker, then the end mark.
void areaReset(Live& live);

// Finds the end mark and the oldest intact record of the last lap again
// from the area itself, after a holder of the semaphore died.
void areaRecover(Live& live);

// Makes room at the end mark for a record that takes `aligned` bytes, and
// returns its offset; -1 when the trace keeps its initial records and the
// last segment is full. The caller writes the record's bytes behind its
// length word, then calls areaPublish.
int32_t areaReserve(Live& live, int32_t aligned, bool keepInitial);

// Links the record at `offset` into the chain.
void areaPublish(Live& live, int32_t offset, int32_t length, int32_t aligned);

// Largest length of a record that a segment can hold.
int32_t areaLargestRecord(const Live& live);

#ifdef KELVO_AREA_STORE_HOOK
// Tests only: called before every word that placement stores, so that a
// test can stop a writer between any two stores.
void areaStoreHook();
#endif

} // namespace kelvo

#endif
