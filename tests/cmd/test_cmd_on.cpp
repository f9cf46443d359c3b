// `kelvo on`: every refusal of its command line, and what a started trace
// holds in its header for each option.
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cmd_live.h"
#include "run_tool.h"
#include "trc.h"
#include "trcentry.h"
#include "trcmask.h"

using cmdlive::LiveInstance;
using cmdlive::refusal;
using cmdlive::usageText;
using kelvotest::TempDir;

namespace {

const std::string turnedOn = "Trace is turned on\n";

std::string maskText(const uint8_t* mask)
{
    std::vector<char> buffer(trcMaskTextMax + 1);
    unsigned char copy[trcMaskBytes];
    std::memcpy(copy, mask, sizeof copy);
    trcMaskToStr(copy, buffer.data());
    return buffer.data();
}

struct OnRefusal {
    std::vector<std::string> args;
    int message;  // -1: the usage text alone
};

// errno with which the stand-in for the facility's trcOn below fails; 0:
// it succeeds.
int fakeOnErrno = 0;

bool allClear(const uint8_t* mask)
{
    for (int i = 0; i < TRC_MASK_SIZE; ++i) {
        if (mask[i] != 0) {
            return false;
        }
    }
    return true;
}

// mainOn in a child of this test program, where trcOn is the stand-in.
kelvotest::RunResult onInProcess(std::vector<std::string> words, int withErrno)
{
    return kelvotest::captureChild([&] {
        fakeOnErrno = withErrno;
        std::vector<char*> args;
        for (std::string& word : words) {
            args.push_back(word.data());
        }
        args.push_back(nullptr);
        std::exit(mainOn(static_cast<int>(words.size()), args.data()));
    });
}

}  // namespace

// In this program mainOn calls this trcOn, not the facility's: it shows
// what it was given, so that what the facility here cannot take (the MMIO
// destination) or cannot be made to answer (a time-out) can be seen. The
// tool itself, run as a process of its own, keeps the real one.
extern "C" int32_t trcOn(int32_t reserved, const uint8_t* mask, int32_t pid, int32_t tid,
                         int32_t cpid, uint32_t thisPointer, int32_t returnCode,
                         int32_t maxSevereErrors, int32_t maxRecordSize, uint32_t flags,
                         const uint8_t* crashMask, const uint8_t* pauseMask, int32_t pauseAttrib,
                         const char* fileName, int64_t bufferSize)
{
    std::printf("trcOn(%d, %s, %d, %d, %d, %u, %d, %d, %d, %u, %s, %s, %d, \"%s\", %lld)\n",
                reserved, maskText(mask).c_str(), pid, tid, cpid, thisPointer, returnCode,
                maxSevereErrors, maxRecordSize, flags, allClear(crashMask) ? "clear" : "set",
                allClear(pauseMask) ? "clear" : "set", pauseAttrib, fileName,
                static_cast<long long>(bufferSize));
    if (fakeOnErrno != 0) {
        errno = fakeOnErrno;
        return -1;
    }
    return 0;
}

