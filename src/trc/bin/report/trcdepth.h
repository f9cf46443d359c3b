// The call depth of the flow report, rebuilt record by record with a stack
// of function identities that tolerates lost entries and exits. The flow
// report and the programs beside the tool (export, statistics) all step
// the records of a thread through trcCallStep, so that they agree on every
// depth and on which calls a record opens and closes.
#ifndef KELVO_TRCDEPTH_H
#define KELVO_TRCDEPTH_H

#include <cstdint>

#include "kelvo/trcformat.h"

// What an event does to the stack of its thread.
enum trcCallClass_t : uint8_t {
    trcCallInside,   // errors, printf and the rest: inside its function's call
    trcCallEntry,    // opens a call
    trcCallExit,     // closes its function's call (error returns too)
    trcCallNeutral,  // new and delete: at the current depth, no search
};

// The class goes by the last decimal digit from 20 on; the error returns 10
// to 14 are exits, and the neutral ones end at 61.
constexpr trcCallClass_t trcCallClassOfEvent(unsigned e)
{
    if (e >= 20 && e % 10 == 2) {
        return trcCallEntry;
    }
    if ((e >= 10 && e <= 14) || (e >= 20 && e % 10 == 3)) {
        return trcCallExit;
    }
    if (e >= 20 && e <= 61 && e % 10 <= 1) {
        return trcCallNeutral;
    }
    return trcCallInside;
}

struct trcCallClassTable_t {
    trcCallClass_t of[256];
    constexpr trcCallClassTable_t() : of{}
    {
        for (unsigned e = 0; e < 256; ++e) {
            of[e] = trcCallClassOfEvent(e);
        }
    }
};
inline constexpr trcCallClassTable_t trcCallClass;

// Product, component, class and function: all events of a function share it.
inline uint32_t trcCallKey(const trcRecord_t* r) { return (r->ident1 & 0xFF000000u) | (r->ident2 >> 8); }

// Keys the stack holds at most; deeper entries count on without a key.
constexpr int trcCallStackMax = 1024;

// The call stack of one thread. keys has room for trcCallStackMax keys, or
// for top + 2 at least before each step when the owner grows it on demand.
// running goes on counting when the stack is full, so it is one more than
// top only while no key was refused.
struct trcCallStack_t {
    uint32_t* keys;
    int top;  // -1: empty
    long running;
};

// What one step did, for the callers that follow calls and not only depths.
// The calls at positions above the stack's new top, up to oldTop, have
// ended at this record; a key pushed by it stands at the new top.
struct trcCallMove_t {
    int oldTop;
    bool pushed;  // the record opened a call whose key is on the stack
};

inline int trcCallFind(const trcCallStack_t* s, uint32_t key)
{
    for (int p = s->top; p >= 0; --p) {
        if (s->keys[p] == key) {
            return p;
        }
    }
    return -1;
}

inline long trcCallEnter(trcCallStack_t* s, uint32_t key, trcCallMove_t* move)
{
    ++s->running;
    if (s->top + 1 < trcCallStackMax) {
        s->keys[++s->top] = key;
        move->pushed = true;
    }
    return s->running;
}

// The depth of record r on its thread's stack, which it changes as its
// event's class says:
//  - entry: one level deeper, key pushed (also when already on the stack);
//  - exit: the depth of the topmost call of its function, which ends with
//    all calls above it (their exits were lost); not found: the current
//    depth, nothing changes;
//  - inside: the depth of the topmost call of its function, whose calls
//    above it end; not found: as an entry (the call was entered unseen);
//  - neutral: the current depth.
inline long trcCallStep(trcCallStack_t* s, const trcRecord_t* r, trcCallMove_t* move)
{
    const uint32_t key = trcCallKey(r);
    move->oldTop = s->top;
    move->pushed = false;
    switch (trcCallClass.of[trcRecEvent(r)]) {
    case trcCallEntry:
        return trcCallEnter(s, key, move);
    case trcCallExit: {
        const int p = trcCallFind(s, key);
        if (p < 0) {
            return s->running;
        }
        const long d = s->running - (s->top - p);
        s->running = d - 1;
        s->top = p - 1;
        return d;
    }
    case trcCallInside: {
        const int p = trcCallFind(s, key);
        if (p < 0) {
            return trcCallEnter(s, key, move);
        }
        const long d = s->running - (s->top - p);
        s->running = d;
        s->top = p;
        return d;
    }
    case trcCallNeutral:
        break;
    }
    return s->running;
}

#endif
