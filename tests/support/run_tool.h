// Helpers for tests that look at what a process prints and how it ends: the
// built kelvo tool, any program, or a function of the test program run in a
// child. Standard output and standard error are captured whole and apart. A
// child killed by a signal reports 128 + the signal number, as a shell does,
// so that a crash never passes for a normal status.
#ifndef KELVO_TESTS_RUN_TOOL_H
#define KELVO_TESTS_RUN_TOOL_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvotest {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;
};

// Changes to the test's environment: a value sets a variable, nullopt removes it.
using EnvOverrides = std::map<std::string, std::optional<std::string>>;

const char* toolPath();  // of the built kelvo tool

// Runs the program at path with exactly argv (argv[0] included) in workDir
// (empty: the test's own), with input as its standard input (none: empty).
RunResult runProgram(const std::string& path, const std::vector<std::string>& argv, const EnvOverrides& env = {},
                     const std::string& workDir = {}, const std::optional<std::string>& input = std::nullopt);
// Runs the tool with args behind argv0 (e.g. "bin/kelvo"), or behind its own
// path: runTool({"fmt", "-m", "1", "dump.bin"}, {{"TRCTFIDIR", dir}}, tmp.path()).
RunResult runToolAs(const std::string& argv0, const std::vector<std::string>& args, const EnvOverrides& env = {},
                    const std::string& workDir = {}, const std::optional<std::string>& input = std::nullopt);
RunResult runTool(const std::vector<std::string>& args, const EnvOverrides& env = {}, const std::string& workDir = {},
                  const std::optional<std::string>& input = std::nullopt);

// Status of a captureChild whose function returned, or let an exception out.
constexpr int childReturned = 250;
constexpr int childThrew = 251;

// Runs fn in a forked child, for code that exits or prints through stdio. No
// gtest assertions in fn: they would fail unseen in the child.
RunResult captureChild(const std::function<void()>& fn);

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const;  // path() + "/" + name
    // Creates or replaces the file name with content; returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string path_;
};

// Whole contents of a file; fails the calling test if it cannot be read.
std::string readFile(const std::string& path);

}  // namespace kelvotest

#endif
