// `kelvo off`, `kelvo clr` and `kelvo dmp`: their usage, the state of the
// trace that forbids them, and what a dump leaves on disk.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cmd_live.h"
#include "run_tool.h"

using cmdlive::fileExists;
using cmdlive::LiveInstance;
using cmdlive::refusal;
using cmdlive::usageText;
using kelvotest::TempDir;

namespace {

const std::string turnedOn = "Trace is turned on\n";

// A file system of 64 KiB mounted on a fresh directory, for as long as the
// object lives; mounted() is false when it could not be had.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& path, const char* options = "size=64k,mode=0777",
                       unsigned long flags = 0)
        : path_(path)
    {
        mkdir(path.c_str(), 0777);
        mounted_ = getuid() == 0 && mount("tmpfs", path.c_str(), "tmpfs", flags, options) == 0;
    }
    ~SmallDisk()
    {
        if (mounted_) {
            umount2(path_.c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool mounted() const { return mounted_; }

private:
    std::string path_;
    bool mounted_ = false;
};

}  // namespace

TEST(CommandOffClrDmp, UsageOfEachCommand)
{
    LiveInstance live;
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {
        {{"off", "help"}, 7}, {{"off", "now"}, 7},       {{"off", "-x", "y"}, 7},
        {{"clr", "help"}, 2}, {{"clear", "x"}, 2},       {{"clr", "-f"}, 2},
        {{"dmp"}, 3},         {{"dump", "help"}, 3},     {{"dmp", "a", "b"}, 3},
    };
    for (const auto& [args, usageMessage] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(args), usageText(usageMessage), 1);
    }
}

TEST(CommandOffClrDmp, NothingToDoWithTheTraceOff)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"off"}), "Trace is already off; no action was taken.\n", 1);
    EXPECT_RUN(live.run({"clr"}), "Can not clear trace when it is off.\n", 1);
    EXPECT_RUN(live.run({"dmp", dir.file("d.bin")}), "Can not dump trace when it is off.\n", 1);
    EXPECT_FALSE(fileExists(dir.file("d.bin")));
}

TEST(CommandOffClrDmp, OnThenOff)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    EXPECT_RUN(live.run({"OFF"}), "Trace is turned off\n", 0);
    EXPECT_FALSE(live.header().has_value());
    EXPECT_RUN(live.run({"off"}), "Trace is already off; no action was taken.\n", 1);
}

TEST(CommandOffClrDmp, ClearEmptiesTheBuffer)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    ASSERT_EQ(live.write(3, "abc"), 3);
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|W|N|144|3|", 0);
    EXPECT_RUN(live.run({"clear"}), "", 0);
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|W|N|0|0|", 0);
}

TEST(CommandOffClrDmp, NativeTraceCanBeNeitherClearedNorDumped)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-n"}), turnedOn, 0);
    EXPECT_RUN(live.run({"clr"}), "Can not clear native trace facility.\n", 1);
    EXPECT_RUN(live.run({"dmp", dir.file("d.bin")}),
               "Can not dump trace unless it is in shared memory.\n", 1);
    EXPECT_FALSE(fileExists(dir.file("d.bin")));
}

// A trace into a file is that file already; the dump refuses it.
TEST(CommandOffClrDmp, FileTraceIsNotDumped)
{
    // The trace goes off before the directory of its file goes.
    TempDir dir;
    LiveInstance live;
    cmdlive::openToAll(dir);
    EXPECT_RUN(live.run({"on", "-f", dir.file("t.bin"), "-l", "4096"}), turnedOn, 0);
    EXPECT_RUN(live.run({"dmp", dir.file("d.bin")}),
               "Can not dump trace unless it is in shared memory.\n", 1);
    EXPECT_FALSE(fileExists(dir.file("d.bin")));
}

