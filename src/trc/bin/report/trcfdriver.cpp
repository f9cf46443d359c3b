// `kelvo fmt` and `kelvo flw`: loading, the summary of the trace, the range,
// the record index and, for the flow report, the table of threads. The
// command line is read in trcfargs.cpp, the two reports themselves live in
// trcfmt.cpp and trcflw.cpp.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelvo/facility.h"
#include "trcoutfile.h"
#include "trcmsgid.h"
#include "trcentry.h"
#include "trcerror.h"
#include "trcf.h"
#include "trcload.h"
#include "trcmask.h"
#include "trcmsg.h"
#include "trcrtos.h"
#include "trcwalk.h"

namespace {

constexpr int outputBufferSize = 16384;
constexpr int maxThreads = 50;

// Whether the trace semaphore is held, so that a failure releases it.
bool semaphoreHeld = false;

// The summary lines, printed as the walk learns each value; message 421 of
// the count lands between them.
void walkWithSummary(trcHeader_t* header, long areaSize, trcWalk_t* walk)
{
    std::fputs(trcMsgGet((header->flags & TRC_KEEP_INITIAL) != 0 ? msgLabelTruncated : msgLabelWrapped), stdout);
    auto* area = reinterpret_cast<uint8_t*>(header) + TRC_HEADER_SIZE;
    trcWalkBounds(header, area, areaSize > 0 ? static_cast<size_t>(areaSize) : 0, walk);
    std::printf("%s\n", trcMsgGet(walk->hasLostRecords ? msgYes : msgNo));
    std::printf(trcMsgGet(msgLabelSize), static_cast<long>(walk->usedBytes));
    std::fputs("\n", stdout);
    trcWalkCount(walk, area);
    std::printf("%s%ld\n", trcMsgGet(msgLabelRecords), static_cast<long>(walk->recordCount));
}

}  // namespace

long trcFFillIndex(const trcHeader_t* header, const trcWalk_t* walk, flowIndex_t** index)
{
    const long count = walk->recordCount;
    *index = static_cast<flowIndex_t*>(std::malloc(static_cast<size_t>(count) * sizeof(flowIndex_t)));
    if (*index == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoIndexMemory));
    }
    const auto* area = reinterpret_cast<const uint8_t*>(header) + TRC_HEADER_SIZE;
    long filled = 0;
    flowIndex_t* entries = *index;
    trcWalkEach(walk, area, [&](const trcRecord_t* record) {
        entries[filled].depth = 0;
        entries[filled].record = record;
        ++filled;
        return filled < count;
    });
    return filled;
}

namespace {

// Threads in the order of their first record in the range; the range and
// the process option choose them, the mask does not.
int buildThreadTable(const flowIndex_t* index, long firstIndex, long end, long pid, flwThread_t* threads)
{
    int used = 0;
    int last = 0;  // records of one thread tend to follow each other
    for (long i = firstIndex; i < end; ++i) {
        const trcRecord_t* r = index[i].record;
        const auto rpid = static_cast<int32_t>(r->pid);
        const auto rtid = static_cast<int32_t>(r->tid);
        int t = last;
        if (t >= used || threads[t].pid != rpid || threads[t].tid != rtid) {
            t = 0;
            while (t < used && (threads[t].pid != rpid || threads[t].tid != rtid)) {
                ++t;
            }
        }
        if (t < used) {
            last = t;
            if (threads[t].node == -1) {
                threads[t].node = r->node;
            }
            continue;
        }
        if (used == maxThreads || (pid != -1 && pid != rpid)) {
            continue;
        }
        threads[used++] = flwThread_t{rpid, rtid, r->node};
    }
    return used;
}

void runFlow(long count, flowIndex_t* index, const fOptions_t& o, unsigned char (*mask)[32], long firstIndex, long end,
             FILE* out, const char* outName)
{
    flwThread_t headings[maxThreads];
    const int threadCount = buildThreadTable(index, firstIndex, end, o.pid, headings);
    if (threadCount == 0) {
        return;
    }
    auto* slots = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(count)));
    if (slots == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoIndexMemory));
    }
    // The closing lines take the node from the whole index, the headings
    // from the range.
    flwThread_t closing[maxThreads];
    std::memcpy(closing, headings, sizeof closing);
    flwDepthsAll(count, index, closing, threadCount, slots);
    for (int t = 0; t < threadCount; ++t) {
        if (std::fprintf(out, "\n\npid = %d; tid = %d; node = %d;\n\n", headings[t].pid, headings[t].tid,
                         headings[t].node) < 0) {
            trcError(trcFExit, trcMsgGet(msgCannotWrite), outName);
        }
        flwWriteThread(index, slots, static_cast<uint8_t>(t), &closing[t], mask, o.step, firstIndex, end, out, outName);
    }
    std::free(slots);
}

