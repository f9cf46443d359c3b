// Speed and memory of the reports: a trace of about 256 MiB written through
// the writer API by 16 threads (nested calls, text and return codes, the
// buffer wrapped), dumped, then `kelvo fmt`, `kelvo flw` and `kelvo inf` on
// the dump, each run several times with its output thrown away. kelvo-export
// (JSON and CSV) and kelvo-stats run on a copy of that dump whose records
// carry time stamps. The flow
// report is also run on a trace of 50 threads and on the same records
// given to one thread, to show what the number of threads costs.
//
//     bench_report [kelvo] [work directory]
//
// With a work directory named, the traces and the .tfi file stay there.
// Prints records per second, output MB/s and the peak resident memory of
// the tool, medians of the runs.
#include <kelvo/facility.h>
#include <kelvo/trace.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "trcwalk.h"

#ifndef KELVO_TOOL_PATH
#define KELVO_TOOL_PATH "kelvo"
#endif
#ifndef KELVO_EXPORT_PATH
#define KELVO_EXPORT_PATH "kelvo-export"
#endif
#ifndef KELVO_STATS_PATH
#define KELVO_STATS_PATH "kelvo-stats"
#endif

namespace {

constexpr int runs = 5;
constexpr int64_t bufferSize = 256LL << 20;
// Written bytes as a share of the buffer: enough for it to wrap.
constexpr double fillFactor = 1.15;

std::string tool = KELVO_TOOL_PATH;
std::string work;

void fail(const char* what)
{
    std::fprintf(stderr, "bench_report: %s\n", what);
    std::exit(2);
}

// One thread of a traced program: calls nested three deep, with entries,
// text, printf-like records and exits with return codes.
void writer(int product, std::atomic<int64_t>* bytes, int64_t goal)
{
    static const char* words[] = {"opening the configuration", "x", "reading block 17 of the index file",
                                  "retry after a short wait", "done"};
    unsigned n = 0;
    while (bytes->load(std::memory_order_relaxed) < goal) {
        const unsigned f = 1 + n % 7;
        trcWrite(product, TRC_EVENT_API_ENTRY, 1, 1, f, 0, nullptr, "arg", 3);
        trcWrite(product, TRC_EVENT_CEI_ENTRY, 1, 2, f + 1, 1, nullptr, nullptr, 0);
        const char* w = words[n % 5];
        trcWrite(product, TRC_EVENT_CEI_PRINTF, 1, 2, f + 1, 2, nullptr, w, static_cast<unsigned>(std::strlen(w)));
        trcWrite(product, TRC_EVENT_DEV_ENTRY, 2, 1, 3, 0, nullptr, nullptr, 0);
        trcWriteRc(product, TRC_EVENT_DEV_EXIT, 2, 1, 3, 0, nullptr, static_cast<int>(n % 3) - 1);
        trcWriteRc(product, TRC_EVENT_CEI_EXIT, 1, 2, f + 1, 3, nullptr, 0);
        trcWritef(product, TRC_EVENT_API_PRINTF, 1, 1, f, 4, nullptr, "loop %u of writer %d", n, product);
        trcWriteRc(product, TRC_EVENT_API_EXIT, 1, 1, f, 5, nullptr, 0);
        // 8 records of about 55 bytes on average.
        bytes->fetch_add(8 * 55, std::memory_order_relaxed);
        ++n;
    }
}

// A trace written by `threads` threads and dumped to path.
void makeTrace(const std::string& path, int threads)
{
    std::vector<uint8_t> all(TRC_MASK_SIZE, 0xFF), none(TRC_MASK_SIZE, 0);
    if (trcOn(0, all.data(), -1, -1, -1, 0, 0, -1, 32768, TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK,
              none.data(), none.data(), -1, "", bufferSize) != 0) {
        fail("trcOn failed");
    }
    if (trcIsOn() != 1) {
        fail("the writers do not see the trace");
    }
    std::atomic<int64_t> bytes{0};
    const auto goal = static_cast<int64_t>(static_cast<double>(bufferSize) * fillFactor);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back(writer, 1 + t % 4, &bytes, goal);
    }
    for (std::thread& t : pool) {
        t.join();
    }
    unlink(path.c_str());
    const int32_t handle = trcFileAttach(path.c_str(), TRC_FILE_WRITE_CREATE);
    if (handle < 0 || trcDump(0, handle) != 0) {
        fail("the dump failed");
    }
    trcFileDetach(handle);
    trcOff(0);
}

