// Helpers for the tests of the trace facility library.
#include "libtest.h"

#include "trcwalk.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kelvotest {

std::vector<uint8_t> allMask() { return std::vector<uint8_t>(TRC_MASK_SIZE, 0xFF); }
std::vector<uint8_t> noMask() { return std::vector<uint8_t>(TRC_MASK_SIZE, 0); }

int turnOn(const OnArgs& a)
{
    if (trcOn(0, a.mask.data(), a.pid, a.tid, a.cpid, a.thisPointer, a.returnCode, a.maxSevereErrors, a.maxRecordSize,
              a.flags, a.crashMask.data(), a.pauseMask.data(), a.pauseAttrib, a.fileName.c_str(), a.bufferSize) != 0)
        return errno;
    trcIsOn();  // the writers of this process see the new trace at once
    return 0;
}

int change(const OnArgs& a)
{
    return trcChg(a.mask.data(), a.pid, a.tid, a.cpid, a.thisPointer, a.returnCode, a.maxSevereErrors, a.maxRecordSize,
                  a.flags, a.crashMask.data(), a.pauseMask.data(), a.pauseAttrib) == 0
               ? 0
               : errno;
}

Instance::Instance()
{
    static std::atomic<unsigned> serial{0};
    name_ = "libtest." + std::to_string(getpid()) + "." + std::to_string(serial++);
    setenv("KELVO_INSTANCE", name_.c_str(), 1);
}

KeepProcessors::KeepProcessors()
{
    CPU_ZERO(&before_);
    sched_getaffinity(0, sizeof before_, &before_);
}

KeepProcessors::~KeepProcessors() { sched_setaffinity(0, sizeof before_, &before_); }

void runOn(int cpu)
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu < 0 ? 0 : cpu, &one);
    EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0) << cpu;
}

int dumpTo(const std::string& path, std::string& bytes)
{
    int32_t fd = trcFileAttach(path.c_str(), TRC_FILE_WRITE_CREATE);
    if (fd < 0)
        return errno;
    int rc = trcDump(0, fd) == 0 ? 0 : errno;
    trcFileDetach(fd);
    bytes = rc == 0 ? readFile(path) : std::string();
    unlink(path.c_str());
    return rc;
}

Walked walkImage(const std::string& image)
{
    Walked w;
    if (image.size() < TRC_HEADER_SIZE)
        return w;
    // The walk reads words in place: give it a 4-byte aligned copy.
    std::vector<uint32_t> words((image.size() + 3) / 4);
    std::memcpy(words.data(), image.data(), image.size());
    auto* base = reinterpret_cast<uint8_t*>(words.data());
    uint8_t* area = base + TRC_HEADER_SIZE;
    trcWalk_t walk{};
    std::size_t areaSize = image.size() - TRC_HEADER_SIZE;
    trcWalkBounds(reinterpret_cast<const trcHeader_t*>(base), area, areaSize, &walk);
    w.lost = walk.hasLostRecords;
    w.complete = trcWalkEach(&walk, area, [&](const trcRecord_t* r) {
        Found f{*r, {}, {}, false};
        f.ids = {static_cast<uint8_t>(trcRecProduct(r)),   static_cast<uint8_t>(trcRecEvent(r)),
                 static_cast<uint8_t>(trcRecComponent(r)), static_cast<uint8_t>(trcRecClass(r)),
                 static_cast<uint8_t>(trcRecFunction(r)),  static_cast<uint8_t>(trcRecTracePoint(r))};
        const char* bytes = reinterpret_cast<const char*>(r);
        int32_t trailing = -1;
        if (r->length >= TRC_RECORD_MIN)
            std::memcpy(&trailing, bytes + trcAligned(r->length) - 4, sizeof trailing);
        f.whole = r->length >= TRC_RECORD_MIN && trailing == r->length;
        if (f.whole)
            f.data.assign(bytes + TRC_RECORD_FIXED, bytes + r->length - 4);
        w.records.push_back(f);
        return true;
    });
    return w;
}

Walked dumpAndWalk(const TempDir& dir)
{
    static std::atomic<unsigned> serial{0};
    std::string bytes;
    if (dumpTo(dir.file("dump" + std::to_string(serial++)), bytes) != 0)
        return Walked{};
    return walkImage(bytes);
}

std::string patternText(uint32_t n)
{
    std::string text = "n=" + std::to_string(n) + ":";
    for (uint32_t i = 0; i < n % 97; ++i)
        text.push_back(static_cast<char>((n + i) & 0xFF));
    return text;
}

int64_t patternNumber(const std::string& text)
{
    if (text.rfind("n=", 0) != 0 || text.size() < 4 || text.size() > 128)
        return -1;
    int64_t n = std::strtoll(text.c_str() + 2, nullptr, 10);
    return n >= 0 && n <= UINT32_MAX && patternText(static_cast<uint32_t>(n)) == text ? n : -1;
}

void expectRun(const Walked& w, int64_t last)
{
    ASSERT_TRUE(w.complete);
    for (std::size_t i = 0; i < w.records.size(); ++i) {
        ASSERT_TRUE(w.records[i].whole) << i;
        int64_t expected = last - static_cast<int64_t>(w.records.size() - 1 - i);
        ASSERT_EQ(patternNumber(w.records[i].data), expected) << i;
    }
}

}  // namespace kelvotest
