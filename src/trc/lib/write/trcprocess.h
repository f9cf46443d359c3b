// This process's view of the facility: the live block it uses, and the
// identities that its records carry.
#ifndef KELVO_TRCPROCESS_H
#define KELVO_TRCPROCESS_H

#include "trclive.h"

#include <atomic>
#include <cstdint>

namespace kelvo {

// The live block for a writer, or null when no trace exists. Looks for a
// new block at most every 100 ms, so that a write without a trace makes no
// system call on most calls.
Live* writerLive();

// The block that writers use, null while none was found. Written only by
// the functions below; read by writerLive and by nothing else.
extern std::atomic<Live*> writerBlock;
// The library is loaded with the program, so its few thread-local words can
// live in the static block, which needs no call to reach; __thread, as they
// need no constructor and so no wrapper either.
#define KELVO_FAST_TLS __attribute__((tls_model("initial-exec"))) __thread
extern KELVO_FAST_TLS uint32_t callsToClockRead;

// The cheapest test that a write may be taken: false when no trace was
// found and it is not yet time to look for one again.
inline bool writerMayLook()
{
    if (writerBlock.load(std::memory_order_relaxed) != nullptr) [[unlikely]]
        return true;
    if (callsToClockRead != 0) [[likely]] {
        --callsToClockRead;
        return false;
    }
    return true;
}

// The live block for an operation of the tool: looked for now. Null with
// ENOENT when no trace exists.
Live* currentLive();

uint32_t processId();
uint32_t threadId();
uint32_t companionOfThread();
void setCompanionOfThread(uint32_t cpid);
int32_t nodeOfProcess();
void setNodeOfProcess(int32_t node);

// Called once for every block this process starts to use.
void onNewLive(Live& live);

}  // namespace kelvo

#endif