FILE* openOutput(const char* destination, const char** outName)
{
    FILE* out = stdout;
    *outName = "standard output";
    if (destination != nullptr) {
        out = trcCreateOutFile(destination, 0666);
        if (out == nullptr) {
            trcFail(trcMsgGet(msgCannotCreate), destination);
        }
        *outName = destination;
    }
    std::setvbuf(out, nullptr, _IOFBF, outputBufferSize);
    return out;
}

}  // namespace

void trcFHoldSemaphore()
{
    trcSemP();
    semaphoreHeld = true;
}

void trcFReleaseSemaphore()
{
    if (semaphoreHeld) {
        semaphoreHeld = false;
        trcSemV();
    }
}

void trcFExit(int status)
{
    trcFReleaseSemaphore();
    std::exit(status);
}

int mainF(int count, char** args, int usageMessage, trcCommandInfo_t* /*info*/)
{
    fOptions_t o;
    const trcFParse_t how{usageMessage, usage, true, 2, nullptr, nullptr};
    trcFParseArgs(count, args, &how, &o);
    const char* source = o.source != nullptr ? o.source : "-";
    if (o.destination != nullptr && trcFMayExist(o.destination)) {
        usage(usageMessage, msgExistingFile);
    }
    trcHeader_t* header = nullptr;
    long areaSize = 0;
    if (readFile(&header, source, 1, &areaSize) != 0) {
        return 1;
    }
    const char* outName = nullptr;
    FILE* out = openOutput(o.destination, &outName);
    if (trcRecToStrInit(header) != 0) {
        trcFail(trcMsgGet(msgNoDictionary));
    }
    if (std::strcmp(source, "-") == 0) {
        trcFHoldSemaphore();
    }
    trcFReport(header, areaSize, &o, usageMessage == msgUsageFmt, out, outName);
    trcFReleaseSemaphore();
    return 0;
}

void trcFReport(trcHeader_t* header, long areaSize, const fOptions_t* options, bool format, FILE* out,
                const char* outName)
{
    const fOptions_t& o = *options;
    trcWalk_t walk;
    walkWithSummary(header, areaSize, &walk);

    long recordCount = walk.recordCount;
    long end = o.lastRecord < 0 || o.lastRecord > recordCount ? recordCount : o.lastRecord;
    const long firstIndex = o.firstRecord > 0 ? o.firstRecord - 1L : 0;
    if (firstIndex >= end || recordCount == 0) {
        std::printf("%s0\n", trcMsgGet(msgLabelFormatted));
        return;
    }
    flowIndex_t* index = nullptr;
    recordCount = trcFFillIndex(header, &walk, &index);
    if (end > recordCount) {
        end = recordCount;
    }
    // The mask record as six maps of 32 bytes.
    auto* maps = reinterpret_cast<unsigned char(*)[trcMaskMapBytes]>(const_cast<unsigned char*>(o.mask));
    if (format) {
        doFmt(index, static_cast<int>(o.pid), maps, o.step, firstIndex, end, out, outName, o.join);
    } else {
        runFlow(recordCount, index, o, maps, firstIndex, end, out, outName);
    }
    std::free(index);
}