TEST(CommandOffClrDmp, DumpWritesTheWholeTrace)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-l", "8192", "-e", "4"}), turnedOn, 0);
    ASSERT_EQ(live.write(2, "dumped"), 2);
    // A relative name is taken in the working directory.
    EXPECT_RUN(live.run({"dump", "d.bin"}, dir.path()), "", 0);
    const std::string bytes = kelvotest::readFile(dir.file("d.bin"));
    ASSERT_EQ(bytes.size(), 3000u + 8192u);
    trcHeader_t header;
    std::memcpy(&header, bytes.data(), sizeof header);
    EXPECT_EQ(std::string(header.magic), "@TRACE@");
    EXPECT_EQ(header.layoutId, 3004);
    EXPECT_EQ(header.bufferSize, 8192);
    EXPECT_EQ(header.maxSevereErrors, 4);
    // Start marker, then the first record: 44 bytes and "dumped" aligned.
    int32_t words[3];
    std::memcpy(words, bytes.data() + 3000, sizeof words);
    EXPECT_EQ(words[0], 8);
    EXPECT_EQ(words[1], 8);
    EXPECT_EQ(words[2], 50);
    EXPECT_NE(bytes.find("dumped"), std::string::npos);
}

// A dump never overwrites: an existing name, or one whose existence
// cannot be told, is refused before the facility is asked.
TEST(CommandOffClrDmp, ExistingFilesAreRefused)
{
    TempDir dir;
    LiveInstance live;
    const std::string existing = dir.write("f", "keep me");
    EXPECT_RUN(live.run({"dmp", existing}), refusal(3, 119), 1);
    EXPECT_EQ(kelvotest::readFile(existing), "keep me");
    // The word "help" in another case is a file name like any other.
    dir.write("HELP", "");
    EXPECT_RUN(live.run({"dmp", "HELP"}, dir.path()), refusal(3, 119), 1);
    // A name below a file cannot exist: ENOTDIR is not ENOENT.
    EXPECT_RUN(live.run({"dmp", existing + "/x"}), refusal(3, 119), 1);
    // The same holds with a running trace.
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    EXPECT_RUN(live.run({"dmp", existing}), refusal(3, 119), 1);
    EXPECT_EQ(kelvotest::readFile(existing), "keep me");
}

TEST(CommandOffClrDmp, DumpIntoADirectoryThatCannotBeWritten)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-l", "4096"}), turnedOn, 0);
    const std::string missing = dir.file("missing/d.bin");
    EXPECT_RUN(live.run({"dmp", missing}), "Could not create " + missing + ".\n", 1);

    const std::string closed = dir.file("closed");
    std::unique_ptr<SmallDisk> readOnly;
    if (getuid() == 0) {
        // Root writes into any directory that permissions close; a file
        // system mounted read-only is closed to it too.
        readOnly = std::make_unique<SmallDisk>(closed, "size=64k", MS_RDONLY);
        if (!readOnly->mounted()) {
            GTEST_SKIP() << "no read-only file system could be mounted";
        }
    } else {
        ASSERT_EQ(mkdir(closed.c_str(), 0555), 0);
    }
    const std::string target = closed + "/d.bin";
    EXPECT_RUN(live.run({"dmp", target}), "Could not create " + target + ".\n", 1);
    EXPECT_FALSE(fileExists(target));
}

// The file that a dump on a full disk had begun is gone again, so that the
// same command can be given once there is room.
TEST(CommandOffClrDmp, DumpOnAFullDisk)
{
    if (getuid() != 0) {
        GTEST_SKIP() << "a small file system can be mounted only by root";
    }
    TempDir dir;
    LiveInstance live;
    const std::string target = dir.file("small/d.bin");
    EXPECT_RUN(live.run({"on", "-l", "131072"}), turnedOn, 0);
    {
        SmallDisk disk(dir.file("small"));
        if (!disk.mounted()) {
            GTEST_SKIP() << "no tmpfs could be mounted";
        }
        const std::string full =
            "The target disk is full. Cleanup the disk to get some disk space \n\n";
        EXPECT_RUN(live.run({"dmp", target}), full, 1);
        EXPECT_FALSE(fileExists(target));
        EXPECT_RUN(live.run({"dmp", target}), full, 1);
        EXPECT_FALSE(fileExists(target));
    }
    EXPECT_RUN(live.run({"dmp", target}), "", 0);
    EXPECT_EQ(kelvotest::readFile(target).size(), 3000u + 131072u);
}
