// The live block this process uses and the identities of its records.
//
// A writer holds the mapping of the block it found; while that block is
// live a write needs no system call at all. When the block is removed or no
// trace exists, the writer looks for a new block at most every 100 ms; the
// time is read from the coarse clock, which costs no system call either,
// and only on every 16th call of a thread. Once a look has found nothing,
// trcWriterIdle lets the callers answer their writes without entering the
// library at all, and a watching thread reopens the way when a trace
// appears.
#include "trcclock.h"
#include "trcexport.h"
#include "trcprocess.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

extern "C" {
KELVO_EXPORT int trcWriterIdle = 0;
}

namespace kelvo {

std::atomic<Live*> writerBlock{nullptr};
KELVO_FAST_TLS uint32_t callsToClockRead = 0;

namespace {

std::atomic<Live*>& current = writerBlock;

constexpr int64_t probeIntervalNs = 100'000'000;
constexpr long watchIntervalNs = 50'000'000;
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

// Set while this process has a thread that watches for a trace.
bool watching = false;

void setIdle(int idle) { __atomic_store_n(&trcWriterIdle, idle, __ATOMIC_RELAXED); }

void forgetAfterFork()
{
    cachedPid.store(0, std::memory_order_relaxed);
    cachedTid = 0;
    // The watching thread is not copied into the child.
    watching = false;
    setIdle(0);
}

void registerForkHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { pthread_atfork(nullptr, nullptr, forgetAfterFork); });
}

// Reopens the way into the library for the writers as soon as a trace
// exists; runs for the life of the process.
void* watchForTrace(void*)
{
    for (;;) {
        struct timespec pause {
            0, watchIntervalNs
        };
        nanosleep(&pause, nullptr);
        if (__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) != 0 && access(instancePath().c_str(), F_OK) == 0) {
            nextProbeNs.store(0, std::memory_order_relaxed);
            setIdle(0);
        }
    }
    return nullptr;
}

// After a look that found no trace: callers may stop entering the library
// once a thread watches for the next trace. Caller holds `probing`.
void becomeIdle()
{
    if (!watching) {
        registerForkHandler();
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        pthread_t thread;
        watching = pthread_create(&thread, &attr, watchForTrace, nullptr) == 0;
        pthread_attr_destroy(&attr);
        if (!watching)
            return;
    }
    setIdle(1);
}

// Replaces a removed block by the published one, if any. Caller holds
// `probing`.
Live* refresh()
{
    Live* live = current.load(std::memory_order_acquire);
    if (live != nullptr && loadRelaxed(live->control->removed) == 0) {
        setIdle(0);
        return live;
    }
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
    setIdle(0);
    return found;
}

Live* probeWhenDue()
{
    if (callsToClockRead != 0) {
        --callsToClockRead;
        return nullptr;
    }
    callsToClockRead = callsPerClockRead - 1;
    int64_t now = coarseNs();
    if (now < nextProbeNs.load(std::memory_order_relaxed))
        return nullptr;
    std::lock_guard<std::mutex> hold(probing);
    nextProbeNs.store(now + probeIntervalNs, std::memory_order_relaxed);
    Live* live = refresh();
    if (live == nullptr)
        becomeIdle();
    return live;
}

}  // namespace

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

}  // namespace kelvo