std::vector<uint8_t> readAll(const std::string& path)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) {
        fail("cannot read a trace");
    }
    std::vector<uint8_t> bytes;
    uint8_t chunk[1 << 16];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + got);
    }
    std::fclose(f);
    return bytes;
}

// The same records with one thread id for all of them.
void oneThreadCopy(const std::string& from, const std::string& to)
{
    std::vector<uint8_t> bytes = readAll(from);
    auto* header = reinterpret_cast<trcHeader_t*>(bytes.data());
    uint8_t* area = bytes.data() + TRC_HEADER_SIZE;
    trcWalk_t walk;
    trcWalkBounds(header, area, bytes.size() - TRC_HEADER_SIZE, &walk);
    trcWalkEach(&walk, area, [](const trcRecord_t* r) {
        const_cast<trcRecord_t*>(r)->tid = 1;
        return true;
    });
    FILE* f = std::fopen(to.c_str(), "wb");
    if (f == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
        fail("cannot write the one-thread copy");
    }
    std::fclose(f);
}

// The same records with time stamps: 250 ns apart in record order, so
// that every thread's clock goes forward.
void stampedCopy(const std::string& from, const std::string& to)
{
    std::vector<uint8_t> bytes = readAll(from);
    auto* header = reinterpret_cast<trcHeader_t*>(bytes.data());
    uint8_t* area = bytes.data() + TRC_HEADER_SIZE;
    trcWalk_t walk;
    trcWalkBounds(header, area, bytes.size() - TRC_HEADER_SIZE, &walk);
    int64_t ns = 1700000000LL * 1000000000LL;
    trcWalkEach(&walk, area, [&ns](const trcRecord_t* r) {
        ns += 250;
        const_cast<trcRecord_t*>(r)->sec = static_cast<int32_t>(ns / 1000000000LL);
        const_cast<trcRecord_t*>(r)->nsec = static_cast<int32_t>(ns % 1000000000LL);
        return true;
    });
    FILE* f = std::fopen(to.c_str(), "wb");
    if (f == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) {
        fail("cannot write the stamped copy");
    }
    std::fclose(f);
}

struct Run {
    double seconds;
    long maxRssKiB;
};

// One run of the tool (or of program) with standard output into outPath.
Run runTool(const std::vector<std::string>& args, const std::string& outPath, const std::string& program = tool)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int fd = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, STDOUT_FILENO);
        close(fd);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(program.c_str()));
        for (const std::string& a : args) {
            argv.push_back(const_cast<char*>(a.c_str()));
        }
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    struct rusage usage {};
    wait4(child, &status, 0, &usage);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        fail("the tool failed");
    }
    return {seconds, usage.ru_maxrss};
}

