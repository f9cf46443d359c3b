// Helpers for command tests that need a live trace: a private facility
// instance per test, turned off when the test ends however it ends, and
// looks into the live block from a child process.
//
// The test process itself never calls the facility: every such call runs
// in a forked child (captureChild), so that no mapping or cached state of
// one test's instance is left over for the next.
#ifndef KELVO_TESTS_CMD_LIVE_H
#define KELVO_TESTS_CMD_LIVE_H

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kelvo/facility.h"
#include "kelvo/trace.h"
#include "run_tool.h"
#include "trcmsg.h"

namespace cmdlive {

// A facility instance of its own; the trace is turned off at the end.
class LiveInstance {
public:
    LiveInstance()
    {
        static std::atomic<unsigned> serial{0};
        name_ = "t" + std::to_string(getpid()) + "_" + std::to_string(serial++);
    }
    ~LiveInstance() { kelvotest::runTool({"off"}, env()); }
    LiveInstance(const LiveInstance&) = delete;
    LiveInstance& operator=(const LiveInstance&) = delete;

    const std::string& name() const { return name_; }
    kelvotest::EnvOverrides env() const { return {{"KELVO_INSTANCE", name_}}; }

    // The tool with this instance, in workDir if one is given.
    kelvotest::RunResult run(const std::vector<std::string>& args,
                             const std::string& workDir = {}) const
    {
        return kelvotest::runTool(args, env(), workDir);
    }

    // Runs fn in a child process that uses this instance.
    kelvotest::RunResult inChild(const std::function<void()>& fn) const
    {
        const std::string name = name_;
        return kelvotest::captureChild([&] {
            setenv("KELVO_INSTANCE", name.c_str(), 1);
            fn();
        });
    }

    // A copy of the live header; nothing if no trace exists.
    std::optional<trcHeader_t> header() const
    {
        const auto child = inChild([] {
            const trcHeader_t* live = trcAttach(0, 0, 0);
            if (live != nullptr) {
                std::fwrite(live, sizeof *live, 1, stdout);
            }
        });
        if (child.out.size() != sizeof(trcHeader_t)) {
            return std::nullopt;
        }
        trcHeader_t copy;
        std::memcpy(&copy, child.out.data(), sizeof copy);
        return copy;
    }

    // Writes count text records of the given product and event; returns
    // how many the trace took.
    int write(int count, const std::string& text, unsigned product = 1, unsigned event = 30) const
    {
        const auto child = inChild([&] {
            int stored = 0;
            for (int i = 0; i < count; ++i) {
                stored += trcWrite(product, event, 1, 1, 1, 1, nullptr, text.data(),
                                   static_cast<unsigned>(text.size())) == 0;
            }
            std::printf("%d", stored);
        });
        return std::atoi(child.out.c_str());
    }

private:
    std::string name_;
};

inline std::string msg(int number)
{
    return trcMsgGet(number);
}

// What usage(usageMessage, errorMessage) prints.
inline std::string usageText(int usageMessage)
{
    return msg(usageMessage) + "\n";
}
inline std::string refusal(int usageMessage, int errorMessage)
{
    return msg(errorMessage) + "\n\n" + usageText(usageMessage);
}

// A directory that the tool can write into even after `on` has left root
// for the service account.
inline void openToAll(const kelvotest::TempDir& dir)
{
    chmod(dir.path().c_str(), 0777);
}

inline bool fileExists(const std::string& path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

}  // namespace cmdlive

#define EXPECT_RUN(run, expectedOut, expectedStatus)   \
    do {                                              \
        const auto& run_ = (run);                     \
        EXPECT_EQ(run_.out, expectedOut);             \
        EXPECT_EQ(run_.err, "");                      \
        EXPECT_EQ(run_.status, expectedStatus);       \
    } while (0)

#endif
