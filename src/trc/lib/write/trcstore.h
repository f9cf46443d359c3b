// Storing one record into a live trace.
#ifndef KELVO_TRCSTORE_H
#define KELVO_TRCSTORE_H

#include "trclive.h"
#include "trcrecsource.h"

#include <cstdint>

namespace kelvo {

// The live trace that takes a record of these identifiers from this thread,
// or null when none does.
Live* traceFor(const RecordIds& ids, uint32_t thisPointer);

// Stores the record: 0 when stored, 1 when the trace did not take it, -1
// with errno.
int storeRecord(Live& live, const RecordSource& record);

// For a reader that holds `ring` and has put it in order: the losses that no
// writer has reported yet become a record of the facility at its end, so
// that readers see them although nothing was stored behind them.
void storeLossReport(Live& ring);

}  // namespace kelvo

#endif
