// Finding the TFI directory and its .tfi files.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trctfiexc.h"
#include "trctfifilename.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <string>
#include <vector>

using tfitest::CwdGuard;
using tfitest::EnvGuard;
using tfitest::failureOf;

namespace {

// The paths handed out, sorted, since readdir gives no order.
std::vector<std::string> walk()
{
    std::vector<std::string> paths;
    trcTfiFilenameFactory files;
    while (!files.isEmpty())
        paths.push_back(static_cast<const char*>(files.fileName));
    EXPECT_TRUE(files.isEmpty());
    std::sort(paths.begin(), paths.end());
    return paths;
}

using list = std::vector<std::string>;

} // namespace

TEST(TfiFilename, OnlyNamesEndingInDotTfiQualify)
{
    kelvotest::TempDir dir;
    for (const char* name : {"a.tfi", ".tfi", "b.TFI", "c.tfi~", "c.tfi.bak", "tfi", "d.Tfi", "e.tfix", "xtfi"})
        dir.write(name, "");
    ::mkdir(dir.file("sub.tfi").c_str(), 0700);
    EnvGuard tfiDir("TRCTFIDIR", dir.path());
    EXPECT_EQ(walk(), (list{dir.path() + "/.tfi", dir.path() + "/a.tfi", dir.path() + "/sub.tfi"}));
}

TEST(TfiFilename, ADirectoryWithoutTfiFilesIsNoFailure)
{
    kelvotest::TempDir dir;
    dir.write("readme", "");
    EnvGuard tfiDir("TRCTFIDIR", dir.path());
    EXPECT_EQ(walk(), list{});
}

TEST(TfiFilename, TrctfidirComesFirstAndIsTheOnlyTry)
{
    kelvotest::TempDir tfi, home;
    tfi.write("t.tfi", "");
    ::mkdir(home.file("etc").c_str(), 0700);
    home.write("etc/h.tfi", "");
    {
        EnvGuard tfiDir("TRCTFIDIR", tfi.path());
        EnvGuard kelvoHome("KELVO_HOME", home.path());
        EXPECT_EQ(walk(), list{tfi.path() + "/t.tfi"});
    }
    {
        EnvGuard tfiDir("TRCTFIDIR", tfi.file("missing"));
        EnvGuard kelvoHome("KELVO_HOME", home.path());
        EXPECT_EQ(failureOf([] { trcTfiFilenameFactory files; }), "2|Could not open dir in TRCTFIDIR|(null)|0");
    }
    {
        EnvGuard tfiDir("TRCTFIDIR", std::string());
        EnvGuard kelvoHome("KELVO_HOME", home.path());
        EXPECT_EQ(failureOf([] { trcTfiFilenameFactory files; }), "2|Could not open dir in TRCTFIDIR|(null)|0");
    }
    {
        EnvGuard tfiDir("TRCTFIDIR", tfi.path() + "/");
        EXPECT_EQ(walk(), list{tfi.path() + "//t.tfi"});
    }
}

TEST(TfiFilename, KelvoHomeGivesItsEtcDirectory)
{
    kelvotest::TempDir home, cwd;
    cwd.write("c.tfi", "");
    ::mkdir(home.file("etc").c_str(), 0700);
    home.write("etc/h.tfi", "");
    EnvGuard tfiDir("TRCTFIDIR", std::nullopt);
    CwdGuard inCwd(cwd.path());
    {
        EnvGuard kelvoHome("KELVO_HOME", home.path());
        EXPECT_EQ(walk(), list{home.path() + "/etc/h.tfi"});
    }
    {
        // No etc below it: the current directory is not tried.
        EnvGuard kelvoHome("KELVO_HOME", cwd.path());
        EXPECT_EQ(failureOf([] { trcTfiFilenameFactory files; }), "5|Could not open current directory|(null)|0");
    }
    {
        // Set but empty: "/etc".
        EnvGuard kelvoHome("KELVO_HOME", std::string());
        trcTfiFilenameFactory files;
        EXPECT_STREQ(files.directory, "/etc");
    }
}

TEST(TfiFilename, WithoutEitherVariableTheCurrentDirectory)
{
    kelvotest::TempDir cwd;
    cwd.write("c.tfi", "");
    EnvGuard tfiDir("TRCTFIDIR", std::nullopt);
    EnvGuard kelvoHome("KELVO_HOME", std::nullopt);
    {
        CwdGuard inCwd(cwd.path());
        EXPECT_EQ(walk(), list{"./c.tfi"});
    }
}

TEST(TfiFilename, ACurrentDirectoryThatCannotBeOpened)
{
    kelvotest::TempDir locked;
    ::chmod(locked.path().c_str(), 0);
    // In a child, which as root gives up its rights first.
    kelvotest::RunResult result = kelvotest::captureChild([&] {
        ::unsetenv("TRCTFIDIR");
        ::unsetenv("KELVO_HOME");
        if (::chdir(locked.path().c_str()) != 0 || (::geteuid() == 0 && ::setuid(65534) != 0))
            std::exit(3);
        std::fputs(failureOf([] { trcTfiFilenameFactory files; }).c_str(), stdout);
    });
    ::chmod(locked.path().c_str(), 0700);
    EXPECT_EQ(result.out, "5|Could not open current directory|(null)|0");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, kelvotest::childReturned);
}

TEST(TfiFilename, LongPathsGoToTheHeap)
{
    kelvotest::TempDir dir;
    std::string name = std::string(90, 'l') + ".tfi";
    dir.write(name, "");
    EnvGuard tfiDir("TRCTFIDIR", dir.path());
    trcTfiFilenameFactory files;
    ASSERT_FALSE(files.isEmpty());
    EXPECT_EQ(std::string(files.fileName), dir.path() + "/" + name);
    EXPECT_FALSE(files.fileName.isLocal());
    EXPECT_TRUE(files.isEmpty());
}
