// The Trace Event Format: calls as complete slices ("X") and the other
// records as instants ("i") on their threads, written while the calls are
// rebuilt, so that memory stays the trace, its index and the stacks. Times
// are microseconds from the earliest time stamp, nanoseconds as fraction.
#include <string>
#include <unordered_set>

#include "trcrtos.h"
#include "trcxreports.h"

namespace {

struct jsonWriter {
    const trcxTrace_t* t;
    trcxOut_t* o;
    bool first = true;

    void begin()
    {
        if (first) {
            first = false;
        } else {
            trcxPut(o, ",\n");
        }
    }

    trcxNameCache nameCache;

    // {"name":"<function>" of a slice, or with the event in front of an
    // instant, escaped once for all the records that share it.
    void putName(const trcRecord_t* r, bool withEvent)
    {
        const uint64_t key = (withEvent ? 0x100u + trcRecEvent(r) : 0u) * (1ull << 32) + trcCallKey(r);
        const std::string& text = nameCache.get(key, [&](std::string& to) {
            trcxOut_t s{};
            trcxOutOpen(&s, nullptr, "");
            char name[1024];
            const int length = trcRecFncName(r, name, sizeof name);
            trcxPut(&s, "{\"name\":\"");
            if (withEvent) {
                const std::string& event = trcxEventName(trcRecEvent(r));
                trcxPutJsonText(&s, event.data(), event.size());
                trcxPutChar(&s, ' ');
            }
            trcxPutJsonText(&s, name, static_cast<size_t>(length));
            trcxPut(&s, "\"");
            to.assign(s.buffer, s.used);
            trcxOutDiscard(&s);
        });
        trcxPut(o, text.data(), text.size());
    }

    void putWhere(const trcxThread_t& th, int64_t time)
    {
        trcxPut(o, ",\"pid\":");
        trcxPutUnsigned(o, th.pid);
        trcxPut(o, ",\"tid\":");
        trcxPutUnsigned(o, th.tid);
        trcxPut(o, ",\"ts\":");
        trcxPutMicros(o, time);
    }

    void putOrigin(const trcRecord_t* r)
    {
        if (r->thisPointer != 0) {
            trcxPut(o, ",\"this\":\"");
            trcxPutHex(o, r->thisPointer);
            trcxPutChar(o, '"');
        }
        if (trcRecTracePoint(r) != 0) {
            trcxPut(o, ",\"trace point\":");
            trcxPutUnsigned(o, trcRecTracePoint(r));
        }
    }

    void record(trcxThread_t&, long, int64_t, long) {}

    void slice(trcxThread_t& th, const trcxCall_t& call, long close, int64_t end, trcxEnd_t how, const trcxCall_t*)
    {
        if (!trcxCallSelected(t, call, close)) {
            return;
        }
        th.shown = true;
        const trcRecord_t* opened = t->index[call.open].record;
        const trcRecord_t* closed = t->index[close].record;
        const bool hasRc = how == trcxExited && trcIsRcEvent(trcRecEvent(closed));
        const int32_t rc = hasRc ? trcxReturnCode(closed) : 0;
        begin();
        putName(opened, false);
        trcxPutStr(o, rc != 0 ? ",\"cat\":\"call,error\",\"ph\":\"X\"" : ",\"cat\":\"call\",\"ph\":\"X\"");
        putWhere(th, call.start);
        trcxPut(o, ",\"dur\":");
        trcxPutMicros(o, end - call.start);
        trcxPutStr(o, call.entryLost ? ",\"args\":{\"first record\":" : ",\"args\":{\"entry\":");
        trcxPutUnsigned(o, static_cast<unsigned long>(call.open + 1));
        trcxPutStr(o, how == trcxExited ? ",\"exit\":" : how == trcxExitLost ? ",\"ended by\":" : ",\"last record\":");
        trcxPutUnsigned(o, static_cast<unsigned long>(close + 1));
        if (hasRc) {
            trcxPut(o, ",\"rc\":");
            trcxPutSigned(o, rc);
        }
        putOrigin(opened);
        size_t length = 0;
        const char* text = trcxText(opened, &length);
        if (length > 0 && !trcIsRcEvent(trcRecEvent(opened))) {
            trcxPut(o, ",\"text\":\"");
            trcxPutJsonText(o, text, length);
            trcxPutChar(o, '"');
        }
        if (call.entryLost) {
            trcxPut(o, ",\"entry lost\":\"the call shows from its first record seen\"");
        }
        if (how == trcxExitLost) {
            trcxPut(o, ",\"exit lost\":\"a later record of the thread is outside the call\"");
        } else if (how == trcxStillOpen) {
            trcxPut(o, ",\"still open\":\"no exit up to the thread's last record\"");
        }
        trcxPut(o, "}}");
    }

