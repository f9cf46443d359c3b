// The native destination: the kernel's trace buffer or the system log.
#ifndef KELVO_TRCNATIVE_H
#define KELVO_TRCNATIVE_H

#include "trcrecsource.h"

namespace kelvo {

// Writes the record as one line of text.
void nativeEmit(const RecordSource& record, bool rcEvent);

}  // namespace kelvo

#endif
