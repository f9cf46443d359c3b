// What kelvo-export and kelvo-stats share: the command line of fmt with
// their own words added, the trace loaded, walked and indexed by the tool's
// own code, the selection of records, the time of each record, and the
// calls that the flow report's depth rules rebuild on every thread.
#ifndef KELVO_TRCXTRACE_H
#define KELVO_TRCXTRACE_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "kelvo/trcformat.h"
#include "trcdepth.h"
#include "trcf.h"
#include "trcmask.h"

// A trace ready to be read: the loaded block, its index and the range.
struct trcxTrace_t {
    fOptions_t options;
    const char* source = nullptr;  // "-": the live trace
    bool live = false;
    trcHeader_t* header = nullptr;
    long areaSize = 0;
    flowIndex_t* index = nullptr;
    long count = 0;       // entries of the index
    long firstIndex = 0;  // the range: entries firstIndex to end - 1
    long end = 0;
    // Time of each record, in ns from origin (see trcxTimes).
    int64_t origin = 0;      // earliest time stamp, ns since the epoch
    int64_t firstStamp = 0;  // first time stamp in record order, from origin
    long unstamped = 0;      // records with sec 0
    bool noStamps = false;   // not one record has a time stamp
    bool quiet = false;      // no warnings on standard error
};

// The usage text of the program (set before trcxParse), and the printer
// that trcxParse gives the shared parser: message errorMessage (unless -1)
// with "%s\n\n", then the usage text, on standard output; status 1.
extern const char* trcxUsageText;
[[noreturn]] void trcxUsage(int usageMessage, int errorMessage);

// Lower-cases the option words (those that begin with "-") as kelvo does,
// and sets the program's name.
void trcxCommandLine(int argc, char** argv);

// Parses the words behind argv[0]: -m, -p and -x as fmt reads them, the
// program's own options through extra, files source (and destination when
// files is 2). No source means "-".
void trcxParse(int argc, char** argv, int files, int (*extra)(int, char**, int, void*), void* context, trcxTrace_t* t);

// Loads the source as fmt does (every failure is fmt's message and ends
// the process).
void trcxLoad(trcxTrace_t* t);

// Builds the dictionary: message 407 and the end of the process on failure.
void trcxDictionary(trcxTrace_t* t);

// Takes the semaphore for the live trace, walks the records (message 421 goes to standard error here, since
// standard output may carry the report), fills the index and settles the
// range as fmt does, and finds the time stamps. Warns on standard error
// when records have no time stamp. Returns false when the range is empty.
bool trcxPrepare(trcxTrace_t* t);

// Releases the semaphore and frees the index.
void trcxFinish(trcxTrace_t* t);

// Whether entry i is selected: in the range, by the mask and -p.
inline bool trcxSelected(const trcxTrace_t* t, long i)
{
    const trcRecord_t* r = t->index[i].record;
    return i >= t->firstIndex && i < t->end && trcMaskSelectsRecord(t->options.mask, r) &&
           (t->options.pid == -1 || static_cast<int32_t>(r->pid) == static_cast<int32_t>(t->options.pid));
}

// The return code of a return-code record: the first four bytes of data,
// which every record of the index has readable.
inline int32_t trcxReturnCode(const trcRecord_t* r)
{
    int32_t rc;
    std::memcpy(&rc, reinterpret_cast<const char*>(r) + TRC_RECORD_FIXED, sizeof rc);
    return rc;
}

// The bytes of a text record's variable part, and how many there are.
inline const char* trcxText(const trcRecord_t* r, std::size_t* length)
{
    const long n = static_cast<long>(r->length) - TRC_RECORD_FIXED - 4;
    *length = n > 0 ? static_cast<std::size_t>(n) : 0;
    return reinterpret_cast<const char*>(r) + TRC_RECORD_FIXED;
}

// The error events: those that report an error, not a return.
inline bool trcxIsErrorEvent(unsigned event) { return (event >= 1 && event <= 5) || event == 7; }

// ---- Calls ----------------------------------------------------------------

// A call on a thread's stack.
struct trcxCall_t {
    long open;          // entry of the index that opened it
    int64_t start;      // its time
    int64_t childTime;  // time of the calls that ended inside it
    long errors;        // error events selected inside it
    bool entryLost;     // opened by a record inside it: its entry was lost
};

// A thread, by pid and tid, in the order of its first record.
struct trcxThread_t {
    uint32_t pid;
    uint32_t tid;
    int32_t node;   // of its first record that has one, -1 if none
    long last;      // entry of its latest record so far
    int64_t clock;  // time of that record: times never go back on a thread
    bool shown;     // something of it has been written
    trcCallStack_t stack;
    int room;  // keys and calls the two arrays hold
    uint32_t* keys;
    trcxCall_t* calls;
};

