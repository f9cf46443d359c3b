// Putting the record area in order for readers.
#ifndef KELVO_TRCSETTLE_H
#define KELVO_TRCSETTLE_H

#include "trclive.h"

#include <cstdint>

namespace kelvo {

// With the trace held, so that no writer takes a new place: waits a while
// for the writers that took one to commit it, and then makes everything a
// reader walks well-formed, whatever lies there: a slot whose writer did not
// finish becomes a record that says so, bytes that fit no record of their
// lap become a filler or a record that says so, the end mark and the start
// marker are stored again. `waitNs` bounds the waiting in all.
void ringSettle(Live& live, int64_t waitNs);

// Puts back the header's words that the block's own layout fixes: the
// buffer size and the destination and retention bits of the flags.
void ringRestoreHeader(Live& live);

}  // namespace kelvo

#endif
