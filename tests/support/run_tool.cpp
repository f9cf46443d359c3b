// Running processes for tests and collecting what they print.
#include "run_tool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
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

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe()
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
    }
    return Pipe{fds[0], fds[1]};
}

void closeFd(int& fd)
{
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

// A parent writing to a child that has stopped reading must see EPIPE, not
// die of SIGPIPE.
void ignoreSigpipe()
{
    static const bool done = [] {
        signal(SIGPIPE, SIG_IGN);
        return true;
    }();
    (void)done;
}

// In the child: standard input from /dev/null, or from the read end of a
// pipe when the parent feeds it.
void childStdin(int inputFd)
{
    int fd = inputFd;
    if (fd < 0) {
        fd = open("/dev/null", O_RDONLY);
    }
    if (fd < 0 || dup2(fd, STDIN_FILENO) < 0) {
        _exit(126);
    }
}

void childOutputs(const Pipe& out, const Pipe& err)
{
    if (dup2(out.write, STDOUT_FILENO) < 0 || dup2(err.write, STDERR_FILENO) < 0) {
        _exit(126);
    }
}

// Feeds input to inFd (if open) and reads outFd and errFd until both reach
// their end, all at once so that no pipe fills while another is waited on.
void exchange(int inFd, const std::string& input, int outFd, int errFd, RunResult& result)
{
    std::size_t written = 0;
    if (inFd >= 0 && input.empty()) {
        closeFd(inFd);
    }
    while (outFd >= 0 || errFd >= 0 || inFd >= 0) {
        pollfd fds[3] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (poll(fds, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error(std::string("poll: ") + std::strerror(errno));
        }
        int* readFds[2] = {&outFd, &errFd};
        std::string* sinks[2] = {&result.out, &result.err};
        for (int i = 0; i < 2; ++i) {
            if (*readFds[i] >= 0 && fds[i].revents != 0) {
                char buffer[4096];
                const ssize_t n = read(*readFds[i], buffer, sizeof buffer);
                if (n > 0) {
                    sinks[i]->append(buffer, static_cast<std::size_t>(n));
                } else if (n == 0 || errno != EINTR) {
                    closeFd(*readFds[i]);
                }
            }
        }
        if (inFd >= 0 && fds[2].revents != 0) {
            const ssize_t n = write(inFd, input.data() + written, input.size() - written);
            if (n > 0) {
                written += static_cast<std::size_t>(n);
            }
            if ((n < 0 && errno != EINTR && errno != EAGAIN) || written == input.size()) {
                closeFd(inFd);
            }
        }
    }
}

int waitStatus(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(std::string("waitpid: ") + std::strerror(errno));
        }
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return -1;
}

// The test's environment with the overrides applied, as "NAME=value" texts.
std::vector<std::string> childEnvironment(const EnvOverrides& env)
{
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        if (env.find(name) == env.end()) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : env) {
        if (value) {
            result.push_back(name + "=" + *value);
        }
    }
    return result;
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

const char* toolPath()
{
    return KELVO_TOOL_PATH;
}

RunResult runProgram(const std::string& path, const std::vector<std::string>& argv,
                     const EnvOverrides& env, const std::string& workDir,
                     const std::optional<std::string>& input)
{
    ignoreSigpipe();
    std::vector<std::string> argTexts = argv;
    std::vector<std::string> envTexts = childEnvironment(env);
    std::vector<char*> argPointers = pointers(argTexts);
    std::vector<char*> envPointers = pointers(envTexts);

    Pipe out = makePipe();
    Pipe err = makePipe();
    Pipe in;
    if (input) {
        in = makePipe();
    }
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    if (pid == 0) {
        childStdin(in.read);
        childOutputs(out, err);
        if (!workDir.empty() && chdir(workDir.c_str()) != 0) {
            _exit(126);
        }
        signal(SIGPIPE, SIG_DFL);
        execve(path.c_str(), argPointers.data(), envPointers.data());
        _exit(127);
    }
    closeFd(out.write);
    closeFd(err.write);
    closeFd(in.read);
    // A blocking write of the input could wait for a child that waits for
    // its output to be read.
    if (in.write >= 0) {
        fcntl(in.write, F_SETFL, fcntl(in.write, F_GETFL) | O_NONBLOCK);
    }

    RunResult result;
    exchange(in.write, input.value_or(std::string()), out.read, err.read, result);
    result.status = waitStatus(pid);
    return result;
}

RunResult runToolAs(const std::string& argv0, const std::vector<std::string>& args,
                    const EnvOverrides& env, const std::string& workDir,
                    const std::optional<std::string>& input)
{
    std::vector<std::string> argv{argv0};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(toolPath(), argv, env, workDir, input);
}

RunResult runTool(const std::vector<std::string>& args, const EnvOverrides& env,
                  const std::string& workDir, const std::optional<std::string>& input)
{
    return runToolAs(toolPath(), args, env, workDir, input);
}

RunResult captureChild(const std::function<void()>& fn)
{
    Pipe out = makePipe();
    Pipe err = makePipe();
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    if (pid == 0) {
        childStdin(-1);
        childOutputs(out, err);
        try {
            fn();
        } catch (...) {
            std::fflush(nullptr);
            _exit(childThrew);
        }
        std::fflush(nullptr);
        _exit(childReturned);
    }
    closeFd(out.write);
    closeFd(err.write);

    RunResult result;
    exchange(-1, std::string(), out.read, err.read, result);
    result.status = waitStatus(pid);
    return result;
}

TempDir::TempDir()
{
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") +
                          "/kelvo-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    }
    path_ = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string& name) const
{
    return path_ + "/" + name;
}

std::string TempDir::write(const std::string& name, const std::string& content) const
{
    const std::string target = file(name);
    std::ofstream stream(target, std::ios::binary | std::ios::trunc);
    stream << content;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + target);
    }
    return target;
}

std::string readFile(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        ADD_FAILURE() << "cannot read " << path;
        return {};
    }
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

}  // namespace kelvotest
