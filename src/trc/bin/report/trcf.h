// The format and flow reports: the record index that the driver builds and
// the two reports that read it.
#ifndef KELVO_TRCF_H
#define KELVO_TRCF_H

#include <cstdint>
#include <cstdio>

#include "kelvo/trcformat.h"
#include "trc.h"

// One entry of the record index: entry i holds record number i + 1 in time
// order. depth is the working field of the flow report.
struct flowIndex_t {
    long depth;
    const trcRecord_t* record;
};

// Depth given to the records of other threads by the flow report.
constexpr long flwOtherThread = -9999;

// The options of fmt and flw, and their values when not given.
struct fOptions_t {
    unsigned char mask[TRC_MASK_SIZE];
    long pid = -1;
    int firstRecord = 1;
    int lastRecord = -1;  // negative: to the last record
    int step = 1;         // -1: newest first
    int join = 0;
    const char* source = nullptr;
    const char* destination = nullptr;
};

// How a program reads the selection words of fmt and flw (-m, -p, -x) and
// its file words. A fault goes to usage(usageMessage, message number).
struct trcFParse_t {
    int usageMessage;
    void (*usage)(int usageMessage, int errorMessage);  // never returns
    bool orderOptions;                                  // -r and -j are options too
    int files;                                          // file words it takes: 1 source, 2 also destination
    // Offered each other word that begins with "-" before it counts as
    // wrong: returns how many words from args[at] on it used, 0 if none.
    int (*extra)(int count, char** args, int at, void* context);
    void* context;
};
void trcFParseArgs(int count, char** args, const trcFParse_t* how, fOptions_t* o);

// The trace semaphore, held for a walk of the live block; trcFExit
// releases it if held.
void trcFHoldSemaphore();
void trcFReleaseSemaphore();

struct trcWalk_t;
// The record index of a counted walk, in one allocation that the caller
// frees; returns the number of entries. No memory: message 412, trcFExit.
long trcFFillIndex(const trcHeader_t* header, const trcWalk_t* walk, flowIndex_t** index);

// Everything of a report after the dictionary is built: the walk with the
// summary lines, the range, the index, and the format report (format) or
// the flow reports of the threads, written to out. The caller holds the
// semaphore for a live block.
void trcFReport(trcHeader_t* header, long areaSize, const fOptions_t* options, bool format, FILE* out,
                const char* outName);

// What the reports pass to trcError: ends the process with status, after
// releasing the trace semaphore if the driver holds it.
[[noreturn]] void trcFExit(int status);

// The format report of the entries firstIndex to end - 1 (step 1 upwards,
// -1 downwards), of process pid (-1 all) as the mask selects them.
void doFmt(flowIndex_t* index, int pid, unsigned char (*mask)[32], int step, long firstIndex, long end, FILE* out,
           const char* outName, int join);

// The flow report of one thread: computes the depths of all count entries
// for that thread, then writes the lines of its entries in the range.
void doFlw(long count, flowIndex_t* index, int pid, int tid, unsigned char (*mask)[32], int step, long firstIndex,
           long end, FILE* out, const char* outName);

// ---- The flow report in parts, for a driver that reports many threads ----

// A thread of the flow report.
struct flwThread_t {
    int32_t pid;
    int32_t tid;
    int32_t node;  // node of its first record that has one, -1 if none
};

// Computes, in one pass over all count entries, the depth of every record of
// the threads[0..threadCount) (at most 255 threads) as doFlw would for each of
// them alone, storing it in the entry's depth, and the thread of every entry
// in slots (index into threads, or flwNoThread). Sets each thread's node
// from the whole index.
constexpr uint8_t flwNoThread = 0xFF;
void flwDepthsAll(long count, flowIndex_t* index, flwThread_t* threads, int threadCount, uint8_t* slots);

// Writes the lines of the entries of the range whose slot is slot, with the
// depths in the index, and prints the closing line of the thread.
void flwWriteThread(const flowIndex_t* index, const uint8_t* slots, uint8_t slot, const flwThread_t* thread,
                    unsigned char (*mask)[32], int step, long firstIndex, long end, FILE* out, const char* outName);

#endif
