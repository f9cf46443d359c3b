// The format report: the full text of every selected record, in time order
// or reversed, each under its own record number, and the count at the end.
#include <cstdio>

#include "trcf.h"
#include "trcmsgid.h"
#include "trcfout.h"
#include "trcmask.h"
#include "trcmsg.h"
#include "trcrtos.h"

namespace {
// The text of one record may take this much; a longer one is cut.
constexpr int recordRoom = 524288;

bool selected(const trcRecord_t* r, const unsigned char* mask, int pid)
{
    return trcMaskSelectsRecord(mask, r) && (pid == -1 || static_cast<int>(r->pid) == pid);
}

}  // namespace

void doFmt(flowIndex_t* index, int pid, unsigned char (*mask)[32], int step, long firstIndex, long end, FILE* out,
           const char* outName, int join)
{
    trcFOut_t o;
    trcFOutOpen(&o, recordRoom, out, outName);
    const unsigned char* maps = mask[0];
    long written = 0;
    auto visit = [&](long i) {
        const trcRecord_t* r = index[i].record;
        if (!selected(r, maps, pid)) {
            return;
        }
        const int length = trcRecToStr(r, trcFOutNext(&o), recordRoom, static_cast<unsigned long>(i) + 1, join);
        trcFOutCommit(&o, static_cast<size_t>(length));
        ++written;
    };
    if (step == -1) {
        for (long i = end - 1; i >= firstIndex; --i) {
            visit(i);
        }
    } else {
        for (long i = firstIndex; i < end; ++i) {
            visit(i);
        }
    }
    trcFOutClose(&o);
    std::printf("%s%ld\n", trcMsgGet(msgLabelFormatted), written);
}
