// The shared front of kelvo-export and kelvo-stats: the tool's option
// parser, loader, dictionary, walk and index, driven the way fmt drives
// them, with standard output left to the report.
#include "trcxtrace.h"
#include "trcmsgid.h"

#include <cctype>
#include <cstdlib>

#include "trcerror.h"
#include "trcload.h"
#include "trcmsg.h"
#include "trcrtos.h"
#include "trcwalk.h"

namespace {}  // namespace

const char* trcxUsageText = "";

void trcxUsage(int /*usageMessage*/, int errorMessage)
{
    if (errorMessage != -1) {
        std::printf("%s\n\n", trcMsgGet(errorMessage));
    }
    std::printf("%s\n", trcxUsageText);
    std::exit(1);
}

void trcxCommandLine(int argc, char** argv)
{
    trcErrorName(argv[0]);
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-') {
            for (char* c = argv[i]; *c != '\0'; ++c) {
                *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
            }
        }
    }
}

void trcxParse(int argc, char** argv, int files, int (*extra)(int, char**, int, void*), void* context, trcxTrace_t* t)
{
    const trcFParse_t how{0, trcxUsage, false, files, extra, context};
    trcFParseArgs(argc, argv, &how, &t->options);
    t->source = t->options.source != nullptr ? t->options.source : "-";
    t->live = std::strcmp(t->source, "-") == 0;
}

void trcxLoad(trcxTrace_t* t) { readFile(&t->header, t->source, 1, &t->areaSize); }

// The origin of the times and what the stamps of the trace are like.
static void findStamps(trcxTrace_t* t)
{
    bool first = true;
    for (long i = 0; i < t->count; ++i) {
        const trcRecord_t* r = t->index[i].record;
        if (r->sec == 0) {
            ++t->unstamped;
            continue;
        }
        const int64_t stamp = static_cast<int64_t>(r->sec) * 1000000000LL + r->nsec;
        if (first) {
            t->origin = stamp;
            t->firstStamp = stamp;
            first = false;
        } else if (stamp < t->origin) {
            t->origin = stamp;
        }
    }
    t->noStamps = first;
    t->firstStamp -= t->origin;
    if (t->quiet) {
        return;
    }
    if (t->noStamps && t->count > 0) {
        std::fprintf(stderr, "%s: no record has a time stamp; records are placed 1 us apart in record order.\n",
                     trcPgmName);
    } else if (t->unstamped > 0) {
        std::fprintf(stderr,
                     "%s: %ld of %ld records have no time stamp; each is placed at the time of the record "
                     "before it.\n",
                     trcPgmName, t->unstamped, t->count);
    }
}

void trcxDictionary(trcxTrace_t* t)
{
    if (trcRecToStrInit(t->header) != 0) {
        trcFail(trcMsgGet(msgNoDictionary));
    }
}

bool trcxPrepare(trcxTrace_t* t)
{
    if (t->live) {
        trcFHoldSemaphore();
    }
    trcWalk_t walk;
    auto* area = reinterpret_cast<uint8_t*>(t->header) + TRC_HEADER_SIZE;
    trcWalkBounds(t->header, area, t->areaSize > 0 ? static_cast<size_t>(t->areaSize) : 0, &walk);
    int32_t records = 0;
    if (!trcWalkEach(&walk, area,
                     [&](const trcRecord_t*) {
                         ++records;
                         return true;
                     }) &&
        !t->quiet) {
        std::fputs(trcMsgGet(msgCorrupt), stderr);
    }
    walk.recordCount = records;
    const fOptions_t& o = t->options;
    long end = o.lastRecord < 0 || o.lastRecord > records ? records : o.lastRecord;
    t->firstIndex = o.firstRecord > 0 ? o.firstRecord - 1L : 0;
    if (records == 0) {
        t->end = 0;
        return false;
    }
    t->count = trcFFillIndex(t->header, &walk, &t->index);
    if (end > t->count) {
        end = t->count;
    }
    t->end = end;
    findStamps(t);
    return t->firstIndex < t->end;
}

void trcxFinish(trcxTrace_t* t)
{
    trcFReleaseSemaphore();
    std::free(t->index);
    t->index = nullptr;
}

// ---- Threads --------------------------------------------------------------

trcxCalls_t::~trcxCalls_t()
{
    for (trcxThread_t& th : threads) {
        std::free(th.keys);
        std::free(th.calls);
    }
}

trcxThread_t* trcxThreadOf(trcxCalls_t* c, const trcxTrace_t* t, const trcRecord_t* r, uint32_t* cache)
{
    if (*cache != UINT32_MAX) {
        trcxThread_t& last = c->threads[*cache];
        if (last.pid == r->pid && last.tid == r->tid) {
            return &last;
        }
    }
    if (t->options.pid != -1 && static_cast<int32_t>(r->pid) != static_cast<int32_t>(t->options.pid)) {
        return nullptr;
    }
    const uint64_t id = (static_cast<uint64_t>(r->pid) << 32) | r->tid;
    auto found = c->byId.find(id);
    if (found == c->byId.end()) {
        found = c->byId.emplace(id, static_cast<uint32_t>(c->threads.size())).first;
        trcxThread_t th{};
        th.pid = r->pid;
        th.tid = r->tid;
        th.node = -1;
        th.stack = trcCallStack_t{nullptr, -1, 0};
        c->threads.push_back(th);
    }
    *cache = found->second;
    return &c->threads[found->second];
}

void trcxGrow(trcxThread_t* th)
{
    int room = th->room == 0 ? 16 : th->room * 2;
    if (room > trcCallStackMax) {
        room = trcCallStackMax;
    }
    if (room <= th->room) {
        return;
    }
    auto* keys = static_cast<uint32_t*>(std::realloc(th->keys, sizeof(uint32_t) * static_cast<size_t>(room)));
    if (keys != nullptr) {
        th->keys = keys;
    }
    auto* calls = static_cast<trcxCall_t*>(std::realloc(th->calls, sizeof(trcxCall_t) * static_cast<size_t>(room)));
    if (calls != nullptr) {
        th->calls = calls;
    }
    if (keys == nullptr || calls == nullptr) {
        trcError(trcFExit, trcMsgGet(msgNoTextMemory));
    }
    th->room = room;
    th->stack.keys = th->keys;
}
