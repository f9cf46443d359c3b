// Running processes for tests and collecting what they print. A child's
// standard input, output and error are unnamed files in memory: no child can
// block on a full pipe, and the parent reads both outputs whole once the
// child has ended.
#include "run_tool.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

extern char** environ;

namespace kelvotest {
namespace {

void check(bool ok, const char* what)
{
    if (!ok) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }
}

// An unnamed file holding content, to be read from its start.
int memoryFile(const std::string& content)
{
    const int fd = memfd_create("kelvo-test", MFD_CLOEXEC);
    check(fd >= 0 && write(fd, content.data(), content.size()) == ssize_t(content.size()) &&
              lseek(fd, 0, SEEK_SET) == 0,
          "memory file");
    return fd;
}

// Everything in the file, read through a fresh open that starts at offset 0.
std::string takeContents(int fd)
{
    std::string text = readFile("/proc/self/fd/" + std::to_string(fd));
    close(fd);
    return text;
}

// Forks a child with input as its standard input and runs body there, which
// ends the child; returns what the child printed and how it ended.
RunResult runChild(const std::string& input, const std::function<void()>& body)
{
    const int fds[3] = {memoryFile(input), memoryFile({}), memoryFile({})};
    std::fflush(nullptr);  // nothing buffered may be written twice
    const pid_t pid = fork();
    check(pid >= 0, "fork");
    if (pid == 0) {
        for (int i = 0; i < 3; ++i) {
            if (dup2(fds[i], i) < 0) {
                _exit(126);
            }
        }
        body();
        _exit(126);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        check(errno == EINTR, "waitpid");
    }
    close(fds[0]);
    return {takeContents(fds[1]), takeContents(fds[2]),
            WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status)};
}

// "NAME=value" texts of the test's environment with the overrides applied,
// and the null-ended vector of pointers into them for execve.
std::vector<std::string> childEnvironment(const EnvOverrides& env)
{
    std::vector<std::string> texts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (env.count(text.substr(0, text.find('='))) == 0) {
            texts.push_back(text);
        }
    }
    for (const auto& [name, value] : env) {
        if (value) {
            texts.push_back(name + "=" + *value);
        }
    }
    return texts;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

}  // namespace

const char* toolPath() { return KELVO_TOOL_PATH; }

RunResult runProgram(const std::string& path, const std::vector<std::string>& argv, const EnvOverrides& env,
                     const std::string& workDir, const std::optional<std::string>& input)
{
    // Built before the fork, so that the child only changes directory and
    // calls execve.
    std::vector<std::string> argTexts = argv;
    std::vector<std::string> envTexts = childEnvironment(env);
    const std::vector<char*> args = pointers(argTexts);
    const std::vector<char*> envs = pointers(envTexts);
    return runChild(input.value_or(std::string()), [&] {
        if (workDir.empty() || chdir(workDir.c_str()) == 0) {
            execve(path.c_str(), args.data(), envs.data());
            _exit(127);
        }
    });
}

RunResult runToolAs(const std::string& argv0, const std::vector<std::string>& args, const EnvOverrides& env,
                    const std::string& workDir, const std::optional<std::string>& input)
{
    std::vector<std::string> argv{argv0};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(toolPath(), argv, env, workDir, input);
}

RunResult runTool(const std::vector<std::string>& args, const EnvOverrides& env, const std::string& workDir,
                  const std::optional<std::string>& input)
{
    return runToolAs(toolPath(), args, env, workDir, input);
}

RunResult captureChild(const std::function<void()>& fn)
{
    return runChild({}, [&] {
        int status = childReturned;
        try {
            fn();
        } catch (...) {
            status = childThrew;
        }
        std::fflush(nullptr);
        _exit(status);
    });
}

TempDir::TempDir()
{
    const char* base = std::getenv("TMPDIR");
    path_ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kelvo-test-XXXXXX";
    check(mkdtemp(path_.data()) != nullptr, "mkdtemp");
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string& name) const { return path_ + "/" + name; }

std::string TempDir::write(const std::string& name, const std::string& content) const
{
    const std::string target = file(name);
    std::ofstream stream(target, std::ios::binary | std::ios::trunc);
    check(bool(stream << content << std::flush), target.c_str());
    return target;
}

std::string readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream content;
    if (!stream) {
        ADD_FAILURE() << "cannot read " << path;
    } else {
        content << stream.rdbuf();
    }
    return content.str();
}

}  // namespace kelvotest
