// Finding the TFI directory and its .tfi files.
#include "tfi_support.h"
#include "run_tool.h"

#include "trctfifilename.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using env = std::optional<std::string>;

// What the factory finds in a child with TRCTFIDIR and KELVO_HOME as given
// (nullopt: unset) working in cwd, unprivileged if asked: "directory: paths"
// sorted, since readdir gives no order, or the failure.
std::string found(const env& tfiDir, const env& home, const std::string& cwd, bool unprivileged = false)
{
    kelvotest::RunResult r = kelvotest::captureChild([&] {
        kelvotest::setEnv("TRCTFIDIR", tfiDir);
        kelvotest::setEnv("KELVO_HOME", home);
        if (::chdir(cwd.c_str()) != 0 || (unprivileged && ::geteuid() == 0 && ::setuid(65534) != 0))
            std::exit(3);
        std::string listing;
        std::string failure = kelvotest::failureOf([&] {
            trcTfiFilenameFactory files;
            std::vector<std::string> paths;
            while (!files.isEmpty())
                paths.push_back(static_cast<const char*>(files.fileName));
            std::sort(paths.begin(), paths.end());
            listing = std::string(files.directory) + ":";
            for (const std::string& path : paths)
                listing += " " + path;
            if (!files.isEmpty())
                listing += " (not empty after the end)";
        });
        std::fputs((listing.empty() ? failure : listing).c_str(), stdout);
    });
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, kelvotest::childReturned);
    return r.out;
}

}  // namespace

TEST(TfiFilename, OnlyNamesEndingInDotTfiQualify)
{
    kelvotest::TempDir dir, none;
    const std::string longName = std::string(90, 'l') + ".tfi", &d = dir.path();
    for (const char* name :
         {"a.tfi", ".tfi", "b.TFI", "c.tfi~", "c.tfi.bak", "tfi", "d.Tfi", "e.tfix", "xtfi", longName.c_str()})
        dir.write(name, "");
    ::mkdir(dir.file("sub.tfi").c_str(), 0700);
    EXPECT_EQ(found(d, {}, "/"), d + ": " + d + "/.tfi " + d + "/a.tfi " + d + "/" + longName + " " + d + "/sub.tfi");
    none.write("readme", "");
    EXPECT_EQ(found(none.path(), {}, "/"), none.path() + ":");
}

TEST(TfiFilename, DirectoryChoice)
{
    kelvotest::TempDir tfi, home, cwd, locked;
    tfi.write("t.tfi", "");
    ::mkdir(home.file("etc").c_str(), 0700);
    home.write("etc/h.tfi", "");
    cwd.write("c.tfi", "");
    const std::string t = tfi.path(), h = home.path(), c = cwd.path();
    const std::string noTfiDir = "2|Could not open dir in TRCTFIDIR|(null)|0",
                      noCwd = "5|Could not open current directory|(null)|0";
    const struct {
        env tfiDir, home;
        std::string expected;
    } rows[] = {
        {t, h, t + ": " + t + "/t.tfi"},  // TRCTFIDIR first and the only try
        {t + "/missing", h, noTfiDir},
        {"", h, noTfiDir},
        {t + "/", {}, t + "/: " + t + "//t.tfi"},
        {{}, h, h + "/etc: " + h + "/etc/h.tfi"},
        {{}, c, noCwd},  // no etc below KELVO_HOME: the current directory is not tried
        {{}, {}, ".: ./c.tfi"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(found(row.tfiDir, row.home, c), row.expected)
            << row.tfiDir.value_or("-") << " " << row.home.value_or("-");
    EXPECT_EQ(found({}, "", c).substr(0, 5), "/etc:");
    ::chmod(locked.path().c_str(), 0);
    EXPECT_EQ(found({}, {}, locked.path(), true), noCwd);
    ::chmod(locked.path().c_str(), 0700);
}
