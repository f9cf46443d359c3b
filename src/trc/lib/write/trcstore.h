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

}  // namespace kelvo

#endif
