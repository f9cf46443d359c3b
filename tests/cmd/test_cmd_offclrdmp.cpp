// `kelvo off`, `kelvo clr` and `kelvo dmp`: their usage, the state of the
// trace that forbids them, and what a dump leaves on disk.
#include "cmd_live.h"

using namespace cmdlive;
using kelvotest::TempDir;

namespace {

const std::string notShared = "Can not dump trace unless it is in shared memory.\n";

}  // namespace

TEST(CommandOffClrDmp, UsageAndNoTrace)
{
    TempDir dir;
    const std::string dump = dir.file("d.bin");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"off", "help"}, usageText(7)}, {{"off", "now"}, usageText(7)},
        {{"off", "-x", "y"}, usageText(7)}, {{"clr", "help"}, usageText(2)},
        {{"clear", "x"}, usageText(2)}, {{"clr", "-f"}, usageText(2)}, {{"dmp"}, usageText(3)},
        {{"dump", "help"}, usageText(3)}, {{"dmp", "a", "b"}, usageText(3)},
        {{"off"}, "Trace is already off; no action was taken.\n"},
        {{"clr"}, "Can not clear trace when it is off.\n"},
        {{"dmp", dump}, "Can not dump trace when it is off.\n"}};
    LiveInstance live;
    for (const auto& [args, out] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(args), out, 1);
    }
    EXPECT_FALSE(fileExists(dump));
}

// A native trace has no buffer here; a trace into a file is that file
// already.
TEST(CommandOffClrDmp, OnlyASharedMemoryTraceIsClearedOrDumped)
{
    TempDir dir;
    openToAll(dir);
    LiveInstance native, file;
    EXPECT_RUN(native.run({"on", "-n"}), turnedOn, 0);
    EXPECT_RUN(native.run({"clr"}), "Can not clear native trace facility.\n", 1);
    EXPECT_RUN(native.run({"dmp", dir.file("d.bin")}), notShared, 1);
    EXPECT_RUN(file.run({"on", "-f", dir.file("t.bin"), "-l", "4096"}), turnedOn, 0);
    EXPECT_RUN(file.run({"dmp", dir.file("d.bin")}), notShared, 1);
    EXPECT_FALSE(fileExists(dir.file("d.bin")));
}

// A dump holds the whole trace, header and area; clear empties the area.
TEST(CommandOffClrDmp, DumpClearAndOff)
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
    EXPECT_EQ(std::string(header.magic) + " " + std::to_string(header.layoutId), "@TRACE@ 3004");
    EXPECT_EQ(settings(header), changed(defaults, "size=8192 e=4"));
    // Start marker, then the first record: 44 bytes and "dumped".
    int32_t words[3];
    std::memcpy(words, bytes.data() + 3000, sizeof words);
    EXPECT_EQ(std::vector<int32_t>(words, words + 3), (std::vector<int32_t>{8, 8, 50}));
    EXPECT_NE(bytes.find("dumped"), std::string::npos);

    const std::string used = std::to_string(2 * trcAligned(50));
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|W|N|" + used + "|2|", 0);
    EXPECT_RUN(live.run({"clear"}), "", 0);
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|W|N|0|0|", 0);
    EXPECT_RUN(live.run({"OFF"}), "Trace is turned off\n", 0);
    EXPECT_EQ(live.settings(), "no trace");
    EXPECT_RUN(live.run({"off"}), "Trace is already off; no action was taken.\n", 1);
}

// A dump never overwrites: an existing name, or one whose existence cannot
// be told (below a file: ENOTDIR is not ENOENT), is refused before the
// facility is asked, with a trace or without. "HELP" is a name like any.
TEST(CommandOffClrDmp, ExistingFilesAreRefused)
{
    TempDir dir;
    LiveInstance live;
    const std::string existing = dir.write("f", "keep me");
    dir.write("HELP", "");
    for (const bool on : {false, true}) {
        if (on) {
            EXPECT_RUN(live.run({"on"}), turnedOn, 0);
        }
        EXPECT_RUN(live.run({"dmp", existing}), refusal(3, 119), 1);
        EXPECT_RUN(live.run({"dmp", "HELP"}, dir.path()), refusal(3, 119), 1);
        EXPECT_RUN(live.run({"dmp", existing + "/x"}), refusal(3, 119), 1);
        EXPECT_EQ(kelvotest::readFile(existing), "keep me");
    }
}

// A dump that fails leaves no file: into a directory that is missing or
// cannot be written (root writes into any directory that permissions close,
// but not into a file system mounted read-only), or on a full disk, so that
// the same command can be given once there is room.
TEST(CommandOffClrDmp, AFailedDumpLeavesNoFile)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-l", "131072"}), turnedOn, 0);
    const std::string missing = dir.file("missing/d.bin"), closed = dir.file("closed/d.bin");
    EXPECT_RUN(live.run({"dmp", missing}), "Could not create " + missing + ".\n", 1);
    SmallDisk readOnly(dir.file("closed"), MS_RDONLY);
    chmod(dir.file("closed").c_str(), 0555);
    if (getuid() != 0 || readOnly.mounted()) {
        EXPECT_RUN(live.run({"dmp", closed}), "Could not create " + closed + ".\n", 1);
        EXPECT_FALSE(fileExists(closed));
    }
    const std::string target = dir.file("small/d.bin");
    {
        SmallDisk disk(dir.file("small"));
        if (!disk.mounted()) {
            GTEST_SKIP() << "a small file system can be mounted only by root";
        }
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_RUN(live.run({"dmp", target}),
                       "The target disk is full. Cleanup the disk to get some disk space \n\n", 1);
            EXPECT_FALSE(fileExists(target));
        }
    }
    EXPECT_RUN(live.run({"dmp", target}), "", 0);
    EXPECT_EQ(kelvotest::readFile(target).size(), 3000u + 131072u);
}
