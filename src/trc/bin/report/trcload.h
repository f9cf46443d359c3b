// Loading the trace that a report reads: the live block of the facility or
// a private copy of a whole binary trace file.
#ifndef KELVO_TRCLOAD_H
#define KELVO_TRCLOAD_H

#include "kelvo/trcformat.h"

// Gives the header of the trace named by file ("-": the live trace) with
// its record area behind it, and in *areaSize the bytes of that area: the
// header's bufferSize for the live block, the bytes read less the header
// for a file. With forFormatting set (the callers that walk the records) a
// live trace into a file is read from that file, and a native one refused.
//
// The block is writable: the walk cuts off a record that runs past the
// area by writing into it. A file copy is never freed, and one zero byte
// follows its last byte, so that a text read from it always ends inside.
//
// Returns 0. Every failure is reported and ends the process with status 1;
// the trace semaphore, which is held while a file that a running trace
// writes is copied, is free again in every case. A file shorter than a
// header is refused as invalid (405); a file that shrinks while it is read
// is refused as unreadable (402); one that grows is read up to the size it
// had when loading began.
int readFile(trcHeader_t** header, const char* file, int forFormatting, long* areaSize);

#endif
