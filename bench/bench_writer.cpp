// Cost of writing one trace record with 40 bytes of data and its time
// stamp, against a baseline of the least that a shared-memory trace must do:
// read CLOCK_REALTIME and copy 48 bytes into a ring in shared memory, with no
// lock at all. One thread and two threads (wall time per record of all
// threads). Rounds are interleaved; ratios are taken within each round and
// their medians printed.
#include <kelvo/facility.h>
#include <kelvo/trace.h>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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
constexpr unsigned dataBytes = 40;
constexpr long offCalls = 50'000'000;
constexpr long onCalls = 2'000'000;
constexpr std::size_t ringBytes = 1 << 20;
constexpr std::size_t slotBytes = 48;
// A trace record with 40 bytes of data: 44 fixed bytes, the data, the length.
constexpr std::size_t recordBytes = 88;

const char text40[] = "0123456789abcdef0123456789ABCDEF01234567";

double nowNs()
{
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now().time_since_epoch()).count();
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
        trcWrite(1, 24, 2, 3, 4, 5, nullptr, text40, dataBytes);
}

// The baseline ring: slots in shared memory, each thread writing its own
// half so that no lock and no shared position is needed.
struct Ring {
    unsigned char slots[2][ringBytes];
};

Ring* makeRing()
{
    void* at = mmap(nullptr, sizeof(Ring), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) {
        std::perror("mmap");
        std::exit(1);
    }
    return static_cast<Ring*>(at);
}

std::atomic<int> nextHalf{0};

// The least that any ring shared by all writers costs: each record takes its
// place from one shared word and is copied there, with no clock and no
// check. What two threads cost here bounds what any such design reaches.
struct SharedRing {
    alignas(64) std::atomic<uint64_t> end{0};
    alignas(64) unsigned char bytes[ringBytes];
};

void sharedFloor(SharedRing* ring, long calls)
{
    unsigned char record[recordBytes] = {};
    std::memcpy(record + 16, text40, sizeof text40 - 1);
    for (long i = 0; i < calls; ++i) {
        uint64_t at = ring->end.fetch_add(recordBytes, std::memory_order_relaxed) % (ringBytes - recordBytes);
        std::memcpy(ring->bytes + at, record, recordBytes);
    }
}

void baseline(Ring* ring, long calls)
{
    unsigned char* slots = ring->slots[nextHalf.fetch_add(1) & 1];
    std::size_t position = 0;
    unsigned char record[slotBytes] = {};
    std::memcpy(record + 16, text40, sizeof record - 16);
    for (long i = 0; i < calls; ++i) {
        struct timespec now {};
        clock_gettime(CLOCK_REALTIME, &now);
        std::memcpy(record, &now, sizeof now);
        std::memcpy(slots + position, record, slotBytes);
        position = position + 2 * slotBytes > ringBytes ? 0 : position + slotBytes;
    }
}

int turnOn(uint32_t extraFlags)
{
    std::vector<uint8_t> all(TRC_MASK_SIZE, 0xFF);
    std::vector<uint8_t> none(TRC_MASK_SIZE, 0);
    int rc = trcOn(0, all.data(), -1, -1, -1, 0, 0, -1, 32768,
                   TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK | extraFlags, none.data(), none.data(), -1,
                   "", 1048576);
    trcIsOn();
    return rc;
}

// One round measures every case once, each right after the baselines, so
// that the ratios compare figures taken under the same load.
struct Round {
    double off, on1, on2, base1, base2, floor1, floor2;
};

Round measureRound(Ring* ring, SharedRing* shared)
{
    Round r{};
    r.floor1 = perCall(1, onCalls, [&](long n) { sharedFloor(shared, n); });
    r.floor2 = perCall(2, onCalls / 2, [&](long n) { sharedFloor(shared, n); });
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

}  // namespace

int main()
{
    std::string instance = "bench." + std::to_string(getpid());
    setenv("KELVO_INSTANCE", instance.c_str(), 1);
    Ring* ring = makeRing();
    auto* shared = new SharedRing;
    std::vector<Round> rounds;
    for (int r = 0; r < runs; ++r)
        rounds.push_back(measureRound(ring, shared));

    std::printf("Writer cost per record with %u bytes of data and its time stamp: medians of %d\n", dataBytes, runs);
    std::printf("interleaved runs, wall time; ratios are medians of the ratios within each run\n");
    std::printf("%-46s %10s %12s %8s\n", "case", "ns/record", "ratio", "goal");
    row(
        "trace off", rounds, [](const Round& r) { return r.off; }, nullptr, "<= 1 ns");
    row(
        "trace on, one thread (vs baseline, 1 thread)", rounds, [](const Round& r) { return r.on1; },
        [](const Round& r) { return r.on1 / r.base1; }, "<= 1.2");
    row(
        "trace on, two threads (vs kelvo, 1 thread)", rounds, [](const Round& r) { return r.on2; },
        [](const Round& r) { return r.on2 / r.on1; }, "<= 0.7");
    row(
        "baseline: clock, 48-byte copy, 1 thread", rounds, [](const Round& r) { return r.base1; }, nullptr, "-");
    row(
        "baseline: the same, two threads", rounds, [](const Round& r) { return r.base2; },
        [](const Round& r) { return r.base2 / r.base1; }, "-");
    row(
        "floor: one shared place word, no clock, 1 thread", rounds, [](const Round& r) { return r.floor1; }, nullptr,
        "-");
    row(
        "floor: the same, two threads (vs kelvo, 1 thread)", rounds, [](const Round& r) { return r.floor2; },
        [](const Round& r) { return r.floor2 / r.on1; }, "-");
    delete shared;
    return 0;
}
