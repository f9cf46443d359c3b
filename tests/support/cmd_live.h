// Helpers for command tests that need a live trace: a private facility
// instance per test, turned off when the test ends however it ends. The test
// process itself never calls the facility: every such call runs in a forked
// child, so that no mapping of one test's instance is left for the next.
#ifndef KELVO_TESTS_CMD_LIVE_H
#define KELVO_TESTS_CMD_LIVE_H

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kelvo/facility.h"
#include "kelvo/trace.h"
#include "run_tool.h"
#include "trcmask.h"
#include "trcmsg.h"

namespace kelvotest {

inline const std::string turnedOn = "Trace is turned on\n";

inline std::string maskText(const uint8_t* mask)
{
    std::vector<char> buffer(trcMaskTextMax + 1);
    unsigned char copy[trcMaskBytes];
    std::memcpy(copy, mask, sizeof copy);
    trcMaskToStr(copy, buffer.data());
    return buffer.data();
}

inline bool isClear(const uint8_t* mask)
{
    return std::all_of(mask, mask + TRC_MASK_SIZE, [](uint8_t b) { return b == 0; });
}

// Every setting of a header in one line, so that a test checks them all.
inline std::string settings(const trcHeader_t& h)
{
    const auto maskOrNone = [](const uint8_t* m) { return isClear(m) ? "none" : maskText(m); };
    std::ostringstream s;
    s << "flags=" << h.flags << " size=" << h.bufferSize << " mask=" << maskText(h.mask) << " pid=" << h.tracePid
      << " tid=" << h.traceTid << " cpid=" << h.traceCpid << " this=0x" << std::hex << h.thisPointer << std::dec
      << " rc=" << h.sysErrRc << " e=" << h.maxSevereErrors << " r=" << h.maxRecordSize << " pa=" << h.pauseAttrib
      << " pause=" << maskOrNone(h.pauseMask) << " crash=" << maskOrNone(h.crashMask)
      << " file=" << std::string(h.fileName, strnlen(h.fileName, sizeof h.fileName));
    return s.str();
}

// base with each key=value word of changes in place of its own.
inline std::string changed(const std::string& base, const std::string& changes)
{
    std::istringstream in(base);
    std::string result;
    for (std::string word; in >> word;) {
        const std::string key = word.substr(0, word.find('=') + 1);
        std::istringstream news(changes);
        for (std::string change; news >> change;) {
            word = change.rfind(key, 0) == 0 ? change : word;
        }
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

// What a plain `on` sets.
inline const std::string defaults = "flags=137 size=1048576 mask=*.*.*.*.*.* pid=-1 tid=-1 cpid=-1 "
                                    "this=0x0 rc=0 e=1 r=32768 pa=-1 pause=none crash=none file=";

// The words of a command line written with single spaces.
inline std::vector<std::string> split(const std::string& line)
{
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

inline std::vector<std::string> words(const std::string& first, std::vector<std::string> rest)
{
    rest.insert(rest.begin(), first);
    return rest;
}

class LiveInstance {
public:
    LiveInstance()
    {
        static std::atomic<unsigned> serial{0};
        name_ = "t";
        name_.append(std::to_string(getpid())).append("_").append(std::to_string(serial++));
    }
    ~LiveInstance() { run({"off"}); }
    LiveInstance(const LiveInstance&) = delete;
    LiveInstance& operator=(const LiveInstance&) = delete;

    const std::string& name() const { return name_; }

    kelvotest::RunResult run(const std::vector<std::string>& args, const std::string& workDir = {}) const
    {
        return kelvotest::runTool(args, {{"KELVO_INSTANCE", name_}}, workDir);
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

    // The bytes of the live header; none if no trace exists.
    std::string header() const
    {
        return inChild([] {
                   if (const trcHeader_t* live = trcAttach(0, 0, 0)) {
                       std::fwrite(live, sizeof *live, 1, stdout);
                   }
               })
            .out;
    }

    std::string settings() const
    {
        const std::string bytes = header();
        trcHeader_t h{};
        std::memcpy(&h, bytes.data(), std::min(bytes.size(), sizeof h));
        return bytes.size() == sizeof h ? kelvotest::settings(h) : "no trace";
    }

    // Writes count text records; returns how many the trace took.
    int write(int count, const std::string& text, unsigned product = 1, unsigned event = 30) const
    {
        const auto child = inChild([&] {
            int stored = 0;
            for (int i = 0; i < count; ++i) {
                stored +=
                    trcWrite(product, event, 1, 1, 1, 1, nullptr, text.data(), static_cast<unsigned>(text.size())) == 0;
            }
            std::printf("%d", stored);
        });
        return std::atoi(child.out.c_str());
    }

private:
    std::string name_;
};

inline std::string msg(int number) { return trcMsgGet(number); }

// What usage(usageMessage) prints, and with an error message before it.
inline std::string usageText(int usageMessage) { return msg(usageMessage) + "\n"; }
inline std::string refusal(int usageMessage, int errorMessage)
{
    return (errorMessage < 0 ? "" : msg(errorMessage) + "\n\n") + usageText(usageMessage);
}

// A directory the tool can write into after `on` has left root for the
// service account.
inline void openToAll(const kelvotest::TempDir& dir) { chmod(dir.path().c_str(), 0777); }
inline bool fileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A 64 KiB tmpfs on a fresh directory while the object lives; only root
// can have one.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& path, unsigned long flags = 0) : path_(path)
    {
        mkdir(path.c_str(), 0777);
        mounted_ = getuid() == 0 && mount("tmpfs", path.c_str(), "tmpfs", flags, "size=64k,mode=0777") == 0;
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

}  // namespace kelvotest

#define EXPECT_RUN(run, expectedOut, expectedStatus)                                                                   \
    do {                                                                                                               \
        const auto& run_ = (run);                                                                                      \
        EXPECT_EQ(run_.out, expectedOut);                                                                              \
        EXPECT_EQ(run_.err, "");                                                                                       \
        EXPECT_EQ(run_.status, expectedStatus);                                                                        \
    } while (0)

#endif
