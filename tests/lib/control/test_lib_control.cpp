// The operations of the trace facility that the tool calls.
#include "libtest.h"
#include "run_tool.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>

using namespace kelvotest;

namespace {

using Bytes = std::vector<uint8_t>;

class LibControl : public testing::Test {
protected:
    // Names in /dev/shm that belong to the instance.
    int objects() const
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm"))
            count += entry.path().filename().string().rfind("kelvo." + instance.name(), 0) == 0;
        return count;
    }
    // errno of each operation that needs a trace, when there is none.
    std::vector<int> refusalsWithoutTrace() const
    {
        auto err = [](bool failed) { return failed ? errno : 0; };
        std::string bytes;
        errno = 0;
        return {err(trcAttach(0, 0, 0) == nullptr),
                err(trcClear(0) != 0),
                change(OnArgs{}),
                dumpTo(dir.file("d"), bytes),
                trcSemAttach(),
                trcIsOn(),
                err(trcOff(0) != 0)};
    }
    Instance instance;
    TempDir dir;
    OnArgs args;
};

std::string text8(const char* field) { return std::string(field, strnlen(field, 8)); }

auto settings(const trcHeader_t* h)
{
    return std::tuple(h->tracePid, h->traceTid, h->traceCpid, h->thisPointer, h->sysErrRc, h->maxSevereErrors,
                      h->maxRecordSize, h->flags, h->pauseAttrib);
}

auto masks(const trcHeader_t* h)
{
    auto bytes = [](const uint8_t* mask) { return Bytes(mask, mask + TRC_MASK_SIZE); };
    return std::tuple(bytes(h->mask), bytes(h->crashMask), bytes(h->pauseMask));
}

}  // namespace

TEST_F(LibControl, OnOffAndTheirRefusals)
{
    const std::vector<int> refused{ENOENT, ENOENT, ENOENT, ENOENT, -1, 0, ENOENT};
    EXPECT_EQ(refusalsWithoutTrace(), refused);
    EXPECT_EQ(turnOn(args), 0);
    EXPECT_EQ(std::tuple(objects(), trcIsOn(), trcSemAttach()), std::tuple(1, 1, 0));
    EXPECT_EQ(turnOn(args), EEXIST);
    EXPECT_EQ(trcOff(0), 0);
    EXPECT_EQ(objects(), 0);
    EXPECT_EQ(refusalsWithoutTrace(), refused);
}

TEST_F(LibControl, SizesTheFormatCannotUseAreRefusedAndLeaveNothing)
{
    auto refuse = [&](int expected) {
        SCOPED_TRACE(testing::Message() << args.bufferSize << " " << args.fileName.substr(0, 40));
        EXPECT_EQ(turnOn(args), expected);
        EXPECT_EQ(objects(), 0);
        EXPECT_EQ(trcAttach(0, 0, 0), nullptr);
    };
    for (int64_t size : {int64_t{0}, int64_t{-1}, int64_t{32}, int64_t{100}, int64_t{65537}, int64_t{65536 * 3 + 4096},
                         int64_t{3} << 31, int64_t{1} << 40}) {
        args.bufferSize = size;
        refuse(EINVAL);
    }
    args.flags = TRC_DEST_MMIO | TRC_KEEP_LAST;
    args.bufferSize = 0;
    refuse(ENODEV);
    args.flags = TRC_DEST_FILE | TRC_KEEP_LAST;
    args.bufferSize = 65536;
    args.fileName = "/nonexistent-dir-for-kelvo/trace.bin";
    refuse(ENOENT);
    args.fileName = std::string(256, 'x');
    refuse(EINVAL);

    for (int64_t size : {int64_t{64}, int64_t{4096}, int64_t{65536}, int64_t{65536 * 3}}) {
        args = OnArgs{};
        args.bufferSize = size;
        EXPECT_EQ(turnOn(args), 0) << size;
        const trcHeader_t* h = trcAttach(0, 0, 0);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->bufferSize, size);
        EXPECT_EQ(trcOff(0), 0);
    }
}

TEST_F(LibControl, HeaderOfANewTrace)
{
    const uint32_t flags = TRC_DEST_SHARED | TRC_KEEP_INITIAL | TRC_OPTION_T;
    args = OnArgs{noMask(), 7, -1, 9, 0xABCD, -5, 3, 100, flags, noMask(), noMask(), 4, "", 131072};
    args.mask[0] = 0x02;
    args.crashMask[1] = 0x10;
    args.pauseMask[2] = 0x20;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_STREQ(h->magic, "@TRACE@");
    EXPECT_FALSE(text8(h->traceVersion).empty());
    EXPECT_EQ(std::tuple(h->layoutId, text8(h->opSystem), text8(h->hwPlatform)), std::tuple(3004, "Linux", "x86_64"));
    EXPECT_EQ(std::string(h->prodVersion[0], 8), std::string(".......", 8));
    EXPECT_EQ(std::string(h->prodVersion[255], 8), std::string(".......", 8));
    EXPECT_EQ(std::tuple(h->traceOff, h->traceFull, h->bufferSize, h->fileName[0]), std::tuple(0, 0, 131072, '\0'));
    EXPECT_EQ(settings(h), std::tuple(7, -1, 9, 0xABCDu, -5, 3, 100, args.flags, 4));
    EXPECT_EQ(masks(h), std::tuple(args.mask, args.crashMask, args.pauseMask));

    EXPECT_EQ(trcSetProdVersion(3, "1.2.3-long-level"), 0);
    EXPECT_EQ(std::string(h->prodVersion[3], 8), "1.2.3-lo");
    EXPECT_EQ(trcSetProdVersion(4, "v2"), 0);
    EXPECT_EQ(std::string(h->prodVersion[4], 8), std::string("v2\0\0\0\0\0\0", 8));
    EXPECT_EQ(trcSetProdVersion(256, "x"), -1);
    EXPECT_EQ(errno, EINVAL);
    // A level set before the trace is kept for the next one.
    EXPECT_EQ(trcOff(0), 0);
    EXPECT_EQ(trcSetProdVersion(5, "early"), 1);
    ASSERT_EQ(turnOn(OnArgs{}), 0);
    h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(std::tuple(text8(h->prodVersion[5]), text8(h->prodVersion[3])), std::tuple("early", "1.2.3-lo"));
}

