// Any bytes as a binary trace file: loaded by the loader, walked, and
// reported by the format and the flow report into /dev/null with a small
// fixed dictionary. The magic text and the layout word are put in place so
// that every input passes the loader's checks and reaches the reports.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "trcf.h"
#include "trcload.h"
#include "trcrtos.h"

namespace {

std::string tracePath;
FILE* sink = nullptr;

void writeFile(const std::string& path, const void* bytes, size_t size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || (size > 0 && write(fd, bytes, size) != static_cast<ssize_t>(size))) {
        std::abort();
    }
    close(fd);
}

// Once per process: the dictionary, no live trace, and the summary lines
// and closing counts sent where nobody reads them.
void prepare()
{
    char dir[] = "/tmp/fuzz_report_XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        std::abort();
    }
    const std::string tfi = "tfiversion 1 bldlvl \"x\" product Prod 1 component Comp 2 class Cls a b c\n"
                            "class Two f\ncomponent LongComponentName 200 class K g\n";
    writeFile(std::string(dir) + "/a.tfi", tfi.data(), tfi.size());
    setenv("TRCTFIDIR", dir, 1);
    setenv("KELVO_INSTANCE", ("fuzz-report-none-" + std::to_string(getpid())).c_str(), 1);
    trcHeader_t header{};
    if (trcRecToStrInit(&header) != 0) {
        std::abort();
    }
    tracePath = std::string(dir) + "/trace.bin";
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    close(null);
    sink = std::fopen("/dev/null", "w");
}

void report(trcHeader_t* header, long areaSize, bool format, int first, int last, int step, const char* mask)
{
    fOptions_t o;
    std::memset(o.mask, 0xFF, sizeof o.mask);
    if (mask != nullptr) {
        std::memset(o.mask + 32, 0, 32);  // events: only the entries and exits of api
        o.mask[32 + 2] = 0xC0;
    }
    o.firstRecord = first;
    o.lastRecord = last;
    o.step = step;
    trcFReport(header, areaSize, &o, format, sink, "sink");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (sink == nullptr) {
        prepare();
    }
    std::vector<uint8_t> bytes(data, data + size);
    if (bytes.size() < TRC_HEADER_SIZE) {
        bytes.resize(TRC_HEADER_SIZE, 0);
    }
    std::memcpy(bytes.data(), TRC_MAGIC, sizeof TRC_MAGIC);
    const int32_t layout = TRC_LAYOUT_ID;
    std::memcpy(bytes.data() + 8, &layout, sizeof layout);
    writeFile(tracePath, bytes.data(), bytes.size());

    trcHeader_t* header = nullptr;
    long areaSize = 0;
    if (readFile(&header, tracePath.c_str(), 1, &areaSize) != 0) {
        std::abort();
    }
    report(header, areaSize, true, 1, -1, 1, nullptr);
    report(header, areaSize, true, 2, 40, -1, "api");
    report(header, areaSize, false, 1, -1, 1, nullptr);
    report(header, areaSize, false, 3, -1, -1, "api");
    std::free(header);
    return 0;
}