// How a call ended.
enum trcxEnd_t {
    trcxExited,     // by its exit record
    trcxExitLost,   // a later record showed that it had left
    trcxStillOpen,  // at the thread's last record
};

// What a record that is no part of a slice is.
enum trcxInstant_t {
    trcxPlain,    // an event at its time (text, error, new, delete, ...)
    trcxNoEntry,  // an exit whose entry was lost
    trcxTooDeep,  // an entry deeper than the stack follows calls
};

// The calls of a trace, found in one pass over the index in record order.
// The visitor has these members:
//   void record(trcxThread_t& th, long i, int64_t time, long depth)
//       every record of a thread that -p leaves, in record order;
//   void slice(trcxThread_t& th, const trcxCall_t& call, long close,
//              int64_t end, trcxEnd_t how, const trcxCall_t* parent)
//       every call when it ends, inner calls first; close is the entry
//       of the record that ended it;
//   void instant(trcxThread_t& th, long i, int64_t time, trcxInstant_t kind)
//       every selected record that no call takes.
// Threads are those of -p, all of them; memory is the threads and their
// stacks, which grow to at most trcCallStackMax calls.
struct trcxCalls_t {
    std::vector<trcxThread_t> threads;
    std::unordered_map<uint64_t, uint32_t> byId;
    ~trcxCalls_t();
};

// The thread of record r, created when new; null if -p leaves it out.
trcxThread_t* trcxThreadOf(trcxCalls_t* c, const trcxTrace_t* t, const trcRecord_t* r, uint32_t* cache);
// Makes room for one more call on th's stack.
void trcxGrow(trcxThread_t* th);

template <typename Visitor>
void trcxWalkCalls(const trcxTrace_t* t, trcxCalls_t* c, Visitor& v)
{
    int64_t lastStamp = t->firstStamp;
    uint32_t cache = UINT32_MAX;
    for (long i = 0; i < t->count; ++i) {
        const trcRecord_t* r = t->index[i].record;
        trcxThread_t* th = trcxThreadOf(c, t, r, &cache);
        int64_t time;
        if (t->noStamps) {
            time = (i + 1) * 1000LL;
        } else if (r->sec != 0) {
            time = static_cast<int64_t>(r->sec) * 1000000000LL + r->nsec - t->origin;
            lastStamp = time;
        } else {
            time = lastStamp;
        }
        if (th == nullptr) {
            continue;
        }
        if (time < th->clock) {
            time = th->clock;
        }
        th->clock = time;
        th->last = i;
        if (th->node == -1) {
            th->node = r->node;
        }
        if (th->stack.top + 2 > th->room) {
            trcxGrow(th);
        }
        trcCallMove_t move;
        const unsigned event = trcRecEvent(r);
        const trcCallClass_t kind = trcCallClass.of[event];
        const long depth = trcCallStep(&th->stack, r, &move);
        const int top = th->stack.top;
        for (int p = move.oldTop; p > top; --p) {
            const bool byExit = kind == trcCallExit && p == top + 1;
            trcxCall_t& call = th->calls[p];
            trcxCall_t* parent = p > 0 ? &th->calls[p - 1] : nullptr;
            if (parent != nullptr) {
                parent->childTime += time - call.start;
            }
            v.slice(*th, call, i, time, byExit ? trcxExited : trcxExitLost, parent);
        }
        if (move.pushed) {
            th->calls[top] = trcxCall_t{i, time, 0, 0, kind != trcCallEntry};
        }
        v.record(*th, i, time, depth);
        const bool selected = trcxSelected(t, i);
        if (!selected) {
            continue;
        }
        if (kind == trcCallEntry) {
            if (!move.pushed) {
                v.instant(*th, i, time, trcxTooDeep);
            }
        } else if (kind == trcCallExit) {
            if (top >= move.oldTop) {
                v.instant(*th, i, time, trcxNoEntry);
            }
        } else {
            if (trcxIsErrorEvent(event) && top >= 0) {
                ++th->calls[top].errors;
            }
            v.instant(*th, i, time, trcxPlain);
        }
    }
    for (trcxThread_t& th : c->threads) {
        for (int p = th.stack.top; p >= 0; --p) {
            trcxCall_t& call = th.calls[p];
            trcxCall_t* parent = p > 0 ? &th.calls[p - 1] : nullptr;
            if (parent != nullptr) {
                parent->childTime += th.clock - call.start;
            }
            v.slice(th, call, th.last, th.clock, trcxStillOpen, parent);
        }
        th.stack.top = -1;
    }
}

// Whether a call is written: the record that opened or that ended it is
// selected.
inline bool trcxCallSelected(const trcxTrace_t* t, const trcxCall_t& call, long close)
{
    return trcxSelected(t, call.open) || trcxSelected(t, close);
}

#endif
