// `kelvo on`: every refusal of its command line, and what a started trace
// holds in its header for each option.
#include <sys/statvfs.h>

#include <cerrno>
#include <sstream>
#include <tuple>

#include "cmd_live.h"
#include "trc.h"
#include "trcentry.h"

using namespace kelvotest;
using kelvotest::TempDir;

namespace {

const std::string systemError = "Unexpected System Error.\nC library function error number = ";

// errno with which the stand-in trcOn below fails; 0: it succeeds.
int fakeOnErrno = 0;

// mainOn in a child of this test program, where trcOn is the stand-in.
kelvotest::RunResult onInProcess(std::vector<std::string> args, int withErrno = 0)
{
    return kelvotest::captureChild([&] {
        fakeOnErrno = withErrno;
        std::vector<char*> argv;
        for (std::string& word : args) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        std::exit(mainOn(static_cast<int>(args.size()), argv.data()));
    });
}

}  // namespace

// In this program mainOn calls this trcOn, not the facility's: it shows
// what it was given, so that what the facility here cannot take (the MMIO
// destination) or cannot be made to answer (a time-out) can be seen. The
// tool, run as a process of its own, keeps the real one.
extern "C" int32_t trcOn(int32_t reserved, const uint8_t* mask, int32_t pid, int32_t tid, int32_t cpid,
                         uint32_t thisPointer, int32_t returnCode, int32_t maxSevereErrors, int32_t maxRecordSize,
                         uint32_t flags, const uint8_t* crashMask, const uint8_t* pauseMask, int32_t pauseAttrib,
                         const char* fileName, int64_t bufferSize)
{
    const auto clear = [](const uint8_t* m) { return isClear(m) ? "clear" : "set"; };
    std::printf("trcOn(%d, %s, %d, %d, %d, %u, %d, %d, %d, %u, %s, %s, %d, \"%s\", %lld)\n", reserved,
                maskText(mask).c_str(), pid, tid, cpid, thisPointer, returnCode, maxSevereErrors, maxRecordSize, flags,
                clear(crashMask), clear(pauseMask), pauseAttrib, fileName, static_cast<long long>(bufferSize));
    errno = fakeOnErrno;
    return fakeOnErrno == 0 ? 0 : -1;
}

// No refusal reaches the facility: the instance never gets a trace. The
// value of an option is the next word, whatever it looks like.
TEST(CommandOn, RefusalsPrintTheMessageAndTheUsage)
{
    // Each row: a message, then the command lines ("|" between two) refused with it.
    LiveInstance live;
    for (const char* row :
         {"-1:help", "102:-x|help -s|-e -1 -nonsense|-l -5", "101:-c|-f|-s -pause_attrib", "103:-m 1.x|-pause_mask q",
          "104:-e 0|-e -2", "105:-r 32769|-r -1", "106:-l abc|-i 12x", "108:-p 12.5", "109:-c 1x", "110:-rc 0",
          "115:-n -i", "116:-n -l 0|-mmio -l 0", "117:-crash x", "118:-this 0xg",
          "419:-mmio -l 100|-mmio -s|-f t -mmio", "424:-pause_attrib -2"}) {
        std::istringstream in(std::strchr(row, ':') + 1);
        for (std::string args; std::getline(in, args, '|');) {
            SCOPED_TRACE(args);
            EXPECT_RUN(live.run(split("on " + args)), refusal(8, std::atoi(row)), 1);
        }
    }
    EXPECT_RUN(live.run({"on", "-f", std::string(256, 'f')}), refusal(8, 114), 1);
    EXPECT_EQ(live.settings(), "no trace");
}

// Each row: the options, and the settings in which the trace differs from
// a plain `on`. The crash mask leaves out the product: its maps begin with
// the event. A repeated option keeps its last value.
TEST(CommandOn, WhatEachOptionSets)
{
    TempDir dir;
    openToAll(dir);
    const std::string longest = dir.path() + "/" + std::string(254 - dir.path().size(), 'n');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", ""},
        {"-debug", "flags=9"},
        {"-n", "flags=140 size=0"},
        {"-s -n", "flags=141"},
        {"-l 4096 -i", "flags=153 size=4096"},
        {"-i 65536 -l", "flags=153 size=65536"},
        {"-l -s", ""},
        {"-t", "flags=393"},
        {"-f " + longest, "flags=138 file=" + longest},
        {"-m 1.2 -p 0x10 -c 010 -this 0x1000 -rc -5 -e -1 -r 0 -pause_attrib -1 -pause_mask 2 -crash 9.2.3.4.5.6 -l "
         "0x2000",
         "flags=1737 size=8192 mask=1.2.*.*.*.* pid=16 cpid=8 this=0x1000 rc=-5 e=-1 r=0 pause=2.*.*.*.*.* "
         "crash=2.3.4.5.6.*"},
        {"-M 1 -m 3.4 -e 7 -e 2 -r 100 -r 200", "mask=3.4.*.*.*.* e=2 r=200"},
    };
    for (const auto& [args, differences] : cases) {
        SCOPED_TRACE(args);
        LiveInstance live;
        EXPECT_RUN(live.run(split("on " + args)), turnedOn, 0);
        EXPECT_EQ(live.settings(), changed(defaults, differences));
    }
    EXPECT_TRUE(fileExists(longest));
}

