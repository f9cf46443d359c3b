// Helpers for tests that look at what a process prints and how it ends:
// running the built kelvo tool (or any program), running a function of the
// test program in a child process, and a temporary directory.
//
// All of them capture standard output and standard error separately and
// whole, and report the exit status. A child killed by a signal reports
// 128 + the signal number, as a shell does, so a crash never passes for a
// normal status.
#ifndef KELVO_TESTS_RUN_TOOL_H
#define KELVO_TESTS_RUN_TOOL_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kelvotest {

struct RunResult {
    std::string out;  // everything written to standard output
    std::string err;  // everything written to standard error
    int status = -1;  // exit status; 128 + signal if killed
};

// Changes to the environment of the child, on top of the test's own: a value
// sets the variable, std::nullopt removes it.
using EnvOverrides = std::map<std::string, std::optional<std::string>>;

// Path of the built kelvo tool.
const char* toolPath();

// Runs the kelvo tool with the given arguments (the words behind the
// program name), with argv[0] set to the tool's path.
//   env:     changes to the environment, see EnvOverrides.
//   workDir: working directory of the child; empty keeps the test's own.
//   input:   text fed to standard input; without it standard input is
//            /dev/null.
// Example: runTool({"fmt", "-m", "1", "dump.bin"}, {{"TRCTFIDIR", dir}}, tmp.path())
RunResult runTool(const std::vector<std::string>& args, const EnvOverrides& env = {},
                  const std::string& workDir = {},
                  const std::optional<std::string>& input = std::nullopt);

// As runTool, but the tool sees argv0 as its argv[0] (e.g. "bin/kelvo"),
// whatever its real path. An empty argv0 is passed as the empty text.
RunResult runToolAs(const std::string& argv0, const std::vector<std::string>& args,
                    const EnvOverrides& env = {}, const std::string& workDir = {},
                    const std::optional<std::string>& input = std::nullopt);

// Runs the program at path with exactly the argument vector argv (argv[0]
// included; an empty vector passes none). Same options as runTool.
RunResult runProgram(const std::string& path, const std::vector<std::string>& argv,
                     const EnvOverrides& env = {}, const std::string& workDir = {},
                     const std::optional<std::string>& input = std::nullopt);

// Status of a captureChild whose function returned instead of exiting, and
// of one whose function let an exception out.
constexpr int childReturned = 250;
constexpr int childThrew = 251;

// Runs fn in a forked child of the test program with standard output and
// standard error captured, for code that ends the process (exit) or prints
// through stdio. The child flushes stdio and ends with childReturned when fn
// returns; if fn calls exit, its status is reported. The parent's stdio is
// flushed before the fork so that nothing buffered is written twice.
// Standard input of the child is /dev/null. Do not use gtest assertions in
// fn: they would fail in the child, unseen; return what to check instead,
// through the output.
RunResult captureChild(const std::function<void()>& fn);

// A fresh directory under $TMPDIR (or /tmp), removed with all its contents
// when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    // path() + "/" + name
    std::string file(const std::string& name) const;
    // Writes content to the file name in the directory (created or
    // replaced); returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string path_;
};

// Whole contents of a file; fails the calling test if it cannot be read.
std::string readFile(const std::string& path);

}  // namespace kelvotest

#endif