    void instant(trcxThread_t& th, long i, int64_t time, trcxInstant_t kind)
    {
        th.shown = true;
        const trcRecord_t* r = t->index[i].record;
        const unsigned event = trcRecEvent(r);
        const bool hasRc = trcIsRcEvent(event);
        const int32_t rc = hasRc ? trcxReturnCode(r) : 0;
        begin();
        putName(r, true);
        trcxPutStr(o, rc != 0 || trcxIsErrorEvent(event) ? ",\"cat\":\"error\",\"ph\":\"i\",\"s\":\"t\""
                                                         : ",\"cat\":\"event\",\"ph\":\"i\",\"s\":\"t\"");
        putWhere(th, time);
        trcxPut(o, ",\"args\":{\"record\":");
        trcxPutUnsigned(o, static_cast<unsigned long>(i + 1));
        if (hasRc) {
            trcxPut(o, ",\"rc\":");
            trcxPutSigned(o, rc);
        } else {
            size_t length = 0;
            const char* text = trcxText(r, &length);
            trcxPut(o, ",\"text\":\"");
            trcxPutJsonText(o, text, length);
            trcxPutChar(o, '"');
        }
        putOrigin(r);
        if (kind == trcxNoEntry) {
            trcxPut(o, ",\"entry lost\":\"an exit whose entry is not in the trace\"");
        } else if (kind == trcxTooDeep) {
            trcxPut(o, ",\"too deep\":\"an entry deeper than the 1024 calls that are followed\"");
        }
        trcxPut(o, "}}");
    }

    void names(const trcxCalls_t& calls)
    {
        std::unordered_set<uint32_t> named;
        for (const trcxThread_t& th : calls.threads) {
            if (!th.shown) {
                continue;
            }
            if (named.insert(th.pid).second) {
                begin();
                trcxPut(o, "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":");
                trcxPutUnsigned(o, th.pid);
                trcxPut(o, ",\"tid\":0,\"args\":{\"name\":\"pid ");
                trcxPutUnsigned(o, th.pid);
                if (th.node != -1) {
                    trcxPut(o, " node ");
                    trcxPutSigned(o, th.node);
                }
                trcxPut(o, "\"}}");
            }
            begin();
            trcxPut(o, "{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":");
            trcxPutUnsigned(o, th.pid);
            trcxPut(o, ",\"tid\":");
            trcxPutUnsigned(o, th.tid);
            trcxPut(o, ",\"args\":{\"name\":\"tid ");
            trcxPutUnsigned(o, th.tid);
            trcxPut(o, "\"}}");
        }
    }
};

}  // namespace

void trcxWriteJson(const trcxTrace_t* t, trcxOut_t* o)
{
    trcxPut(o, "{\"traceEvents\":[\n");
    jsonWriter w{t, o, true, {}};
    trcxCalls_t calls;
    if (t->firstIndex < t->end) {
        trcxWalkCalls(t, &calls, w);
    }
    w.names(calls);
    trcxPut(o, "\n],\n\"displayTimeUnit\":\"ns\",\n\"otherData\":{\"source\":\"");
    trcxPutJsonText(o, t->source, std::strlen(t->source));
    trcxPut(o, "\",\"records\":");
    trcxPutUnsigned(o, static_cast<unsigned long>(t->count));
    trcxPut(o, ",\"time origin ns\":");
    trcxPutSigned(o, t->origin);
    trcxPut(o, ",\"records without time stamp\":");
    trcxPutUnsigned(o, static_cast<unsigned long>(t->unstamped));
    trcxPut(o, "}}\n");
}

const std::string& trcxEventName(unsigned event)
{
    // The dictionary is read-only once a report runs: trimmed once.
    static std::string names[256];
    static bool ready = false;
    if (!ready) {
        for (unsigned e = 0; e < 256; ++e) {
            names[e] = trcNameEvent[e];
            while (!names[e].empty() && names[e].back() == ' ') {
                names[e].pop_back();
            }
        }
        ready = true;
    }
    return names[event & 0xFF];
}
