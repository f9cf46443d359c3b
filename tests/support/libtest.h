// Helpers for the tests of the trace facility library: a private facility
// instance per test, dumps read back into memory, and the walk over them.
#ifndef KELVO_TESTS_LIBTEST_H
#define KELVO_TESTS_LIBTEST_H

#include <kelvo/facility.h>
#include <kelvo/trace.h>

#include "run_tool.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kelvotest {

std::vector<uint8_t> allMask();
std::vector<uint8_t> noMask();

// The settings of `kelvo on` with no options, for the fields tests vary.
struct OnArgs {
    std::vector<uint8_t> mask = allMask();
    int32_t pid = -1, tid = -1, cpid = -1;
    uint32_t thisPointer = 0;
    int32_t returnCode = 0, maxSevereErrors = -1, maxRecordSize = 32768;
    uint32_t flags = TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK;
    std::vector<uint8_t> crashMask = noMask(), pauseMask = noMask();
    int32_t pauseAttrib = -1;
    std::string fileName;
    int64_t bufferSize = 1048576;
};
int turnOn(const OnArgs& args);  // trcOn; 0 or errno
int change(const OnArgs& args);  // trcChg; 0 or errno

// A facility instance of its own, set in KELVO_INSTANCE; turned off at the end.
class Instance {
public:
    Instance();
    ~Instance() { trcOff(0); }
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

int dumpTo(const std::string& path, std::string& bytes);  // trcDump; 0 or errno

// Gives this process back, at the end of the scope, the processors it may
// run on at its start.
class KeepProcessors {
public:
    KeepProcessors();
    ~KeepProcessors();

private:
    cpu_set_t before_;
};

// Moves this process, and the children it starts from then on, to one
// processor, so that all their writes go into one lane.
void runOn(int cpu);

// One record as the walk found it; whole: the trailing word equals the length.
struct Found {
    trcRecord_t head;
    std::array<uint8_t, 6> ids;
    std::string data;
    bool whole;
};
struct Walked {
    bool complete = false;  // reached the end mark: no corrupt records
    bool lost = false;
    std::vector<Found> records;
};
Walked walkImage(const std::string& image);  // header and area
Walked dumpAndWalk(const TempDir& dir);

// Text of record n, its length varying with n so that every record can be
// checked whole; patternNumber gives n back, or -1 for another text.
std::string patternText(uint32_t n);
int64_t patternNumber(const std::string& text);
// Asserts that the walk found whole pattern records numbered without a gap,
// the newest being `last`.
void expectRun(const Walked& w, int64_t last);

// Runs fn in a child process and returns its wait status.
template <typename Fn>
int inChild(Fn fn)
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(fn());
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

}  // namespace kelvotest

#endif