// No refusal reaches the facility: the instance never gets a trace.
TEST(CommandOn, RefusalsPrintTheMessageAndTheUsage)
{
    const std::string longName(256, 'f');
    const std::vector<OnRefusal> cases = {
        {{"help"}, -1},
        {{"-x"}, 102},
        {{"help", "-s"}, 102},
        {{"-s", "help"}, 102},
        {{"-e", "-1", "-nonsense"}, 102},
        {{"-l", "-5"}, 102},
        {{"-c"}, 101},
        {{"-m"}, 101},
        {{"-f"}, 101},
        {{"-s", "-pause_attrib"}, 101},
        {{"-m", "1.x"}, 103},
        {{"-pause_mask", "q"}, 103},
        {{"-e", "0"}, 104},
        {{"-e", "-2"}, 104},
        {{"-E", "five"}, 104},
        {{"-r", "32769"}, 105},
        {{"-r", "-1"}, 105},
        {{"-l", "abc"}, 106},
        {{"-i", "12x"}, 106},
        {{"-p", "12.5"}, 108},
        {{"-p", "x"}, 108},
        {{"-c", "1x"}, 109},
        {{"-rc", "0"}, 110},
        {{"-rc", ""}, 110},
        {{"-f", longName}, 114},
        {{"-n", "-i"}, 115},
        {{"-mmio", "-i", "100"}, 115},
        {{"-n", "-l", "100"}, 116},
        {{"-n", "-l", "0"}, 116},
        {{"-mmio", "-l", "0"}, 116},
        {{"-crash", "x"}, 117},
        {{"-this", "0xg"}, 118},
        {{"-mmio", "-l", "100"}, 419},
        {{"-mmio", "-s"}, 419},
        {{"-mmio", "-n"}, 419},
        {{"-f", "t", "-mmio"}, 419},
        {{"-pause_attrib", "-2"}, 424},
    };
    LiveInstance live;
    for (const auto& c : cases) {
        std::vector<std::string> args = {"on"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        SCOPED_TRACE(::testing::PrintToString(args));
        const auto run = live.run(args);
        EXPECT_RUN(run, c.message == -1 ? usageText(8) : refusal(8, c.message), 1);
    }
    EXPECT_FALSE(live.header().has_value());
}

TEST(CommandOn, DefaultsOfAPlainOn)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(h->flags, 137u);
    EXPECT_EQ(h->bufferSize, 1048576);
    EXPECT_EQ(maskText(h->mask), "*.*.*.*.*.*");
    EXPECT_EQ(h->tracePid, -1);
    EXPECT_EQ(h->traceTid, -1);
    EXPECT_EQ(h->traceCpid, -1);
    EXPECT_EQ(h->thisPointer, 0u);
    EXPECT_EQ(h->sysErrRc, 0);
    EXPECT_EQ(h->maxSevereErrors, 1);
    EXPECT_EQ(h->maxRecordSize, 32768);
    EXPECT_EQ(h->pauseAttrib, -1);
    EXPECT_EQ(std::string(h->fileName), "");
    const uint8_t none[TRC_MASK_SIZE] = {};
    EXPECT_EQ(std::memcmp(h->pauseMask, none, sizeof none), 0);
    EXPECT_EQ(std::memcmp(h->crashMask, none, sizeof none), 0);
}

