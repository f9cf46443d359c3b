// Cost of writing one trace record, against a baseline of the least that a
// shared-memory trace must do: take a process-shared robust mutex, read the
// clock and copy 48 bytes into a ring. Prints one table of medians.
#include <kelvo/facility.h>
#include <kelvo/trace.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int runs = 7;
constexpr long offCalls = 50'000'000;
constexpr long onCalls = 2'000'000;
constexpr std::size_t ringBytes = 1 << 20;
constexpr std::size_t slotBytes = 48;

const char text32[] = "0123456789abcdef0123456789ABCDEF";

double nowNs()
{
    return std::chrono::duration<double, std::nano>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Wall time per call of `body` run `calls` times in each of `threads`
// threads, counting all calls of all threads.
double perCall(int threads, long calls, const std::function<void(long)>& body)
{
    std::vector<std::thread> pool;
    double start = nowNs();
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&] { body(calls); });
    for (auto& th : pool)
        th.join();
    return (nowNs() - start) / (static_cast<double>(calls) * threads);
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void writes(long calls)
{
    for (long i = 0; i < calls; ++i)
        trcWrite(1, 24, 2, 3, 4, 5, nullptr, text32, 32);
}

// The baseline ring: a robust process-shared mutex, a position and slots.
struct Ring {
    pthread_mutex_t mutex;
    std::size_t position;
    unsigned char slots[ringBytes];
};

Ring* makeRing()
{
    void* at = mmap(nullptr, sizeof(Ring), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) {
        std::perror("mmap");
        std::exit(1);
    }
    auto* ring = static_cast<Ring*>(at);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&ring->mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    return ring;
}

void baseline(Ring* ring, long calls)
{
    unsigned char record[slotBytes] = {};
    for (long i = 0; i < calls; ++i) {
        if (pthread_mutex_lock(&ring->mutex) == EOWNERDEAD)
            pthread_mutex_consistent(&ring->mutex);
        struct timespec now {};
        clock_gettime(CLOCK_REALTIME, &now);
        std::memcpy(record, &now, sizeof now);
        std::memcpy(ring->slots + ring->position, record, slotBytes);
        ring->position = (ring->position + slotBytes) % (ringBytes - slotBytes);
        pthread_mutex_unlock(&ring->mutex);
    }
}

int turnOn(uint32_t extraFlags)
{
    std::vector<uint8_t> all(TRC_MASK_SIZE, 0xFF);
    std::vector<uint8_t> none(TRC_MASK_SIZE, 0);
    int rc = trcOn(0, all.data(), -1, -1, -1, 0, 0, -1, 32768,
                   TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK | extraFlags, none.data(),
                   none.data(), -1, "", 1048576);
    trcIsOn();
    return rc;
}



// One round measures every case once, each right after the baselines, so
// that the ratios compare figures taken under the same load.
struct Round {
    double off, on1, on2, onT1, onT2, base1, base2;
};

Round measureRound(Ring* ring)
{
    Round r{};
    r.base1 = perCall(1, onCalls, [&](long n) { baseline(ring, n); });
    r.base2 = perCall(2, onCalls / 2, [&](long n) { baseline(ring, n); });
    r.off = perCall(1, offCalls, writes);
    if (turnOn(0) != 0) {
        std::perror("trcOn");
        std::exit(1);
    }
    r.on1 = perCall(1, onCalls, writes);
    r.on2 = perCall(2, onCalls / 2, writes);
    trcOff(0);
    if (turnOn(TRC_OPTION_T) != 0) {
        std::perror("trcOn -t");
        std::exit(1);
    }
    r.onT1 = perCall(1, onCalls, writes);
    r.onT2 = perCall(2, onCalls / 2, writes);
    trcOff(0);
    return r;
}

double medianOf(const std::vector<Round>& rounds, double (*figure)(const Round&))
{
    std::vector<double> v;
    for (const Round& r : rounds)
        v.push_back(figure(r));
    return median(v);
}

void row(const char* name, const std::vector<Round>& rounds, double (*figure)(const Round&),
         double (*ratio)(const Round&), const char* goal)
{
    std::printf("%-46s %10.2f", name, medianOf(rounds, figure));
    if (ratio != nullptr)
        std::printf(" %12.2f", medianOf(rounds, ratio));
    else
        std::printf(" %12s", "-");
    std::printf(" %8s\n", goal);
}

} // namespace

int main()
{
    std::string instance = "bench." + std::to_string(getpid());
    setenv("KELVO_INSTANCE", instance.c_str(), 1);
    Ring* ring = makeRing();
    std::vector<Round> rounds;
    for (int r = 0; r < runs; ++r)
        rounds.push_back(measureRound(ring));

    std::printf("Writer cost per record with 32 bytes of text: medians of %d runs, wall time;\n", runs);
    std::printf("ratios are medians of the ratios within each run\n");
    std::printf("%-46s %10s %12s %8s\n", "case", "ns/record", "vs baseline", "goal");
    row("trace off", rounds, [](const Round& r) { return r.off; }, nullptr, "<= 1 ns");
    row("trace on, one thread", rounds, [](const Round& r) { return r.on1; },
        [](const Round& r) { return r.on1 / r.base1; }, "<= 1.15");
    row("trace on, two threads", rounds, [](const Round& r) { return r.on2; },
        [](const Round& r) { return r.on2 / r.base2; }, "<= 1.00");
    row("trace on -t, one thread", rounds, [](const Round& r) { return r.onT1; },
        [](const Round& r) { return r.onT1 / r.base1; }, "-");
    row("trace on -t, two threads", rounds, [](const Round& r) { return r.onT2; },
        [](const Round& r) { return r.onT2 / r.base2; }, "-");
    row("baseline: lock, clock, 48-byte copy, 1 thread", rounds, [](const Round& r) { return r.base1; },
        nullptr, "-");
    row("baseline: the same, two threads", rounds, [](const Round& r) { return r.base2; }, nullptr, "-");
    return 0;
}
