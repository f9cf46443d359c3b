// Helpers for the tests of the trace facility library.
#include "libtest.h"

#include "trcwalk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace libtest {

std::vector<uint8_t> allMask() { return std::vector<uint8_t>(TRC_MASK_SIZE, 0xFF); }
std::vector<uint8_t> noMask() { return std::vector<uint8_t>(TRC_MASK_SIZE, 0); }

int turnOn(const OnArgs& a)
{
    int32_t rc = trcOn(0, a.mask.data(), a.pid, a.tid, a.cpid, a.thisPointer, a.returnCode,
                       a.maxSevereErrors, a.maxRecordSize, a.flags, a.crashMask.data(),
                       a.pauseMask.data(), a.pauseAttrib, a.fileName.c_str(), a.bufferSize);
    if (rc != 0)
        return errno;
    // Makes the writers of this process see the new trace at once.
    trcIsOn();
    return 0;
}

Instance::Instance()
{
    static std::atomic<unsigned> serial{0};
    name_ = "libtest." + std::to_string(getpid()) + "." + std::to_string(serial++);
    setenv("KELVO_INSTANCE", name_.c_str(), 1);
}

Instance::~Instance()
{
    trcOff(0);
}

TempDir::TempDir()
{
    char pattern[] = "/tmp/kelvo-libtest-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made ? made : "/tmp";
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

int dumpTo(const std::string& path, std::string& bytes)
{
    int32_t fd = trcFileAttach(path.c_str(), TRC_FILE_WRITE_CREATE);
    if (fd < 0)
        return errno;
    int rc = trcDump(0, fd) == 0 ? 0 : errno;
    trcFileDetach(fd);
    if (rc == 0)
        bytes = readWholeFile(path);
    unlink(path.c_str());
    return rc;
}

namespace {

Found found(const trcRecord_t* r)
{
    Found f{};
    f.ids[0] = static_cast<uint8_t>(trcRecProduct(r));
    f.ids[1] = static_cast<uint8_t>(trcRecEvent(r));
    f.ids[2] = static_cast<uint8_t>(trcRecComponent(r));
    f.ids[3] = static_cast<uint8_t>(trcRecClass(r));
    f.ids[4] = static_cast<uint8_t>(trcRecFunction(r));
    f.ids[5] = static_cast<uint8_t>(trcRecTracePoint(r));
    f.thisPointer = r->thisPointer;
    f.pid = r->pid;
    f.tid = r->tid;
    f.node = r->node;
    f.cpid = r->cpid;
    f.sec = r->sec;
    f.nsec = r->nsec;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(r);
    int32_t length = r->length;
    if (length >= TRC_RECORD_MIN)
        f.data.assign(reinterpret_cast<const char*>(bytes) + TRC_RECORD_FIXED,
                      static_cast<std::size_t>(length - TRC_RECORD_MIN));
    int32_t trailing = 0;
    std::memcpy(&trailing, bytes + trcAligned(length) - 4, sizeof trailing);
    f.whole = length >= TRC_RECORD_MIN && trailing == length;
    return f;
}

} // namespace

Walked walkImage(std::string image)
{
    Walked w;
    if (image.size() < TRC_HEADER_SIZE)
        return w;
    // The walk reads words in place: give it a 4-byte aligned copy.
    std::vector<uint32_t> words((image.size() + 3) / 4);
    std::memcpy(words.data(), image.data(), image.size());
    auto* base = reinterpret_cast<uint8_t*>(words.data());
    auto* header = reinterpret_cast<const trcHeader_t*>(base);
    uint8_t* area = base + TRC_HEADER_SIZE;
    trcWalk_t walk{};
    trcWalkBounds(header, area, image.size() - TRC_HEADER_SIZE, &walk);
    w.lost = walk.hasLostRecords;
    w.complete = trcWalkEach(&walk, area, [&](const trcRecord_t* r) {
        w.records.push_back(found(r));
        return true;
    });
    w.recordCount = static_cast<int32_t>(w.records.size());
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
    std::size_t extra = n % 97;
    for (std::size_t i = 0; i < extra; ++i)
        text.push_back(static_cast<char>((n + i) & 0xFF));
    return text;
}

int64_t patternNumber(const std::string& text)
{
    if (text.rfind("n=", 0) != 0)
        return -1;
    std::size_t colon = text.find(':');
    if (colon == std::string::npos || colon < 3 || colon > 12)
        return -1;
    int64_t n = std::strtoll(text.c_str() + 2, nullptr, 10);
    if (n < 0 || patternText(static_cast<uint32_t>(n)) != text)
        return -1;
    return n;
}

} // namespace libtest
