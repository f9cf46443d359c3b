// The live block this process uses and the identities of its records.
//
// A writer holds the mapping of the block it found; while that block is
// live a write needs no system call at all. When the block is removed or no
// trace exists, the writer looks for a new block at most every 100 ms; the
// time is read from the coarse clock, which costs no system call either,
// and only on every 16th call of a thread.
#include "trcprocess.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

namespace kelvo {

std::atomic<Live*> writerBlock{nullptr};
KELVO_FAST_TLS uint32_t callsToClockRead = 0;

namespace {

std::atomic<Live*>& current = writerBlock;

constexpr int64_t probeIntervalNs = 100'000'000;
constexpr uint32_t callsPerClockRead = 16;


// Every block this process has mapped, newest first. Threads and the tool
// may still hold pointers into a block that has been removed, so none is
// ever unmapped.
Live* mapped = nullptr;
std::atomic<int64_t> nextProbeNs{0};
std::mutex probing;
std::atomic<uint32_t> cachedPid{0};
std::atomic<int32_t> processNode{-1};
KELVO_FAST_TLS uint32_t cachedTid = 0;
KELVO_FAST_TLS uint32_t threadCompanion = 0;

int64_t coarseNowNs()
{
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void forgetAfterFork()
{
    cachedPid.store(0, std::memory_order_relaxed);
    cachedTid = 0;
}

void registerForkHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, forgetAfterFork); });
}

// Replaces a removed block by the published one, if any. Caller holds
// `probing`.
Live* refresh()
{
    Live* live = current.load(std::memory_order_acquire);
    if (live != nullptr && loadRelaxed(live->control->removed) == 0)
        return live;
    Live* found = mapLive();
    if (found == nullptr) {
        int saved = errno;
        current.store(nullptr, std::memory_order_release);
        errno = saved;
        return nullptr;
    }
    found->older = mapped;
    mapped = found;
    onNewLive(*found);
    current.store(found, std::memory_order_release);
    return found;
}

Live* probeWhenDue()
{
    if (callsToClockRead != 0) {
        --callsToClockRead;
        return nullptr;
    }
    callsToClockRead = callsPerClockRead - 1;
    int64_t now = coarseNowNs();
    if (now < nextProbeNs.load(std::memory_order_relaxed))
        return nullptr;
    std::lock_guard<std::mutex> hold(probing);
    nextProbeNs.store(now + probeIntervalNs, std::memory_order_relaxed);
    return refresh();
}

} // namespace

Live* writerLive()
{
    Live* live = current.load(std::memory_order_acquire);
    if (live != nullptr && loadRelaxed(live->control->removed) == 0) [[likely]]
        return live;
    return probeWhenDue();
}

Live* currentLive()
{
    std::lock_guard<std::mutex> hold(probing);
    return refresh();
}

uint32_t processId()
{
    uint32_t pid = cachedPid.load(std::memory_order_relaxed);
    if (pid == 0) [[unlikely]] {
        registerForkHandler();
        pid = static_cast<uint32_t>(getpid());
        cachedPid.store(pid, std::memory_order_relaxed);
    }
    return pid;
}

uint32_t threadId()
{
    if (cachedTid == 0) [[unlikely]]
        cachedTid = static_cast<uint32_t>(syscall(SYS_gettid));
    return cachedTid;
}

uint32_t companionOfThread() { return threadCompanion; }
void setCompanionOfThread(uint32_t cpid) { threadCompanion = cpid; }
int32_t nodeOfProcess() { return processNode.load(std::memory_order_relaxed); }
void setNodeOfProcess(int32_t node) { processNode.store(node, std::memory_order_relaxed); }

} // namespace kelvo