TEST_F(LibControl, ChangeTakesTheSettingsAndOnlyTheCrashAndPauseFlags)
{
    args.flags |= TRC_OPTION_T;
    ASSERT_EQ(turnOn(args), 0);
    OnArgs next{noMask(), 11,       12, 13, 14, 15, 16, 200, TRC_USE_PAUSE_MASK | TRC_DEST_FILE | TRC_KEEP_INITIAL,
                noMask(), noMask(), 30, "", 0};
    next.mask[0] = 0x04;
    next.crashMask[3] = 0x80;
    next.pauseMask[5] = 0x01;
    ASSERT_EQ(change(next), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    const uint32_t kept = TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK | TRC_OPTION_T;
    EXPECT_EQ(settings(h), std::tuple(11, 12, 13, 14u, 15, 16, 200, kept | TRC_USE_PAUSE_MASK, 30));
    // Without its flag the crash mask stays as it was.
    EXPECT_EQ(masks(h), std::tuple(next.mask, noMask(), next.pauseMask));
    next.flags = TRC_USE_CRASH_MASK;
    ASSERT_EQ(change(next), 0);
    EXPECT_EQ(masks(h), std::tuple(next.mask, next.crashMask, next.pauseMask));
    EXPECT_EQ(h->flags, kept | TRC_USE_CRASH_MASK);
}

TEST_F(LibControl, FileOperations)
{
    std::string path = dir.file("f");
    int32_t fd = trcFileAttach(path.c_str(), TRC_FILE_WRITE_CREATE);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "hello world", 11), 11);
    EXPECT_EQ(trcFileDetach(fd), 0);
    EXPECT_EQ(trcFileDetach(fd), -1);
    fd = trcFileAttach(path.c_str(), TRC_FILE_READ);
    ASSERT_GE(fd, 0);
    char buffer[16] = {};
    EXPECT_EQ(trcFileSeek(fd, 0, 2), 11);
    EXPECT_EQ(trcFileSeek(fd, 6, 0), 6);
    EXPECT_EQ(trcFileRead(fd, buffer, 16), 5);
    EXPECT_STREQ(buffer, "world");
    EXPECT_EQ(trcFileRead(fd, buffer, 16), 0);
    EXPECT_EQ(trcFileDetach(fd), 0);
    EXPECT_EQ(trcFileAttach(dir.file("missing").c_str(), TRC_FILE_READ), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcFileAttach(path.c_str(), 3), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(LibControl, NativeTraceCannotBeClearedNorDumped)
{
    args.flags = TRC_DEST_NATIVE | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK;
    args.bufferSize = 0;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->bufferSize, 0);
    EXPECT_EQ(trcClear(0), -1);
    EXPECT_EQ(errno, EINVAL);
    std::string bytes;
    EXPECT_EQ(dumpTo(dir.file("d"), bytes), EINVAL);
    EXPECT_EQ(trcWrite(1, 30, 1, 1, 1, 1, nullptr, "to the native trace", 19), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 1, 1, 1, 1, nullptr, -1), 0);
}

TEST_F(LibControl, FileDestinationHoldsATraceFileAndIsNotDumped)
{
    args.flags = TRC_DEST_FILE | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK;
    args.fileName = dir.file("live.bin");
    args.bufferSize = 65536;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_STREQ(h->fileName, args.fileName.c_str());
    for (uint32_t n = 0; n < 3000; ++n) {
        std::string text = patternText(n);
        ASSERT_EQ(trcWrite(2, 30, 1, 1, 1, 1, nullptr, text.data(), static_cast<unsigned>(text.size())), 0);
    }
    std::string bytes;
    EXPECT_EQ(dumpTo(dir.file("d"), bytes), EINVAL);
    ASSERT_EQ(trcSetProdVersion(2, "filelvl"), 0);
    std::string file = readFile(args.fileName);
    ASSERT_EQ(file.size(), 3000u + 65536u);
    auto* fh = reinterpret_cast<const trcHeader_t*>(file.data());
    EXPECT_EQ(std::tuple(text8(fh->prodVersion[2]), fh->flags), std::tuple("filelvl", args.flags));
    Walked w = walkImage(file);
    EXPECT_TRUE(w.lost);
    ASSERT_FALSE(w.records.empty());
    expectRun(w, 2999);
    EXPECT_EQ(trcClear(0), 0);
    EXPECT_EQ(walkImage(readFile(args.fileName)).records.size(), 0u);
}

TEST_F(LibControl, FileTraceWhoseFileWasRemovedCanBeTurnedOff)
{
    args.flags = TRC_DEST_FILE | TRC_KEEP_LAST;
    args.fileName = dir.file("gone.bin");
    args.bufferSize = 65536;
    ASSERT_EQ(turnOn(args), 0);
    ASSERT_EQ(unlink(args.fileName.c_str()), 0);
    // A new process, as `kelvo off` is, has no mapping of the file yet.
    kelvotest::RunResult off = kelvotest::runTool({"off"});
    EXPECT_EQ(std::tuple(off.out, off.status), std::tuple("Trace is turned off\n", 0));
    EXPECT_EQ(objects(), 0);
    EXPECT_EQ(turnOn(args), 0);
}