TEST(CommandOn, FlagsAndSizeFollowDestinationAndRetention)
{
    struct Case {
        std::vector<std::string> args;
        uint32_t flags;
        int32_t bufferSize;
    };
    const std::vector<Case> cases = {
        {{"-debug"}, 9, 1048576},
        {{"-n"}, 140, 0},
        {{"-s", "-n"}, 141, 1048576},
        {{"-i"}, 145, 1048576},
        {{"-l", "4096", "-i"}, 153, 4096},
        {{"-i", "65536", "-l"}, 153, 65536},
        {{"-l", "-s"}, 137, 1048576},
        {{"-l", "0x20000"}, 137, 131072},
        {{"-t"}, 393, 1048576},
        {{"-S", "-DEBUG"}, 9, 1048576},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        LiveInstance live;
        std::vector<std::string> args = {"on"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_RUN(live.run(args), turnedOn, 0);
        const auto h = live.header();
        ASSERT_TRUE(h.has_value());
        EXPECT_EQ(h->flags, c.flags);
        EXPECT_EQ(h->bufferSize, c.bufferSize);
    }
}

TEST(CommandOn, FileDestination)
{
    TempDir dir;
    cmdlive::openToAll(dir);
    // The longest name that is taken: 255 characters.
    const std::string prefix = dir.path() + "/";
    const std::string longest = prefix + std::string(255 - prefix.size(), 'n');
    for (const std::string& name : {dir.file("t.bin"), longest}) {
        LiveInstance live;
        EXPECT_RUN(live.run({"on", "-f", name}), turnedOn, 0);
        const auto h = live.header();
        ASSERT_TRUE(h.has_value());
        EXPECT_EQ(h->flags, 138u);
        EXPECT_EQ(h->bufferSize, 1048576);
        EXPECT_EQ(std::string(h->fileName), name);
        EXPECT_TRUE(cmdlive::fileExists(name));
    }
}

TEST(CommandOn, EveryFilterAndMaskReachesTheHeader)
{
    LiveInstance live;
    const auto run = live.run({"on", "-m", "1.2", "-p", "0x10", "-c", "010", "-this", "0x1000",
                               "-rc", "-5", "-e", "-1", "-r", "0", "-pause_attrib", "-1",
                               "-pause_mask", "2", "-crash", "9.2.3.4.5.6", "-l", "8192"});
    EXPECT_RUN(run, turnedOn, 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(maskText(h->mask), "1.2.*.*.*.*");
    EXPECT_EQ(h->tracePid, 16);
    EXPECT_EQ(h->traceTid, -1);
    EXPECT_EQ(h->traceCpid, 8);
    EXPECT_EQ(h->thisPointer, 0x1000u);
    EXPECT_EQ(h->sysErrRc, -5);
    EXPECT_EQ(h->maxSevereErrors, -1);
    EXPECT_EQ(h->maxRecordSize, 0);
    EXPECT_EQ(h->pauseAttrib, -1);
    EXPECT_EQ(maskText(h->pauseMask), "2.*.*.*.*.*");
    // The crash mask leaves out the product: its maps begin with the event.
    EXPECT_EQ(maskText(h->crashMask), "2.3.4.5.6.*");
    EXPECT_EQ(h->flags, 137u | 64u | 512u | 1024u);
    EXPECT_EQ(h->bufferSize, 8192);
}

TEST(CommandOn, RepeatedOptionsReplaceEarlierValues)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-M", "1", "-m", "3.4", "-e", "7", "-e", "2", "-r", "100", "-r",
                         "200"}),
               turnedOn, 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(maskText(h->mask), "3.4.*.*.*.*");
    EXPECT_EQ(h->maxSevereErrors, 2);
    EXPECT_EQ(h->maxRecordSize, 200);
}

TEST(CommandOn, ARunningTraceIsLeftAsItIs)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-e", "3"}), turnedOn, 0);
    EXPECT_RUN(live.run({"on", "-e", "5", "-i"}), "Trace is already on; no action was taken.\n",
               123);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(h->maxSevereErrors, 3);
    EXPECT_EQ(h->flags, 137u);
}

// What the facility refuses comes back as the message of its errno.
TEST(CommandOn, FailuresOfTheFacility)
{
    LiveInstance live;
    // A size the record area cannot have.
    EXPECT_RUN(live.run({"on", "-l", "0"}), refusal(8, 106), 1);
    EXPECT_RUN(live.run({"on", "-i", "100"}), refusal(8, 106), 1);
    // There is no MMIO trace on this platform.
    EXPECT_RUN(live.run({"on", "-mmio"}),
               "Unexpected System Error.\nC library function error number = 19.\n", 1);
    EXPECT_RUN(live.run({"on", "-m", "1", "-mmio", "-l"}),
               "Unexpected System Error.\nC library function error number = 19.\n", 1);
    // A directory that the trace's account may not write.
    TempDir dir;
    const std::string closed = dir.file("closed");
    ASSERT_EQ(mkdir(closed.c_str(), 0555), 0);
    EXPECT_RUN(live.run({"on", "-f", closed + "/t.bin"}),
               "Unexpected System Error.\nC library function error number = 13.\n", 1);
    EXPECT_FALSE(live.header().has_value());
}

