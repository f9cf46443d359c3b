// Helpers for the tests of the trace facility library: a private facility
// instance per test, dumps read back into memory, and the walk over them.
#ifndef KELVO_TESTS_LIBTEST_H
#define KELVO_TESTS_LIBTEST_H

#include <kelvo/facility.h>
#include <kelvo/trace.h>

#include <cstdint>
#include <string>
#include <vector>

namespace libtest {

// Selects every record, or none.
std::vector<uint8_t> allMask();
std::vector<uint8_t> noMask();

// The settings of `kelvo on` with no options, for the fields tests vary.
struct OnArgs {
    std::vector<uint8_t> mask = allMask();
    int32_t pid = -1;
    int32_t tid = -1;
    int32_t cpid = -1;
    uint32_t thisPointer = 0;
    int32_t returnCode = 0;
    int32_t maxSevereErrors = -1;
    int32_t maxRecordSize = 32768;
    uint32_t flags = TRC_DEST_SHARED | TRC_KEEP_LAST | TRC_NO_POINTER_CHECK;
    std::vector<uint8_t> crashMask = noMask();
    std::vector<uint8_t> pauseMask = noMask();
    int32_t pauseAttrib = -1;
    std::string fileName;
    int64_t bufferSize = 1048576;
};

// trcOn with these settings; 0 or errno.
int turnOn(const OnArgs& args);

// A facility instance of its own for the running test, set in
// KELVO_INSTANCE; the trace is turned off when it ends.
class Instance {
public:
    Instance();
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

// A directory of its own, removed with its files when it ends.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// The bytes of a whole file.
std::string readWholeFile(const std::string& path);

// trcDump into a new file and its bytes; 0 or errno.
int dumpTo(const std::string& path, std::string& bytes);

// One record as the walk found it.
struct Found {
    uint8_t ids[6];
    uint32_t thisPointer;
    uint32_t pid;
    uint32_t tid;
    int32_t node;
    uint32_t cpid;
    int32_t sec;
    int32_t nsec;
    std::string data;  // length - 44 bytes
    bool whole;        // trailing word equals the length
};

// The walk over a trace image (header and area).
struct Walked {
    bool complete = false;     // reached the end mark: no corrupt records
    bool lost = false;         // hasLostRecords
    int32_t recordCount = 0;   // as counted
    std::vector<Found> records;
};
Walked walkImage(std::string image);

// Dumps the live trace into a file of `dir` and walks it.
Walked dumpAndWalk(const TempDir& dir);

// Text of a record number: a deterministic run of bytes whose length
// varies with n, so that every record can be checked whole.
std::string patternText(uint32_t n);
// n of a pattern text, or -1 if the text is not one.
int64_t patternNumber(const std::string& text);

// Runs fn in a child process and returns its wait status.
template <typename Fn> int inChild(Fn fn);

} // namespace libtest

#include <sys/wait.h>
#include <unistd.h>

template <typename Fn> int libtest::inChild(Fn fn)
{
    pid_t pid = fork();
    if (pid == 0) {
        int status = fn();
        _exit(status);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

#endif
