// The output of the format and flow reports: records are rendered straight
// into one large buffer, which goes to the stream in big writes. Each record
// is given a fixed room of its own, so a text is cut at the same length
// whatever else the buffer holds.
#ifndef KELVO_TRCFOUT_H
#define KELVO_TRCFOUT_H

#include <cstddef>
#include <cstdio>

struct trcFOut_t {
    char* buffer;
    std::size_t used;
    std::size_t capacity;
    std::size_t room;  // bytes every record may take
    FILE* out;
    const char* outName;  // for message 403
};

// Allocates a buffer that holds several records of room bytes; message 409
// and the end of the process (through trcFExit) if there is no memory.
void trcFOutOpen(trcFOut_t* o, std::size_t room, FILE* out, const char* outName);
// Where the next record goes: room bytes are free there.
inline char* trcFOutNext(trcFOut_t* o) { return o->buffer + o->used; }
// Takes the length bytes written at trcFOutNext; writes the buffer out when
// the room for another record is no longer free.
void trcFOutCommit(trcFOut_t* o, std::size_t length);
// Writes out what is left and frees the buffer. A write that fails is
// message 403 with outName and ends the process.
void trcFOutClose(trcFOut_t* o);

#endif
