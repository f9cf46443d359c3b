// Buffered output of the format and flow reports.
#include "trcfout.h"
#include "trcmsgid.h"

#include <cstdlib>

#include "trcerror.h"
#include "trcf.h"
#include "trcmsg.h"

namespace {
// Records rendered before a write: large writes bypass the stream's own
// buffer and keep the calls few.
constexpr std::size_t recordsPerWrite = 4;

void writeOut(trcFOut_t* o)
{
    if (o->used == 0) {
        return;
    }
    if (std::fwrite(o->buffer, 1, o->used, o->out) != o->used) {
        trcError(trcFExit, trcMsgGet(msgCannotWrite), o->outName);
    }
    o->used = 0;
}

}  // namespace

void trcFOutOpen(trcFOut_t* o, std::size_t room, FILE* out, const char* outName)
{
    o->capacity = room * recordsPerWrite;
    o->buffer = static_cast<char*>(std::malloc(o->capacity));
    if (o->buffer == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoTextMemory));
    }
    o->used = 0;
    o->room = room;
    o->out = out;
    o->outName = outName;
}

void trcFOutCommit(trcFOut_t* o, std::size_t length)
{
    o->used += length;
    if (o->capacity - o->used < o->room) {
        writeOut(o);
    }
}

void trcFOutClose(trcFOut_t* o)
{
    writeOut(o);
    std::free(o->buffer);
    o->buffer = nullptr;
}
