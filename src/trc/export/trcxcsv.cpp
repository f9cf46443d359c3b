// The records as a table for SQL engines: one CSV row per selected record
// with its numbers, its names without padding, the flow report's depth, the
// return code of return-code events and the text of the others.
#include <string>

#include "trcrtos.h"
#include "trcxreports.h"

namespace {

// A name as a CSV field behind a comma, without its padding blanks.
void addName(std::string& to, const char* name)
{
    size_t length = std::strlen(name);
    while (length > 0 && name[length - 1] == ' ') {
        --length;
    }
    to += ",\"";
    for (size_t i = 0; i < length; ++i) {
        to += name[i];
        if (name[i] == '"') {
            to += '"';
        }
    }
    to += '"';
}

// The five name fields of a record; the dictionary's names are made valid
// UTF-8 once, through the CSV text writer.
std::string namesOf(const trcRecord_t* r)
{
    const unsigned p = trcRecProduct(r), e = trcRecEvent(r), c = trcRecComponent(r), k = trcRecClass(r),
                   f = trcRecFunction(r);
    std::string raw;
    addName(raw, trcNameProd[p]);
    addName(raw, trcNameEvent[e]);
    addName(raw, trcNameComp[p][c]);
    addName(raw, trcNameClass[p][c][k]);
    addName(raw, trcNameFnc[p][c][k][f]);
    return raw;
}

// Bytes that are not well-formed UTF-8, and zero bytes, as U+FFFD.
std::string validUtf8(const std::string& text)
{
    std::string valid;
    const auto* t = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0; i < text.size();) {
        const size_t n = t[i] == 0 ? 0 : trcxUtf8Length(t + i, text.size() - i);
        if (n == 0) {
            valid += "\xEF\xBF\xBD";
            ++i;
        } else {
            valid.append(text, i, n);
            i += n;
        }
    }
    return valid;
}

struct csvWriter {
    const trcxTrace_t* t;
    trcxOut_t* o;
    trcxNameCache cache;

    void record(trcxThread_t&, long i, int64_t, long depth)
    {
        if (!trcxSelected(t, i)) {
            return;
        }
        const trcRecord_t* r = t->index[i].record;
        const unsigned e = trcRecEvent(r);
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
        // The six numbers and the five names repeat from record to record.
        const uint64_t key = (static_cast<uint64_t>(r->ident1 >> 16) << 32) | r->ident2;
        const std::string& ids = cache.get(key, [r](std::string& text) {
            for (unsigned id : {trcRecProduct(r), trcRecEvent(r), trcRecComponent(r), trcRecClass(r), trcRecFunction(r),
                                trcRecTracePoint(r)}) {
                text += ',' + std::to_string(id);
            }
            text += validUtf8(namesOf(r));
        });
        trcxPut(o, ids.data(), ids.size());
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
    csvWriter w{t, o, {}};
    trcxCalls_t calls;
    trcxWalkCalls(t, &calls, w);
}
