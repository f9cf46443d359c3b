// readFile: a binary trace file of any bytes and any size is either loaded
// whole or refused with the fitting message; the live trace is handed out
// as it stands.
//
// Every load runs in a child process, since a refusal ends the process.
// The file reads of this test program pass through the two functions
// below, which can make a file end early, fail, or seem shorter than it
// is, the way a file that shrinks or grows while it is read would.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../cmd/cmd_live.h"
#include "kelvo/facility.h"
#include "run_tool.h"
#include "trace_image.h"
#include "trcload.h"

using kelvotest::RunResult;
using kelvotest::TempDir;

namespace {

struct ReadFault {
    int64_t endAt = -1;       // reads give nothing from this offset on (shrunk)
    int64_t failAt = -1;      // a read from this offset on fails
    int64_t sizeShown = -1;   // the size that seeking to the end reports (grown)
    bool showSemaphore = false;  // print "<P>", "<V>" and "<r>" for each read
    std::vector<int32_t> asked;  // byte counts asked for, in order
    int64_t position = 0;
};
ReadFault fault;

template <typename Fn> Fn realFunction(const char* name)
{
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int32_t trcFileRead(int32_t handle, void* buffer, int32_t count)
{
    static auto real = realFunction<int32_t (*)(int32_t, void*, int32_t)>("trcFileRead");
    fault.asked.push_back(count);
    if (fault.showSemaphore) {
        std::printf("<r>");
    }
    if (fault.failAt >= 0 && fault.position >= fault.failAt) {
        return -1;
    }
    if (fault.endAt >= 0 && fault.position + count > fault.endAt) {
        count = static_cast<int32_t>(std::max<int64_t>(0, fault.endAt - fault.position));
    }
    const int32_t got = real(handle, buffer, count);
    fault.position += got > 0 ? got : 0;
    return got;
}

extern "C" int64_t trcFileSeek(int32_t handle, int64_t offset, int32_t origin)
{
    static auto real = realFunction<int64_t (*)(int32_t, int64_t, int32_t)>("trcFileSeek");
    const int64_t at = real(handle, offset, origin);
    fault.position = at;
    if (origin == 2 && fault.sizeShown >= 0) {
        return fault.sizeShown;
    }
    return at;
}

extern "C" int32_t trcSemP(void)
{
    static auto real = realFunction<int32_t (*)(void)>("trcSemP");
    if (fault.showSemaphore) {
        std::printf("<P>");
    }
    return real();
}

extern "C" int32_t trcSemV(void)
{
    static auto real = realFunction<int32_t (*)(void)>("trcSemV");
    if (fault.showSemaphore) {
        std::printf("<V>");
    }
    return real();
}

namespace {

// Loads file in a child with no trace on the machine's instance of it;
// prints the area size, a line end and the whole block.
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

std::string loaded(const std::string& bytes, const std::string& asked)
{
    return "0 " + std::to_string(static_cast<long>(bytes.size()) - 3000) + "\n" + bytes +
           "|asked" + asked;
}

std::string invalid(const std::string& file)
{
    return file + " is an invalid binary trace file.\n";
}

std::string unreadable(const std::string& file)
{
    return "Could not read from " + file + ".\n";
}

kelvotest::TraceImage someTrace(int32_t bufferSize)
{
    kelvotest::TraceImage img = kelvotest::traceImageNew(bufferSize, TRC_KEEP_LAST);
    for (int i = 0; i < 5; ++i) {
        kelvotest::traceImageAddText(img, "record " + std::to_string(i));
    }
    return img;
}

}  // namespace

// The whole file is the trace, whatever its header says about the size of
// the area; it is read in chunks of 16384 bytes, the last one only as large
// as what is left.
TEST(Load, AFileIsLoadedWhole)
{
    TempDir dir;
    kelvotest::TraceImage img = someTrace(32768);
    std::string bytes = kelvotest::traceImageBytes(img);
    std::string file = dir.write("t.bin", bytes);
    EXPECT_RUN(load(file), loaded(bytes, " 16384 16384 3000"), kelvotest::childReturned);

    // Larger than its header says.
    kelvotest::traceImageResize(img, 40000);
    bytes = kelvotest::traceImageBytes(img);
    file = dir.write("larger.bin", bytes);
    EXPECT_RUN(load(file), loaded(bytes, " 16384 16384 10232"), kelvotest::childReturned);

    // Shorter than its header says, down to the header alone.
    kelvotest::traceImageResize(img, 100);
    bytes = kelvotest::traceImageBytes(img);
    file = dir.write("shorter.bin", bytes);
    EXPECT_RUN(load(file), loaded(bytes, " 3100"), kelvotest::childReturned);
    kelvotest::traceImageResize(img, 0);
    bytes = kelvotest::traceImageBytes(img);
    file = dir.write("header.bin", bytes);
    EXPECT_RUN(load(file), loaded(bytes, " 3000"), kelvotest::childReturned);

    // The information report reads files the same way.
    EXPECT_RUN(load(file, {}, 0), loaded(bytes, " 3000"), kelvotest::childReturned);
}

TEST(Load, ShortFilesAreInvalid)
{
    TempDir dir;
    const std::string bytes = kelvotest::traceImageBytes(someTrace(4096));
    for (size_t size : {0, 1, 7, 8, 12, 16, 2999}) {
        SCOPED_TRACE(size);
        const std::string file = dir.write("short" + std::to_string(size), bytes.substr(0, size));
        EXPECT_RUN(load(file), invalid(file), 1);
    }
}

TEST(Load, AWrongMagicTextIsInvalidAtAnySize)
{
    TempDir dir;
    const std::string good = kelvotest::traceImageBytes(someTrace(4096));
    for (const std::string& magic : {std::string("@TRACE!\0", 8), std::string("@trace@\0", 8),
                                    std::string("@TRACE@X", 8), std::string("@TRACE\0\0", 8)}) {
        SCOPED_TRACE(magic);
        const std::string file = dir.write("m.bin", magic + good.substr(8));
        EXPECT_RUN(load(file), invalid(file), 1);
    }
    const std::string other = dir.write("text.bin", std::string(100000, 'x'));
    EXPECT_RUN(load(other), invalid(other), 1);
}

// The version text goes from offset 12 up to its first zero byte, into the
// fields behind it when all 8 bytes are used, but never past the file.
TEST(Load, AnotherLayoutNamesItsVersion)
{
    TempDir dir;
    kelvotest::TraceImage img = someTrace(4096);
    trcHeader_t* header = kelvotest::traceImageHeader(img);
    header->layoutId = 3000;
    std::memcpy(header->traceVersion, "V1\0", 3);
    std::string file = dir.write("v1.bin", kelvotest::traceImageBytes(img));
    EXPECT_RUN(load(file), "Use trc version \"V1\" to format this file.\n", 1);

    std::memcpy(header->traceVersion, "ABCDEFGH", 8);
    std::memcpy(header->opSystem, "Linux\0", 6);
    file = dir.write("full.bin", kelvotest::traceImageBytes(img));
    EXPECT_RUN(load(file), "Use trc version \"ABCDEFGHLinux\" to format this file.\n", 1);

    std::string noZero = kelvotest::traceImageBytes(img).substr(0, 3000);
    std::memset(noZero.data() + 12, 'v', 3000 - 12);
    file = dir.write("nozero.bin", noZero);
    EXPECT_RUN(load(file), "Use trc version \"" + std::string(2988, 'v') + "\" to format this file.\n",
               1);
}

TEST(Load, FilesThatCannotBeOpenedOrRead)
{
    TempDir dir;
    const std::string missing = dir.file("missing.bin");
    EXPECT_RUN(load(missing), "Could not open " + missing + " in read mode.\n", 1);
    const std::string directory = dir.file("d");
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    EXPECT_RUN(load(directory), unreadable(directory), 1);

    const std::string file = dir.write("t.bin", kelvotest::traceImageBytes(someTrace(65536)));
    ReadFault failing;
    failing.failAt = 16384;
    EXPECT_RUN(load(file, failing), unreadable(file), 1);
}

// A file that ends before the size taken at the start is refused as
// unreadable; one that has grown is read up to that size and no further.
TEST(Load, AFileThatChangesWhileItIsRead)
{
    TempDir dir;
    const std::string bytes = kelvotest::traceImageBytes(someTrace(65536));
    const std::string file = dir.write("t.bin", bytes);
    for (int64_t end : {0, 100, 2999, 3000, 16384, 50000, 68535}) {
        SCOPED_TRACE(end);
        ReadFault shrunk;
        shrunk.endAt = end;
        EXPECT_RUN(load(file, shrunk), unreadable(file), 1);
    }
    for (int64_t shown : {3000, 3001, 16384, 16385, 40000}) {
        SCOPED_TRACE(shown);
        ReadFault grown;
        grown.sizeShown = shown;
        std::string asked;
        for (int64_t left = shown; left > 0; left -= 16384) {
            asked += " " + std::to_string(std::min<int64_t>(left, 16384));
        }
        EXPECT_RUN(load(file, grown), loaded(bytes.substr(0, shown), asked),
                   kelvotest::childReturned);
    }
    ReadFault tiny;
    tiny.sizeShown = 2999;
    EXPECT_RUN(load(file, tiny), invalid(file), 1);
}

// The live trace: refused when there is none, handed out in place for the
// information report, read from its file for the reports of its records.
TEST(Load, TheLiveTrace)
{
    // The trace goes off before the directory of its file goes.
    TempDir dir;
    cmdlive::openToAll(dir);
    cmdlive::LiveInstance live;
    const auto loadLive = [&](int forFormatting) {
        return live.inChild([&] {
            trcHeader_t* header = nullptr;
            long areaSize = -7;
            readFile(&header, "-", forFormatting, &areaSize);
            std::printf("%ld %s %u", areaSize, header == trcAttach(0, 0, 0) ? "live" : "copy",
                        header->flags);
        });
    };
    EXPECT_RUN(loadLive(1), "Trace is off.\n", 1);
    EXPECT_RUN(loadLive(0), "Trace is off.\n", 1);

    EXPECT_RUN(live.run({"on", "-n"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadLive(1), "Can not format native trace.\n", 1);
    EXPECT_RUN(loadLive(0), "0 live 140", kelvotest::childReturned);
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);

    EXPECT_RUN(live.run({"on", "-l", "8192"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadLive(1), "8192 live 137", kelvotest::childReturned);
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);

    EXPECT_RUN(live.run({"on", "-f", dir.file("t.bin"), "-i", "4096"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadLive(1), "4096 copy 146", kelvotest::childReturned);
    EXPECT_RUN(loadLive(0), "4096 live 146", kelvotest::childReturned);
}

// The semaphore keeps the writers out while a file that a running trace
// writes is copied, and is free again when readFile returns or fails.
TEST(Load, TheSemaphoreIsHeldOnlyWhileATraceIsCopied)
{
    TempDir dir;
    cmdlive::openToAll(dir);
    cmdlive::LiveInstance live;
    const std::string other = dir.write("other.bin", kelvotest::traceImageBytes(someTrace(4096)));
    const std::string bad = dir.write("bad.bin", std::string(5000, 'x'));
    const auto loadShown = [&](const std::string& file, int forFormatting) {
        return live.inChild([&] {
            fault.showSemaphore = true;
            trcHeader_t* header = nullptr;
            long areaSize = 0;
            readFile(&header, file.c_str(), forFormatting, &areaSize);
            std::printf("|%ld", areaSize);
        });
    };
    // No trace: a file is read without the semaphore.
    EXPECT_RUN(loadShown(other, 1), "<r>|4096", kelvotest::childReturned);

    EXPECT_RUN(live.run({"on", "-l", "8192"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadShown("-", 1), "<P><V>|8192", kelvotest::childReturned);
    EXPECT_RUN(loadShown(other, 1), "<r>|4096", kelvotest::childReturned);
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);

    EXPECT_RUN(live.run({"on", "-n"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadShown("-", 1), "<P><V>Can not format native trace.\n", 1);
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);

    EXPECT_RUN(live.run({"on", "-f", dir.file("t.bin"), "-i", "4096"}), "Trace is turned on\n", 0);
    EXPECT_RUN(loadShown("-", 1), "<P><r><V>|4096", kelvotest::childReturned);
    EXPECT_RUN(loadShown("-", 0), "<P><V>|4096", kelvotest::childReturned);
    // Any file is read under the semaphore while a file trace runs, but
    // not for the information report.
    EXPECT_RUN(loadShown(other, 1), "<P><r><V>|4096", kelvotest::childReturned);
    EXPECT_RUN(loadShown(other, 0), "<r>|4096", kelvotest::childReturned);
    EXPECT_RUN(loadShown(bad, 1), "<P><r><V>" + invalid(bad), 1);
    EXPECT_RUN(loadShown(dir.file("none"), 1),
               "<P><V>Could not open " + dir.file("none") + " in read mode.\n", 1);
}
