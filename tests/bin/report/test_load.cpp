// readFile: a binary trace file of any bytes and any size is either loaded
// whole or refused with the fitting message; the live trace is handed out
// as it stands. Every load runs in a child process, since a refusal ends
// the process. The file reads of this program pass through the functions
// below, which can make a file end early, fail, or seem larger than it
// is, the way a file that shrinks or grows while it is read would.
#include <dlfcn.h>

#include "cmd_live.h"
#include "trace_image.h"
#include "trcload.h"

using kelvotest::RunResult;
using kelvotest::TempDir;

namespace {

struct ReadFault {
    int64_t endAt = -1;          // reads give nothing from this offset on (shrunk)
    int64_t failAt = -1;         // a read from this offset on fails
    int64_t sizeShown = -1;      // the size that seeking to the end reports (grown)
    bool showSemaphore = false;  // print "<P>", "<V>" and "<r>" for each read
    std::vector<int32_t> asked;  // byte counts asked for, in order
    int64_t position = 0;
};
ReadFault fault;

template <typename Fn>
Fn realFunction(const char* name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

int32_t passSemaphore(const char* name, const char* shown)
{
    std::printf("%s", fault.showSemaphore ? shown : "");
    return realFunction<int32_t (*)(void)>(name)();
}

}  // namespace

extern "C" int32_t trcSemP(void) { return passSemaphore("trcSemP", "<P>"); }
extern "C" int32_t trcSemV(void) { return passSemaphore("trcSemV", "<V>"); }

extern "C" int32_t trcFileRead(int32_t handle, void* buffer, int32_t count)
{
    fault.asked.push_back(count);
    std::printf("%s", fault.showSemaphore ? "<r>" : "");
    if (fault.failAt >= 0 && fault.position >= fault.failAt) {
        return -1;
    }
    if (fault.endAt >= 0 && fault.position + count > fault.endAt) {
        count = static_cast<int32_t>(std::max<int64_t>(0, fault.endAt - fault.position));
    }
    const int32_t got = realFunction<int32_t (*)(int32_t, void*, int32_t)>("trcFileRead")(handle, buffer, count);
    fault.position += std::max(got, 0);
    return got;
}

extern "C" int64_t trcFileSeek(int32_t handle, int64_t offset, int32_t origin)
{
    fault.position = realFunction<int64_t (*)(int32_t, int64_t, int32_t)>("trcFileSeek")(handle, offset, origin);
    return origin == 2 && fault.sizeShown >= 0 ? fault.sizeShown : fault.position;
}

namespace {

// Loads file in a child with no trace on its instance; prints the result,
// the area size, a line end, the whole block and the byte counts read.
RunResult load(const std::string& file, const ReadFault& with = {}, int forFormatting = 1)
{
    const std::string instance = "load" + std::to_string(getpid()) + "_none";
    return kelvotest::captureChild([&] {
        setenv("KELVO_INSTANCE", instance.c_str(), 1);
        fault = with;
        trcHeader_t* header = nullptr;
        long areaSize = -7;
        const int rc = readFile(&header, file.c_str(), forFormatting, &areaSize);
        std::printf("%d %ld\n", rc, areaSize);
        std::fwrite(header, 1, TRC_HEADER_SIZE + static_cast<size_t>(areaSize), stdout);
        std::printf("|asked");
        for (int32_t n : fault.asked) {
            std::printf(" %d", n);
        }
    });
}

// What load prints for a file of these bytes, read in chunks of 16384.
std::string loaded(const std::string& bytes)
{
    std::string asked;
    for (size_t at = 0; at < bytes.size(); at += 16384) {
        asked += " ";
        asked += std::to_string(std::min<size_t>(bytes.size() - at, 16384));
    }
    return "0 " + std::to_string(bytes.size() - 3000) + "\n" + bytes + "|asked" + asked;
}
const auto invalid = [](const std::string& file) { return file + " is an invalid binary trace file.\n"; };
const auto unreadable = [](const std::string& file) { return "Could not read from " + file + ".\n"; };

kelvotest::TraceImage someTrace(int32_t bufferSize)
{
    kelvotest::TraceImage img = kelvotest::traceImageNew(bufferSize, TRC_KEEP_LAST);
    for (int i = 0; i < 5; ++i) {
        kelvotest::traceImageAddText(img, "record " + std::to_string(i));
    }
    return img;
}

}  // namespace

// The whole file is the trace, larger or shorter than its header says, down
// to the header alone; it is read in chunks of 16384 bytes, the last one
// only as large as what is left. The information report reads the same.
TEST(Load, AFileIsLoadedWhole)
{
    TempDir dir;
    kelvotest::TraceImage img = someTrace(32768);
    for (const auto& [area, forFormatting] :
         std::vector<std::pair<size_t, int>>{{32768, 1}, {40000, 1}, {100, 1}, {0, 1}, {0, 0}}) {
        SCOPED_TRACE(area);
        kelvotest::traceImageResize(img, area);
        const std::string bytes = kelvotest::traceImageBytes(img);
        const std::string file = dir.write("t.bin", bytes);
        EXPECT_RUN(load(file, {}, forFormatting), loaded(bytes), kelvotest::childReturned);
    }
}

// Too short, a wrong magic text, or another layout, which names its
// version: the text from offset 12 up to its first zero byte, into the
// fields behind it when all 8 bytes are used, but never past the file.
TEST(Load, FilesThatAreNotTraces)
{
    TempDir dir;
    kelvotest::TraceImage img = someTrace(4096);
    const std::string good = kelvotest::traceImageBytes(img);
    std::vector<std::pair<std::string, std::string>> cases;  // bytes, version; none: invalid
    for (size_t size : {0, 1, 7, 8, 12, 16, 2999}) {
        cases.push_back({good.substr(0, size), ""});
    }
    for (const char* magic : {"@TRACE!", "@trace@", "@TRACE@X", "@TRACE\0"}) {
        cases.push_back({std::string(magic, 8) + good.substr(8), ""});
    }
    cases.push_back({std::string(100000, 'x'), ""});
    trcHeader_t* header = kelvotest::traceImageHeader(img);
    header->layoutId = 3000;
    std::memcpy(header->traceVersion, "V1\0", 3);
    cases.push_back({kelvotest::traceImageBytes(img), "V1"});
    std::memcpy(header->traceVersion, "ABCDEFGH", 8);
    std::memcpy(header->opSystem, "Linux\0", 6);
    cases.push_back({kelvotest::traceImageBytes(img), "ABCDEFGHLinux"});
    std::string noZero = cases.back().first.substr(0, 3000);
    std::memset(noZero.data() + 12, 'v', 3000 - 12);
    cases.push_back({noZero, std::string(2988, 'v')});
    for (const auto& [bytes, version] : cases) {
        SCOPED_TRACE(bytes.substr(0, 16));
        const std::string file = dir.write("f.bin", bytes);
        EXPECT_RUN(load(file),
                   version.empty() ? invalid(file) : "Use trc version \"" + version + "\" to format this file.\n", 1);
    }
}

// A file that ends before the size taken at the start is refused as
// unreadable; one that has grown is read up to that size and no further.
TEST(Load, FilesThatCannotBeReadOrChangeWhileRead)
{
    TempDir dir;
    const std::string missing = dir.file("missing.bin");
    EXPECT_RUN(load(missing), "Could not open " + missing + " in read mode.\n", 1);
    EXPECT_RUN(load(dir.path()), unreadable(dir.path()), 1);
    const std::string bytes = kelvotest::traceImageBytes(someTrace(65536));
    const std::string file = dir.write("t.bin", bytes);
    ReadFault failing;
    failing.failAt = 16384;
    EXPECT_RUN(load(file, failing), unreadable(file), 1);
    for (int64_t end : {0, 100, 2999, 3000, 16384, 50000, 68535}) {
        SCOPED_TRACE(end);
        ReadFault shrunk;
        shrunk.endAt = end;
        EXPECT_RUN(load(file, shrunk), unreadable(file), 1);
    }
    for (int64_t shown : {2999, 3000, 3001, 16384, 16385, 40000}) {
        SCOPED_TRACE(shown);
        ReadFault grown;
        grown.sizeShown = shown;
        EXPECT_RUN(load(file, grown), shown < 3000 ? invalid(file) : loaded(bytes.substr(0, shown)),
                   shown < 3000 ? 1 : kelvotest::childReturned);
    }
}

// The live trace: refused when there is none, handed out in place for the
// information report, read from its file for the reports of its records.
// The semaphore keeps the writers out while a file that a running trace
// writes is copied (any file, but not for the information report), and is
// free again when readFile returns or fails.
TEST(Load, TheLiveTraceAndTheSemaphore)
{
    TempDir dir;
    kelvotest::openToAll(dir);
    kelvotest::LiveInstance live;
    const std::string other = dir.write("other.bin", kelvotest::traceImageBytes(someTrace(4096)));
    const std::string bad = dir.write("bad.bin", std::string(5000, 'x'));
    const auto loadShown = [&](const std::string& file, int forFormatting) {
        return live.inChild([&] {
            fault.showSemaphore = true;
            trcHeader_t* header = nullptr;
            long areaSize = 0;
            readFile(&header, file.c_str(), forFormatting, &areaSize);
            std::printf("|%ld %s %u", areaSize, header == trcAttach(0, 0, 0) ? "live" : "copy", header->flags);
        });
    };
    const std::string otherCopy = "|4096 copy " + std::to_string(TRC_KEEP_LAST);
    const std::string otherLoaded = "<r>" + otherCopy, otherLocked = "<P><r><V>" + otherCopy;
    const std::string on = "Trace is turned on\n", off = "Trace is turned off\n";
    EXPECT_RUN(loadShown("-", 1), "Trace is off.\n", 1);
    EXPECT_RUN(loadShown("-", 0), "Trace is off.\n", 1);
    EXPECT_RUN(loadShown(other, 1), otherLoaded, kelvotest::childReturned);

    EXPECT_RUN(live.run({"on", "-l", "8192"}), on, 0);
    EXPECT_RUN(loadShown("-", 1), "<P><V>|8192 live 137", kelvotest::childReturned);
    EXPECT_RUN(loadShown(other, 1), otherLoaded, kelvotest::childReturned);
    EXPECT_RUN(live.run({"off"}), off, 0);

    EXPECT_RUN(live.run({"on", "-n"}), on, 0);
    EXPECT_RUN(loadShown("-", 1), "<P><V>Can not format native trace.\n", 1);
    EXPECT_RUN(loadShown("-", 0), "<P><V>|0 live 140", kelvotest::childReturned);
    EXPECT_RUN(live.run({"off"}), off, 0);

    EXPECT_RUN(live.run({"on", "-f", dir.file("t.bin"), "-i", "4096"}), on, 0);
    EXPECT_RUN(loadShown("-", 1), "<P><r><V>|4096 copy 146", kelvotest::childReturned);
    EXPECT_RUN(loadShown("-", 0), "<P><V>|4096 live 146", kelvotest::childReturned);
    EXPECT_RUN(loadShown(other, 1), otherLocked, kelvotest::childReturned);
    EXPECT_RUN(loadShown(other, 0), otherLoaded, kelvotest::childReturned);
    EXPECT_RUN(loadShown(bad, 1), "<P><r><V>" + invalid(bad), 1);
    EXPECT_RUN(loadShown(dir.file("none"), 1), "<P><V>Could not open " + dir.file("none") + " in read mode.\n", 1);
}
