// The operations of the trace facility that the tool calls.
#include "libtest.h"
#include "run_tool.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

using namespace libtest;

namespace {

// Names in /dev/shm that belong to the instance.
int objectsOf(const Instance& instance)
{
    int count = 0;
    std::string prefix = "kelvo." + instance.name();
    DIR* dir = opendir("/dev/shm");
    if (dir == nullptr)
        return -1;
    while (dirent* entry = readdir(dir))
        if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) == 0)
            ++count;
    closedir(dir);
    return count;
}

std::string text8(const char* field)
{
    return std::string(field, strnlen(field, 8));
}

} // namespace

TEST(LibControl, OnOffAndTheirRefusals)
{
    Instance instance;
    errno = 0;
    EXPECT_EQ(trcAttach(0, 0, 0), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcOff(0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcSemAttach(), -1);
    EXPECT_EQ(trcIsOn(), 0);

    OnArgs args;
    EXPECT_EQ(turnOn(args), 0);
    EXPECT_EQ(objectsOf(instance), 1);
    EXPECT_EQ(trcIsOn(), 1);
    EXPECT_EQ(trcSemAttach(), 0);
    EXPECT_EQ(turnOn(args), EEXIST);
    EXPECT_EQ(trcOff(0), 0);
    EXPECT_EQ(objectsOf(instance), 0);
    EXPECT_EQ(trcIsOn(), 0);
    EXPECT_EQ(trcOff(0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcClear(0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcChg(allMask().data(), -1, -1, -1, 0, 0, -1, 100, 0, noMask().data(),
                     noMask().data(), -1),
              -1);
    EXPECT_EQ(errno, ENOENT);
    TempDir dir;
    std::string bytes;
    EXPECT_EQ(dumpTo(dir.file("d"), bytes), ENOENT);
}

TEST(LibControl, SizesTheFormatCannotUseAreRefusedAndLeaveNothing)
{
    Instance instance;
    OnArgs args;
    for (int64_t size : {int64_t{0}, int64_t{-1}, int64_t{32}, int64_t{100}, int64_t{65537},
                         int64_t{65536 * 3 + 4096}, int64_t{3} << 31, int64_t{1} << 40}) {
        args.bufferSize = size;
        EXPECT_EQ(turnOn(args), EINVAL) << size;
        EXPECT_EQ(objectsOf(instance), 0) << size;
        EXPECT_EQ(trcAttach(0, 0, 0), nullptr) << size;
    }
    args.flags = TRC_DEST_MMIO | TRC_KEEP_LAST;
    args.bufferSize = 0;
    EXPECT_EQ(turnOn(args), ENODEV);
    args.flags = TRC_DEST_FILE | TRC_KEEP_LAST;
    args.bufferSize = 65536;
    args.fileName = "/nonexistent-dir-for-kelvo/trace.bin";
    EXPECT_EQ(turnOn(args), ENOENT);
    EXPECT_EQ(objectsOf(instance), 0);
    args.fileName = std::string(256, 'x');
    EXPECT_EQ(turnOn(args), EINVAL);
    EXPECT_EQ(objectsOf(instance), 0);

    for (int64_t size : {int64_t{64}, int64_t{4096}, int64_t{65536}, int64_t{65536 * 3}}) {
        args = OnArgs{};
        args.bufferSize = size;
        EXPECT_EQ(turnOn(args), 0) << size;
        trcHeader_t* h = trcAttach(0, 0, 0);
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(h->bufferSize, size);
        EXPECT_EQ(trcOff(0), 0);
    }
}

TEST(LibControl, HeaderOfANewTrace)
{
    Instance instance;
    OnArgs args;
    args.mask = noMask();
    args.mask[0] = 0x02;
    args.pid = 7;
    args.cpid = 9;
    args.thisPointer = 0xABCD;
    args.returnCode = -5;
    args.maxSevereErrors = 3;
    args.maxRecordSize = 100;
    args.flags = TRC_DEST_SHARED | TRC_KEEP_INITIAL | TRC_OPTION_T;
    args.crashMask[1] = 0x10;
    args.pauseMask[2] = 0x20;
    args.pauseAttrib = 4;
    args.bufferSize = 131072;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_STREQ(h->magic, "@TRACE@");
    EXPECT_EQ(h->layoutId, 3004);
    EXPECT_FALSE(text8(h->traceVersion).empty());
    EXPECT_EQ(text8(h->opSystem), "Linux");
    EXPECT_EQ(text8(h->hwPlatform), "x86_64");
    EXPECT_EQ(std::memcmp(h->prodVersion[0], ".......", 8), 0);
    EXPECT_EQ(std::memcmp(h->prodVersion[255], ".......", 8), 0);
    EXPECT_EQ(h->traceOff, 0);
    EXPECT_EQ(h->traceFull, 0);
    EXPECT_EQ(h->tracePid, 7);
    EXPECT_EQ(h->traceTid, -1);
    EXPECT_EQ(h->traceCpid, 9);
    EXPECT_EQ(h->thisPointer, 0xABCDu);
    EXPECT_EQ(h->sysErrRc, -5);
    EXPECT_EQ(h->maxSevereErrors, 3);
    EXPECT_EQ(h->maxRecordSize, 100);
    EXPECT_EQ(h->flags, uint32_t{TRC_DEST_SHARED | TRC_KEEP_INITIAL | TRC_OPTION_T});
    EXPECT_EQ(h->pauseAttrib, 4);
    EXPECT_EQ(std::memcmp(h->mask, args.mask.data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(std::memcmp(h->crashMask, args.crashMask.data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(std::memcmp(h->pauseMask, args.pauseMask.data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(h->bufferSize, 131072);
    EXPECT_EQ(h->fileName[0], '\0');

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
    EXPECT_EQ(text8(h->prodVersion[5]), "early");
    EXPECT_EQ(text8(h->prodVersion[3]), "1.2.3-lo");
}

TEST(LibControl, ChangeTakesTheSettingsAndOnlyTheCrashAndPauseFlags)
{
    Instance instance;
    OnArgs args;
    args.flags |= TRC_OPTION_T;
    ASSERT_EQ(turnOn(args), 0);
    std::vector<uint8_t> mask = noMask();
    mask[0] = 0x04;
    std::vector<uint8_t> crash = noMask();
    crash[3] = 0x80;
    std::vector<uint8_t> pause = noMask();
    pause[5] = 0x01;
    ASSERT_EQ(trcChg(mask.data(), 11, 12, 13, 14, 15, 16, 200,
                     TRC_USE_PAUSE_MASK | TRC_DEST_FILE | TRC_KEEP_INITIAL, crash.data(),
                     pause.data(), 30),
              0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(std::memcmp(h->mask, mask.data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(h->tracePid, 11);
    EXPECT_EQ(h->traceTid, 12);
    EXPECT_EQ(h->traceCpid, 13);
    EXPECT_EQ(h->thisPointer, 14u);
    EXPECT_EQ(h->sysErrRc, 15);
    EXPECT_EQ(h->maxSevereErrors, 16);
    EXPECT_EQ(h->maxRecordSize, 200);
    EXPECT_EQ(h->pauseAttrib, 30);
    EXPECT_EQ(h->flags, uint32_t{TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK |
                                 TRC_OPTION_T | TRC_USE_PAUSE_MASK});
    // Without its flag the crash mask stays as it was.
    EXPECT_EQ(std::memcmp(h->crashMask, noMask().data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(std::memcmp(h->pauseMask, pause.data(), TRC_MASK_SIZE), 0);
    ASSERT_EQ(trcChg(mask.data(), -1, -1, -1, 0, 0, -1, 200, TRC_USE_CRASH_MASK, crash.data(),
                     pause.data(), 30),
              0);
    EXPECT_EQ(std::memcmp(h->crashMask, crash.data(), TRC_MASK_SIZE), 0);
    EXPECT_EQ(h->flags, uint32_t{TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK |
                                 TRC_OPTION_T | TRC_USE_CRASH_MASK});
}

TEST(LibControl, FileOperations)
{
    TempDir dir;
    std::string path = dir.file("f");
    int32_t fd = trcFileAttach(path.c_str(), TRC_FILE_WRITE_CREATE);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "hello world", 11), 11);
    EXPECT_EQ(trcFileDetach(fd), 0);
    EXPECT_EQ(trcFileDetach(fd), -1);
    fd = trcFileAttach(path.c_str(), TRC_FILE_READ);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(trcFileSeek(fd, 0, 2), 11);
    EXPECT_EQ(trcFileSeek(fd, 6, 0), 6);
    char buffer[16] = {};
    EXPECT_EQ(trcFileRead(fd, buffer, 16), 5);
    EXPECT_STREQ(buffer, "world");
    EXPECT_EQ(trcFileRead(fd, buffer, 16), 0);
    EXPECT_EQ(trcFileDetach(fd), 0);
    EXPECT_EQ(trcFileAttach(dir.file("missing").c_str(), TRC_FILE_READ), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trcFileAttach(path.c_str(), 3), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(LibControl, NativeTraceCannotBeClearedNorDumped)
{
    Instance instance;
    OnArgs args;
    args.flags = TRC_DEST_NATIVE | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK;
    args.bufferSize = 0;
    ASSERT_EQ(turnOn(args), 0);
    const trcHeader_t* h = trcAttach(0, 0, 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->bufferSize, 0);
    EXPECT_EQ(trcClear(0), -1);
    EXPECT_EQ(errno, EINVAL);
    TempDir dir;
    std::string bytes;
    EXPECT_EQ(dumpTo(dir.file("d"), bytes), EINVAL);
    EXPECT_EQ(trcWrite(1, 30, 1, 1, 1, 1, nullptr, "to the native trace", 19), 0);
    EXPECT_EQ(trcWriteRc(1, 23, 1, 1, 1, 1, nullptr, -1), 0);
}

TEST(LibControl, FileDestinationHoldsATraceFileAndIsNotDumped)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
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
    std::string file = readWholeFile(args.fileName);
    ASSERT_EQ(file.size(), 3000u + 65536u);
    Walked w = walkImage(file);
    EXPECT_TRUE(w.complete);
    EXPECT_TRUE(w.lost);
    ASSERT_FALSE(w.records.empty());
    EXPECT_EQ(patternNumber(w.records.back().data), 2999);
    for (std::size_t i = 0; i < w.records.size(); ++i)
        ASSERT_EQ(patternNumber(w.records[i].data), 2999 - static_cast<int64_t>(w.records.size() - 1 - i));
    auto* fh = reinterpret_cast<const trcHeader_t*>(file.data());
    EXPECT_EQ(std::string(fh->prodVersion[2], 7), "filelvl");
    EXPECT_EQ(fh->flags, args.flags);
    EXPECT_EQ(trcClear(0), 0);
    EXPECT_EQ(walkImage(readWholeFile(args.fileName)).recordCount, 0);
}

TEST(LibControl, FileTraceWhoseFileWasRemovedCanBeTurnedOff)
{
    Instance instance;
    TempDir dir;
    OnArgs args;
    args.flags = TRC_DEST_FILE | TRC_KEEP_LAST;
    args.fileName = dir.file("gone.bin");
    args.bufferSize = 65536;
    ASSERT_EQ(turnOn(args), 0);
    ASSERT_EQ(unlink(args.fileName.c_str()), 0);
    // A new process, as `kelvo off` is, has no mapping of the file yet.
    kelvotest::RunResult off = kelvotest::runTool({"off"});
    EXPECT_EQ(off.out, "Trace is turned off\n");
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(access(("/dev/shm/kelvo." + instance.name()).c_str(), F_OK), -1);
    EXPECT_EQ(turnOn(args), 0);
}

TEST(LibControl, DumpOnAFullDiskIsNoSpace)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting a small tmpfs needs root";
    TempDir dir;
    if (mount("tmpfs", dir.path().c_str(), "tmpfs", 0, "size=16k") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
    Instance instance;
    EXPECT_EQ(turnOn(OnArgs{}), 0);
    int32_t fd = trcFileAttach(dir.file("d").c_str(), TRC_FILE_WRITE_CREATE);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(trcDump(0, fd), -1);
    EXPECT_EQ(errno, ENOSPC);
    trcFileDetach(fd);
    umount2(dir.path().c_str(), MNT_DETACH);
}
