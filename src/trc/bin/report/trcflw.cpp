// The flow report: one short line per record of a thread, indented by the
// call depth that a stack of function identities rebuilds from the entries,
// exits and other events, whatever records were lost.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "trcdepth.h"
#include "trcmsgid.h"
#include "trcerror.h"
#include "trcf.h"
#include "trcfout.h"
#include "trcmask.h"
#include "trcmsg.h"
#include "trcprint.h"
#include "trcrtos.h"

namespace {
constexpr int lineRoom = 131072;
// The indent stops short of the end of the line's room so that the
// function text still fits behind it at any depth.
constexpr int fncReserve = 4096;

// Threads by (pid, tid) for the one pass over the index: a small open
// hash table, since a report has at most a few dozen threads.
constexpr int hashSize = 512;

struct threadMap_t {
    uint64_t keys[hashSize];
    uint8_t slots[hashSize];  // flwNoThread: free
};

uint64_t threadKey(uint32_t pid, uint32_t tid) { return (static_cast<uint64_t>(pid) << 32) | tid; }

unsigned hashOf(uint64_t key) { return static_cast<unsigned>((key * 0x9E3779B97F4A7C15ull) >> 55) & (hashSize - 1); }

void mapPut(threadMap_t* m, uint64_t key, uint8_t slot)
{
    unsigned h = hashOf(key);
    while (m->slots[h] != flwNoThread && m->keys[h] != key) {
        h = (h + 1) & (hashSize - 1);
    }
    m->keys[h] = key;
    m->slots[h] = slot;
}

uint8_t mapGet(const threadMap_t* m, uint64_t key)
{
    unsigned h = hashOf(key);
    while (m->slots[h] != flwNoThread) {
        if (m->keys[h] == key) {
            return m->slots[h];
        }
        h = (h + 1) & (hashSize - 1);
    }
    return flwNoThread;
}

// "%6ld %2d|": number and depth right-aligned in their columns.
char* putColumn(char* p, long value, int width)
{
    char digits[24];
    char* last = digits + sizeof digits;
    char* first = last;
    const bool negative = value < 0;
    unsigned long v = negative ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    do {
        *--first = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    if (negative) {
        *--first = '-';
    }
    for (long pad = width - (last - first); pad > 0; --pad) {
        *p++ = ' ';
    }
    std::memcpy(p, first, static_cast<size_t>(last - first));
    return p + (last - first);
}

// One line of the report into dest, which has lineRoom bytes; returns its
// length.
size_t renderLine(char* dest, long number, long depth, const trcRecord_t* r)
{
    char* p = putColumn(dest, number, 6);
    *p++ = ' ';
    p = putColumn(p, depth, 2);
    *p++ = '|';
    if (depth > 1) {
        const long room = lineRoom - fncReserve - (p - dest);
        const long indent = 2 * (depth - 1) < room ? 2 * (depth - 1) : room;
        std::memset(p, ' ', static_cast<size_t>(indent));
        p += indent;
    }
    trcRecToFnc(r, p, static_cast<int>(lineRoom - (p - dest)));
    return static_cast<size_t>(p - dest) + std::strlen(p);
}

}  // namespace

void flwDepthsAll(long count, flowIndex_t* index, flwThread_t* threads, int threadCount, uint8_t* slots)
{
    if (threadCount > flwNoThread) {
        threadCount = flwNoThread;
    }
    auto* map = static_cast<threadMap_t*>(std::malloc(sizeof(threadMap_t)));
    auto* keys = static_cast<uint32_t*>(std::malloc(sizeof(uint32_t) * trcCallStackMax * (threadCount + 1)));
    auto* stacks = static_cast<trcCallStack_t*>(std::malloc(sizeof(trcCallStack_t) * (threadCount + 1)));
    if (map == nullptr || keys == nullptr || stacks == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoTextMemory));
    }
    std::memset(map->slots, flwNoThread, sizeof map->slots);
    for (int t = 0; t < threadCount; ++t) {
        mapPut(map, threadKey(static_cast<uint32_t>(threads[t].pid), static_cast<uint32_t>(threads[t].tid)),
               static_cast<uint8_t>(t));
        stacks[t] = trcCallStack_t{keys + static_cast<size_t>(t) * trcCallStackMax, -1, 0};
        threads[t].node = -1;
    }
    uint64_t lastKey = 0;
    uint8_t lastSlot = flwNoThread;
    bool haveLast = false;
    for (long i = 0; i < count; ++i) {
        const trcRecord_t* r = index[i].record;
        const uint64_t key = threadKey(r->pid, r->tid);
        if (!haveLast || key != lastKey) {
            lastKey = key;
            lastSlot = mapGet(map, key);
            haveLast = true;
        }
        slots[i] = lastSlot;
        if (lastSlot == flwNoThread) {
            index[i].depth = flwOtherThread;
            continue;
        }
        if (threads[lastSlot].node == -1) {
            threads[lastSlot].node = r->node;
        }
        trcCallMove_t move;
        index[i].depth = trcCallStep(&stacks[lastSlot], r, &move);
    }
    std::free(stacks);
    std::free(keys);
    std::free(map);
}

void flwWriteThread(const flowIndex_t* index, const uint8_t* slots, uint8_t slot, const flwThread_t* thread,
                    unsigned char (*mask)[32], int step, long firstIndex, long end, FILE* out, const char* outName)
{
    trcFOut_t o;
    trcFOutOpen(&o, lineRoom, out, outName);
    const unsigned char* maps = mask[0];
    long lines = 0;
    auto visit = [&](long i) {
        const trcRecord_t* r = index[i].record;
        if (index[i].depth == flwOtherThread || !trcMaskSelectsRecord(maps, r)) {
            return;
        }
        trcFOutCommit(&o, renderLine(trcFOutNext(&o), i + 1, index[i].depth, r));
        ++lines;
    };
    // The thread's entries are found through its byte in slots, which a
    // byte search skips over fast when a report has many threads.
    if (step == -1) {
        for (long n = end - firstIndex; n > 0;) {
            const void* hit = memrchr(slots + firstIndex, slot, static_cast<size_t>(n));
            if (hit == nullptr) {
                break;
            }
            n = static_cast<const uint8_t*>(hit) - (slots + firstIndex);
            visit(firstIndex + n);
        }
    } else {
        for (long i = firstIndex; i < end; ++i) {
            const void* hit = std::memchr(slots + i, slot, static_cast<size_t>(end - i));
            if (hit == nullptr) {
                break;
            }
            i = static_cast<const uint8_t*>(hit) - slots;
            visit(i);
        }
    }
    trcFOutClose(&o);
    trcPrintFile(stdout, trcMsgGet(msgLabelFormattedNode), lines, thread->pid, thread->tid, thread->node);
    std::fputs("\n", stdout);
}

void doFlw(long count, flowIndex_t* index, int pid, int tid, unsigned char (*mask)[32], int step, long firstIndex,
           long end, FILE* out, const char* outName)
{
    if (count <= 0) {
        count = 0;
    }
    auto* slots = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(count) + 1));
    if (slots == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoTextMemory));
    }
    flwThread_t thread{pid, tid, -1};
    flwDepthsAll(count, index, &thread, 1, slots);
    if (firstIndex < 0) {
        firstIndex = 0;
    }
    if (end > count) {
        end = count;
    }
    flwWriteThread(index, slots, 0, &thread, mask, step, firstIndex, end, out, outName);
    std::free(slots);
}