// What the facility refuses comes back as the message of its errno.
TEST(CommandOn, FailuresOfTheFacility)
{
    TempDir dir;
    openToAll(dir);
    const std::string closed = dir.file("closed");
    ASSERT_EQ(mkdir(closed.c_str(), 0555), 0);
    // No MMIO trace on this platform; a directory the trace's account may not write.
    LiveInstance live;
    EXPECT_RUN(live.run(split("on -l 0")), refusal(8, 106), 1);
    EXPECT_RUN(live.run(split("on -m 1 -mmio -l")), systemError + "19.\n", 1);
    EXPECT_RUN(live.run({"on", "-f", closed + "/t.bin"}), systemError + "13.\n", 1);
    // The largest size there is, where the memory for it is not free.
    struct statvfs shm {};
    if (statvfs("/dev/shm", &shm) == 0 &&
        static_cast<unsigned long long>(shm.f_bavail) * shm.f_frsize < 2147418112ull) {
        EXPECT_RUN(live.run({"on", "-l", "2147418112"}), "Not enough resources to run trace.\n", 1);
    }
    EXPECT_EQ(live.settings(), "no trace");
    // A trace file on a disk too small for it.
    SmallDisk small(dir.file("small"));
    if (!small.mounted()) {
        GTEST_SKIP() << "a small file system can be mounted only by root";
    }
    EXPECT_RUN(live.run({"on", "-f", dir.file("small/t.bin")}), "Not enough resources to run trace.\n", 1);
    EXPECT_EQ(live.settings(), "no trace");
}

// Run by root, the trace belongs to the service account, or to the id that
// stands in for a missing one; root itself can still reach it, and a
// second `on` leaves it as it is.
TEST(CommandOn, RootStartsTheTraceAsTheServiceAccount)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    struct stat st {};
    ASSERT_EQ(stat(("/dev/shm/kelvo." + live.name()).c_str(), &st), 0);
    const bool root = getuid() == 0;
    EXPECT_EQ(st.st_uid, root ? static_cast<uid_t>(get_uid("kelvusr")) : getuid());
    EXPECT_EQ(st.st_gid, root ? static_cast<gid_t>(get_gid("kelvusr")) : getgid());
    EXPECT_RUN(live.run({"on", "-e", "5", "-i"}), "Trace is already on; no action was taken.\n", 123);
    EXPECT_EQ(live.settings(), defaults);
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);
}

// The MMIO destination takes its own mask unless a -m is given, before or
// behind it, and no memory; every errno of a failed trcOn has its report.
TEST(CommandOn, WhatTrcOnIsGivenAndWhatItsErrnoGives)
{
    const std::string mmio = "trcOn(0, 1.50-51.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 168, clear, clear, -1, \"\", 0)\n";
    const std::string product1 = "trcOn(0, 1.*.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 168, clear, clear, -1, \"\", 0)\n";
    for (const auto& [args, called] : std::vector<std::pair<std::string, std::string>>{
             {"-mmio -l", mmio},
             {"-mmio -m 1", product1},
             {"-pause_mask 1 -mmio -debug",
              "trcOn(0, 1.50-51.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 552, clear, set, -1, \"\", 0)\n"}}) {
        SCOPED_TRACE(args);
        EXPECT_RUN(onInProcess(split("on " + args)), called + turnedOn, 0);
    }
    const std::string called = "trcOn(0, *.*.*.*.*.*, -1, -1, -1, 0, 0, 1, 32768, 137, clear, "
                               "clear, -1, \"\", 1048576)\n";
    const std::vector<std::tuple<int, std::string, int>> cases = {
        {EAGAIN, "KELVOD.EXE timed out.\n", 1},
        {ENOMEM, "Not enough resources to run trace.\n", 1},
        {EEXIST, "Trace is already on; no action was taken.\n", 123},
        {EINVAL, refusal(8, 106), 1},
        {EIO, systemError + "5.\n", 1},
        {-7, "Unexpected System Error.\nOperating System error number = 7.\n", 1},
    };
    for (const auto& [error, out, status] : cases) {
        SCOPED_TRACE(error);
        EXPECT_RUN(onInProcess({"on"}, error), called + out, status);
    }
}
