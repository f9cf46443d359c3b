// The records as a table for SQL engines: one CSV row per selected record
// with its numbers, its names without padding, the flow report's depth, the
// return code of return-code events and the text of the others.
#include <string>

#include "trcrtos.h"
#include "trcxreports.h"

namespace {

void putName(trcxOut_t* o, const char* name)
{
    size_t length = std::strlen(name);
    while (length > 0 && name[length - 1] == ' ') {
        --length;
    }
    trcxPutChar(o, ',');
    trcxPutCsvText(o, name, length);
}

struct csvWriter {
    const trcxTrace_t* t;
    trcxOut_t* o;

    void record(trcxThread_t&, long i, int64_t, long depth)
    {
        if (!trcxSelected(t, i)) {
            return;
        }
        const trcRecord_t* r = t->index[i].record;
        const unsigned p = trcRecProduct(r), e = trcRecEvent(r), c = trcRecComponent(r), k = trcRecClass(r),
                       f = trcRecFunction(r);
        trcxPutUnsigned(o, static_cast<unsigned long>(i + 1));
        trcxPutChar(o, ',');
        trcxPutSigned(o, r->sec);
        trcxPutChar(o, ',');
        trcxPutSigned(o, r->nsec);
        trcxPutChar(o, ',');
        trcxPutUnsigned(o, r->pid);
        trcxPutChar(o, ',');
        trcxPutUnsigned(o, r->tid);
        trcxPutChar(o, ',');
        trcxPutSigned(o, r->node);
        trcxPutChar(o, ',');
        trcxPutUnsigned(o, r->cpid);
        for (unsigned id : {p, e, c, k, f, trcRecTracePoint(r)}) {
            trcxPutChar(o, ',');
            trcxPutUnsigned(o, id);
        }
        putName(o, trcNameProd[p]);
        putName(o, trcNameEvent[e]);
        putName(o, trcNameComp[p][c]);
        putName(o, trcNameClass[p][c][k]);
        putName(o, trcNameFnc[p][c][k][f]);
        trcxPutChar(o, ',');
        trcxPutSigned(o, depth);
        trcxPutChar(o, ',');
        if (trcIsRcEvent(e)) {
            trcxPutSigned(o, trcxReturnCode(r));
            trcxPutChar(o, ',');
        } else {
            trcxPutChar(o, ',');
            size_t length = 0;
            const char* text = trcxText(r, &length);
            trcxPutCsvText(o, text, length);
        }
        trcxPutChar(o, '\n');
    }
    void slice(trcxThread_t&, const trcxCall_t&, long, int64_t, trcxEnd_t, const trcxCall_t*) {}
    void instant(trcxThread_t&, long, int64_t, trcxInstant_t) {}
};

}  // namespace

void trcxWriteCsv(const trcxTrace_t* t, trcxOut_t* o)
{
    trcxPut(o, "record,sec,nsec,pid,tid,node,cpid,product,event,component,class,function,tracepoint,"
               "product_name,event_name,component_name,class_name,function_name,depth,rc,text\n");
    if (t->firstIndex >= t->end) {
        return;
    }
    csvWriter w{t, o};
    trcxCalls_t calls;
    trcxWalkCalls(t, &calls, w);
}