TEST(CommandOn, NoMemoryForTheTrace)
{
    LiveInstance live;
    // The largest size there is, where the memory for it is not free.
    struct statvfs shm {};
    if (statvfs("/dev/shm", &shm) == 0 &&
        static_cast<unsigned long long>(shm.f_bavail) * shm.f_frsize < 2147418112ull) {
        EXPECT_RUN(live.run({"on", "-l", "2147418112"}), "Not enough resources to run trace.\n", 1);
    }
    // A trace file on a disk too small for it.
    if (getuid() != 0) {
        GTEST_SKIP() << "a small file system can be mounted only by root";
    }
    TempDir dir;
    cmdlive::openToAll(dir);
    const std::string small = dir.file("small");
    ASSERT_EQ(mkdir(small.c_str(), 0777), 0);
    if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k,mode=0777") != 0) {
        GTEST_SKIP() << "no tmpfs could be mounted";
    }
    const auto run = live.run({"on", "-f", small + "/t.bin"});
    umount2(small.c_str(), MNT_DETACH);
    EXPECT_RUN(run, "Not enough resources to run trace.\n", 1);
    EXPECT_FALSE(live.header().has_value());
}

// Run by root, the trace belongs to the service account, or to the id that
// stands in for a missing one; root itself can still reach it.
TEST(CommandOn, RootStartsTheTraceAsTheServiceAccount)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    struct stat st {};
    ASSERT_EQ(stat(("/dev/shm/kelvo." + live.name()).c_str(), &st), 0);
    if (getuid() == 0) {
        EXPECT_EQ(st.st_uid, static_cast<uid_t>(get_uid("kelvusr")));
        EXPECT_EQ(st.st_gid, static_cast<gid_t>(get_gid("kelvusr")));
    } else {
        EXPECT_EQ(st.st_uid, getuid());
    }
    EXPECT_TRUE(live.header().has_value());
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);
}

// The MMIO destination takes its own mask unless a -m is given, before or
// behind it, and no memory.
TEST(CommandOn, WhatTheMmioDestinationPasses)
{
    const std::string mmio =
        "trcOn(0, 1.50-51.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 168, clear, clear, -1, \"\", 0)\n";
    const std::string product1 =
        "trcOn(0, 1.*.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 168, clear, clear, -1, \"\", 0)\n";
    EXPECT_RUN(onInProcess({"on", "-mmio"}, 0), mmio + turnedOn, 0);
    EXPECT_RUN(onInProcess({"on", "-mmio", "-l"}, 0), mmio + turnedOn, 0);
    EXPECT_RUN(onInProcess({"on", "-m", "1", "-mmio"}, 0), product1 + turnedOn, 0);
    EXPECT_RUN(onInProcess({"on", "-mmio", "-m", "1"}, 0), product1 + turnedOn, 0);
    EXPECT_RUN(onInProcess({"on", "-pause_mask", "1", "-mmio", "-debug"}, 0),
               "trcOn(0, 1.50-51.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 552, clear, set, -1, "
               "\"\", 0)\n" +
                   turnedOn,
               0);
}

// Every errno of a failed trcOn and its report.
TEST(CommandOn, WhatEachErrnoOfTrcOnGives)
{
    const std::string called =
        "trcOn(0, *.*.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 137, clear, clear, -1, \"\", "
        "1048576)\n";
    EXPECT_RUN(onInProcess({"on"}, EAGAIN), called + "KELVOD.EXE timed out.\n", 1);
    EXPECT_RUN(onInProcess({"on"}, ENOMEM), called + "Not enough resources to run trace.\n", 1);
    EXPECT_RUN(onInProcess({"on"}, EEXIST),
               called + "Trace is already on; no action was taken.\n", 123);
    EXPECT_RUN(onInProcess({"on"}, EINVAL), called + refusal(8, 106), 1);
    EXPECT_RUN(onInProcess({"on"}, EIO),
               called + "Unexpected System Error.\nC library function error number = 5.\n", 1);
    EXPECT_RUN(onInProcess({"on"}, -7),
               called + "Unexpected System Error.\nOperating System error number = 7.\n", 1);
}