long fileSize(const std::string& path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// Records in a trace, as the report's summary says.
long recordsOf(const std::string& reportPath)
{
    FILE* f = std::fopen(reportPath.c_str(), "r");
    char line[256];
    long records = -1;
    while (f != nullptr && std::fgets(line, sizeof line, f) != nullptr) {
        if (std::sscanf(line, "Records in trace        : %ld", &records) == 1) {
            break;
        }
    }
    if (f != nullptr) {
        std::fclose(f);
    }
    return records;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

struct Result {
    double seconds;
    double rssMiB;
    long outputBytes;
    long records;
};

// The median of several runs; the output of a first run is kept to count it.
Result measure(const std::string& command, const std::string& trace)
{
    const std::string out = work + "/report.txt";
    runTool({command, trace}, out);
    Result r{};
    r.outputBytes = fileSize(out);
    r.records = recordsOf(out);
    unlink(out.c_str());
    std::vector<double> seconds, rss;
    for (int i = 0; i < runs; ++i) {
        Run run = runTool({command, trace}, "/dev/null");
        seconds.push_back(run.seconds);
        rss.push_back(static_cast<double>(run.maxRssKiB) / 1024.0);
    }
    r.seconds = median(seconds);
    r.rssMiB = median(rss);
    return r;
}

// A program beside the tool, output thrown away; records from a report.
Result measureProgram(const std::string& program, const std::vector<std::string>& args, long records)
{
    Result r{};
    r.records = records;
    r.outputBytes = 0;
    std::vector<double> seconds, rss;
    for (int i = 0; i < runs; ++i) {
        Run run = runTool(args, "/dev/null", program);
        seconds.push_back(run.seconds);
        rss.push_back(static_cast<double>(run.maxRssKiB) / 1024.0);
    }
    r.seconds = median(seconds);
    r.rssMiB = median(rss);
    return r;
}

void print(const char* name, const Result& r, long traceBytes)
{
    const double indexMiB = static_cast<double>(r.records) * 16 / (1 << 20);
    char output[32] = "";  // not counted for the programs beside the tool
    if (r.outputBytes > 0) {
        std::snprintf(output, sizeof output, "%9.1f MB/s", static_cast<double>(r.outputBytes) / r.seconds / 1e6);
    }
    std::printf("%-22s %9.3f s %10.2f Mrec/s %14s %8.1f MiB peak (goal %.1f MiB)\n", name, r.seconds,
                static_cast<double>(r.records) / r.seconds / 1e6, output, r.rssMiB,
                static_cast<double>(traceBytes) / (1 << 20) + indexMiB + 16);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 1) {
        tool = argv[1];
    }
    char pattern[] = "/tmp/bench_report_XXXXXX";
    work = argc > 2 ? argv[2] : (mkdtemp(pattern) != nullptr ? pattern : "/tmp");
    setenv("KELVO_INSTANCE", ("bench-report-" + std::to_string(getpid())).c_str(), 1);
    const std::string tfi = work + "/bench.tfi";
    FILE* f = std::fopen(tfi.c_str(), "w");
    for (int p = 1; p <= 4; ++p) {
        std::fprintf(f,
                     "tfiversion 1 bldlvl \"b\" product Product%d %d component Core 1 class Reader open close "
                     "seek tell stat sync flush lock\nclass Writer put get\ncomponent Dev 2 class Disk io\n",
                     p, p);
    }
    std::fclose(f);
    setenv("TRCTFIDIR", work.c_str(), 1);

    const std::string t16 = work + "/t16.bin", t50 = work + "/t50.bin", t50as1 = work + "/t50as1.bin";
    std::printf("writing the traces into %s ...\n", work.c_str());
    makeTrace(t16, 16);
    makeTrace(t50, 50);
    oneThreadCopy(t50, t50as1);
    const std::string t16ts = work + "/t16ts.bin";
    stampedCopy(t16, t16ts);
    const long size16 = fileSize(t16), size50 = fileSize(t50);

    // The reports read files only: no live trace is reachable.
    setenv("KELVO_INSTANCE", ("bench-report-none-" + std::to_string(getpid())).c_str(), 1);
    const Result fmt16 = measure("fmt", t16);
    const Result flw16 = measure("flw", t16);
    const Result inf16 = measure("inf", t16);
    const Result flw50 = measure("flw", t50);
    const Result flw1 = measure("flw", t50as1);
    std::printf("\ntrace of 16 threads: %.1f MiB, %ld records; medians of %d runs\n",
                static_cast<double>(size16) / (1 << 20), fmt16.records, runs);
    print("fmt", fmt16, size16);
    print("flw", flw16, size16);
    std::printf("%-22s %9.3f s %30s %8.1f MiB peak\n", "inf", inf16.seconds, "", inf16.rssMiB);
    std::printf("\ntrace of 50 threads: %.1f MiB, %ld records\n", static_cast<double>(size50) / (1 << 20),
                flw50.records);
    print("flw, 50 threads", flw50, size50);
    print("flw, same as 1 thread", flw1, size50);
    std::printf("flw 50 threads / 1 thread: %.2f (goal at most 1.5)\n", flw50.seconds / flw1.seconds);

    // Standard error of the runs (none expected: the copy has time stamps)
    // is thrown away with the output's.
    const Result json = measureProgram(KELVO_EXPORT_PATH, {t16ts}, fmt16.records);
    const Result csv = measureProgram(KELVO_EXPORT_PATH, {"--csv", t16ts}, fmt16.records);
    const Result stats = measureProgram(KELVO_STATS_PATH, {t16ts}, fmt16.records);
    std::printf("\nthe trace of 16 threads with time stamps (goal at least 5 Mrec/s)\n");
    print("kelvo-export", json, size16);
    print("kelvo-export --csv", csv, size16);
    print("kelvo-stats", stats, size16);
    // A named work directory keeps the traces for a closer look.
    if (argc <= 2) {
        unlink(t16.c_str());
        unlink(t50.c_str());
        unlink(t50as1.c_str());
        unlink(t16ts.c_str());
        unlink(tfi.c_str());
        rmdir(work.c_str());
    }
    return 0;
}
