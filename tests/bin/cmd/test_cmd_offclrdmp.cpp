// `kelvo off`, `kelvo clr` and `kelvo dmp`: their usage, the state of the
// trace that forbids them, and what a dump leaves on disk.
#include <climits>

#include "cmd_live.h"
#include "file_race.h"

using namespace kelvotest;
using kelvotest::TempDir;

namespace {

const std::string notShared = "Can not dump trace unless it is in shared memory.\n";

}  // namespace

TEST(CommandOffClrDmp, UsageAndNoTrace)
{
    TempDir dir;
    const std::string dump = dir.file("d.bin");
    LiveInstance live;
    EXPECT_RUN(live.run({"off", "help"}), usageText(7), 1);
    EXPECT_RUN(live.run({"off", "-x", "y"}), usageText(7), 1);
    EXPECT_RUN(live.run({"clr", "help"}), usageText(2), 1);
    EXPECT_RUN(live.run({"clear", "x"}), usageText(2), 1);
    EXPECT_RUN(live.run({"dmp"}), usageText(3), 1);
    EXPECT_RUN(live.run({"dump", "help"}), usageText(3), 1);
    EXPECT_RUN(live.run({"dmp", "a", "b"}), usageText(3), 1);
    EXPECT_RUN(live.run({"off"}), "Trace is already off; no action was taken.\n", 1);
    EXPECT_RUN(live.run({"clr"}), "Can not clear trace when it is off.\n", 1);
    EXPECT_RUN(live.run({"dmp", dump}), "Can not dump trace when it is off.\n", 1);
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

namespace {

std::string linkTarget(const std::string& path)
{
    char buffer[PATH_MAX];
    const ssize_t n = readlink(path.c_str(), buffer, sizeof buffer);
    return n < 0 ? "(not a link)" : std::string(buffer, static_cast<std::size_t>(n));
}

}  // namespace

// The name is the dump's only if the dump creates it. Whatever takes it
// between the existence test and the creation, a file or a symbolic link,
// is refused with message 401 and left as it is, with the trace on or off;
// so is a link that leads nowhere, which the existence test cannot see. A
// link to a file is an existing file. A dump that fails after another file
// took the name of its own removes nothing.
TEST(CommandOffClrDmp, ANameTakenByAnotherIsLeftAsItIs)
{
    TempDir dir;
    LiveInstance live;
    const std::string dump = dir.file("d.bin"), victim = dir.file("victim");
    const std::string cannotCreate = "Could not create " + dump + ".\n";
    const auto dmp = [&](const kelvotest::EnvOverrides& race) {
        kelvotest::EnvOverrides env = race;
        env["KELVO_INSTANCE"] = live.name();
        return kelvotest::runTool({"dmp", dump}, env);
    };
    for (const bool on : {false, true}) {
        SCOPED_TRACE(on ? "trace on" : "trace off");
        if (on) {
            EXPECT_RUN(live.run({"on"}), turnedOn, 0);
        }
        EXPECT_RUN(dmp(kelvotest::fileRace(dump, "file")), cannotCreate, 1);
        EXPECT_EQ(kelvotest::readFile(dump), "appeared\n");
        std::remove(dump.c_str());

        EXPECT_RUN(dmp(kelvotest::fileRace(dump, "link:" + victim)), cannotCreate, 1);
        EXPECT_EQ(linkTarget(dump), victim);
        EXPECT_FALSE(fileExists(victim));
        // Made beforehand, the dangling link passes the existence test.
        EXPECT_RUN(dmp({}), cannotCreate, 1);
        EXPECT_EQ(linkTarget(dump), victim);
        EXPECT_FALSE(fileExists(victim));
        dir.write("victim", "keep me");
        EXPECT_RUN(dmp({}), refusal(3, 119), 1);
        EXPECT_EQ(kelvotest::readFile(victim), "keep me");
        std::remove(dump.c_str());
        std::remove(victim.c_str());
    }
    EXPECT_RUN(live.run({"off"}), "Trace is turned off\n", 0);
    EXPECT_RUN(dmp(kelvotest::fileRace(dump, "replace")), "Can not dump trace when it is off.\n", 1);
    EXPECT_EQ(kelvotest::readFile(dump), "replaced\n");
    EXPECT_TRUE(fileExists(dump + ".moved"));
}

// A dump copies a trace that only its owner and group may read, and so is
// no more open than that, whatever the umask lets through.
TEST(CommandOffClrDmp, ADumpIsForItsOwnerAndGroup)
{
    TempDir dir;
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-l", "4096"}), turnedOn, 0);
    const mode_t saved = umask(0);
    for (const auto& [mask, mode] : std::vector<std::pair<mode_t, mode_t>>{{0, 0660}, {077, 0600}}) {
        umask(mask);
        const std::string dump = dir.file(std::string("d").append(std::to_string(mask)));
        EXPECT_RUN(live.run({"dmp", dump}), "", 0);
        struct stat st {};
        ASSERT_EQ(stat(dump.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, mode) << "umask " << mask;
    }
    umask(saved);
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
