// Tracing never stops the product, whatever other processes do: a report
// that never finishes, a writer stopped or killed between two of its
// stores, stray bytes anywhere in the block. Writers go on (or drop and
// count), the commands end the trace and start a new one, and the tool's
// walk never meets a malformed record.
#include "libtest.h"
#include "run_tool.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <random>

using namespace kelvotest;
using kelvotest::RunResult;
using kelvotest::runTool;

namespace {

const std::string turnedOn = "Trace is turned on\n";
const std::string turnedOff = "Trace is turned off\n";
const std::string corrupt = "Dump file contains corrupt trace records";

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

pid_t spawn(const std::vector<std::string>& argv, int out)
{
    pid_t pid = fork();
    if (pid == 0) {
        if (out >= 0)
            dup2(out, 1);
        std::vector<char*> args;
        for (const std::string& a : argv)
            args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

int writeText(const std::string& text)
{
    return trcWrite(1, 30, 2, 3, 4, 5, nullptr, text.data(), static_cast<unsigned>(text.size()));
}

// The block of the instance, mapped as a stray pointer of a traced program
// would see it.
struct Block {
    explicit Block(const std::string& instance)
    {
        int fd = open(("/dev/shm/kelvo." + instance).c_str(), O_RDWR);
        struct stat st {};
        if (fd >= 0 && fstat(fd, &st) == 0) {
            size = static_cast<std::size_t>(st.st_size);
            void* at = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            bytes = at == MAP_FAILED ? nullptr : static_cast<uint8_t*>(at);
        }
        if (fd >= 0)
            close(fd);
    }
    ~Block()
    {
        if (bytes != nullptr)
            munmap(bytes, size);
    }
    void put(std::size_t offset, const void* data, std::size_t n)
    {
        if (bytes != nullptr && offset + n <= size)
            std::memcpy(bytes + offset, data, n);
    }
    uint8_t* bytes = nullptr;
    std::size_t size = 0;
};

// A command that ran to its end: no signal, no hang.
void expectEnded(const RunResult& r, const std::string& what)
{
    EXPECT_LT(r.status, 128) << what << ": " << r.out << r.err;
    EXPECT_EQ(r.out.find(corrupt), std::string::npos) << what;
}

class LibFaults : public testing::Test {
protected:
    Instance instance;
    kelvotest::TempDir dir;
    OnArgs args;
};

}  // namespace

TEST_F(LibFaults, AReportThatNeverFinishesStopsNoWriterAndOffStillEndsTheTrace)
{
    ASSERT_EQ(turnOn(args), 0);
    for (int n = 0; n < 5000; ++n)
        ASSERT_EQ(writeText("record " + std::to_string(n) + std::string(40, '.')), 0);
    // A pager that is never read: the report blocks on its output while it
    // holds the trace, then is stopped as well.
    std::string fifo = dir.file("pager");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int pager = open(fifo.c_str(), O_RDWR);
    ASSERT_GE(pager, 0);
    pid_t report = spawn({kelvotest::toolPath(), "fmt"}, pager);
    // The report writes while it holds the trace: once the pipe is full, it
    // waits there with the trace held.
    int queued = 0;
    for (int look = 0; look < 2000 && queued < 60000; ++look, usleep(10000))
        ioctl(pager, FIONREAD, &queued);
    ASSERT_GE(queued, 60000);
    kill(report, SIGSTOP);

    // A fresh writer: 1000 writes, each of which returns (the alarm only
    // keeps the test finite: a waiting write never returns), stored or
    // dropped and counted, none failed.
    pid_t writer = fork();
    if (writer == 0) {
        alarm(60);
        int failed = 0;
        for (int n = 0; n < 1000; ++n)
            failed += writeText("while held") < 0;
        _exit(failed);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // Clearing needs the trace to itself: it gives up with its own message.
    RunResult clear = runTool({"clr"});
    EXPECT_EQ(clear.out, "Unexpected System Error.\nC library function error number = 11.\n");
    EXPECT_EQ(clear.status, 1);

    auto start = std::chrono::steady_clock::now();
    RunResult off = runTool({"off"});
    EXPECT_LT(secondsSince(start), 2.0);
    EXPECT_EQ(std::tuple(off.out, off.err, off.status), std::tuple(turnedOff, std::string(), 0));
    EXPECT_EQ(runTool({"on"}).out, turnedOn);
    EXPECT_EQ(writeText("after"), 0);
    kill(report, SIGKILL);
    waitpid(report, nullptr, 0);
    close(pager);
}

TEST_F(LibFaults, AWriterStoppedOrKilledBetweenItsStoresStopsNobody)
{
    for (const char* how : {"stop", "die"}) {
        for (int store = 0; store < 3; ++store) {
            SCOPED_TRACE(testing::Message() << how << " before store " << store);
            ASSERT_EQ(turnOn(args), 0);
            pid_t faulty = spawn({FAULT_WRITER_PATH, "50", how, std::to_string(store)}, -1);
            int status = 0;
            ASSERT_EQ(waitpid(faulty, &status, WUNTRACED), faulty);
            EXPECT_TRUE(WIFSTOPPED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 9)) << status;
            for (int n = 0; n < 10; ++n)
                EXPECT_EQ(writeText("other " + std::to_string(n)), 0);
            std::string dump = dir.file(std::string(how) + std::to_string(store));
            EXPECT_EQ(runTool({"dmp", dump}).status, 0);
            RunResult fmt = runTool({"fmt", dump});
            expectEnded(fmt, "fmt");
            Walked w = walkImage(readFile(dump));
            EXPECT_TRUE(w.complete);
            // 49 whole records of the faulty writer, its last one whole or
            // given up, and the other writer's ten.
            ASSERT_EQ(w.records.size(), 60u);
            for (std::size_t i = 0; i < 49; ++i)
                EXPECT_EQ(w.records[i].data, "fault n=" + std::to_string(i));
            EXPECT_TRUE(w.records[49].ids[0] == 255 || w.records[49].data == "fault n=49");
            EXPECT_EQ(w.records[59].data, "other 9");
            if (WIFSTOPPED(status)) {
                kill(faulty, SIGKILL);
                waitpid(faulty, nullptr, 0);
            }
            EXPECT_EQ(trcOff(0), 0);
        }
    }
}

TEST_F(LibFaults, StrayBytesAnywhereInTheBlockCrashNothingAndOffThenOnAlwaysWork)
{
    ASSERT_EQ(turnOn(args), 0);
    pid_t writer = fork();
    if (writer == 0)
        for (uint32_t n = 0;; ++n)  // until killed
            writeText(patternText(n));
    std::mt19937 random(11);
    // Fixed patterns over the control page and every header field, then
    // bursts of random bytes anywhere.
    std::vector<std::pair<std::size_t, uint32_t>> strays;
    for (std::size_t offset = 0; offset < 256; offset += 4)
        strays.push_back({offset, offset % 8 == 0 ? 0xFFFFFFFFu : 0x7FFFFFF0u});
    for (std::size_t field : {0u, 8u, 2100u, 2108u, 2136u, 2140u, 2148u, 2152u, 2728u, 2736u})
        for (uint32_t value : {0u, 0x80000000u, 0x7FFFFFFFu, 3u})
            strays.push_back({4096 + field, value});
    // The control page of the last lane, where there are lanes: it lies
    // below the last area of the buffer's size.
    {
        Block block(instance.name());
        std::size_t lastLane = block.size - 4096 - static_cast<std::size_t>(args.bufferSize);
        for (std::size_t offset = 0; offset < 256; offset += 8)
            strays.push_back({lastLane + offset, offset % 16 == 0 ? 0xFFFFFFFFu : 0x7FFFFFF0u});
    }
    int rounds = static_cast<int>(strays.size()) + 30;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        {
            Block block(instance.name());
            ASSERT_NE(block.bytes, nullptr);
            if (round < static_cast<int>(strays.size())) {
                block.put(strays[round].first, &strays[round].second, 4);
            } else {
                for (int i = 0; i < 10; ++i) {
                    uint8_t bytes[16];
                    for (uint8_t& b : bytes)
                        b = static_cast<uint8_t>(random());
                    block.put(random() % block.size, bytes, 4 + random() % 13);
                }
            }
        }
        usleep(2000);
        expectEnded(runTool({"fmt", "-x", "1-3"}), "fmt");
        expectEnded(runTool({"web_buffer_info"}), "web_buffer_info");
        expectEnded(runTool({"inf"}), "inf");
        std::string dump = dir.file(std::to_string(round) + ".dump");
        if (runTool({"dmp", dump}).status == 0)
            expectEnded(runTool({"fmt", dump, dump + ".txt"}), "fmt of the dump");
        RunResult off = runTool({"off"});
        EXPECT_EQ(std::tuple(off.out, off.status), std::tuple(turnedOff, 0));
        RunResult on = runTool({"on"});
        EXPECT_EQ(std::tuple(on.out, on.status), std::tuple(turnedOn, 0));
        ASSERT_EQ(waitpid(writer, nullptr, WNOHANG), 0) << "the writer died";
    }
    kill(writer, SIGKILL);
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

TEST_F(LibFaults, LossesAreCountedAndShownWhereTheyHappened)
{
    // A trace that keeps its first records has no lanes: its writers store
    // into the area that the reader holds, and so drop their records.
    args.flags = TRC_DEST_SHARED | TRC_KEEP_INITIAL | TRC_NO_POINTER_CHECK;
    ASSERT_EQ(turnOn(args), 0);
    ASSERT_EQ(writeText("before"), 0);
    ASSERT_EQ(trcSemP(), 0);
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(writeText("dropped"), 1);
    ASSERT_EQ(trcSemV(), 0);
    ASSERT_EQ(writeText("after"), 0);
    std::string dump = dir.file("losses");
    ASSERT_EQ(runTool({"dmp", dump}).status, 0);
    Walked w = walkImage(readFile(dump));
    ASSERT_EQ(w.records.size(), 3u);
    EXPECT_EQ(w.records[1].ids, (std::array<uint8_t, 6>{255, 6, 255, 1, 1, 0}));
    EXPECT_EQ(w.records[1].data, "lost 3 records while a reader held the trace");
    // Named by the kelvo.tfi that is shipped for users.
    RunResult fmt = runTool({"fmt", "-x", "2", dump}, {{"TRCTFIDIR", std::string(KELVO_EXAMPLES_DIR)}});
    const trcRecord_t& r = w.records[1].head;
    int32_t used = 0;
    for (const Found& f : w.records)
        used += trcAligned(f.head.length);
    EXPECT_EQ(fmt.out, "Trace truncated         : no\nSize of trace           : " + std::to_string(used) +
                           " bytes\nRecords in trace        : 3\n\n2\tEVENT_LOG_EVENT  kelvo Facility "
                           "Ring::RecordsLost (255.6.255.1.1.0)\n\tpid " +
                           std::to_string(r.pid) + "; tid " + std::to_string(r.tid) + "; sec " + std::to_string(r.sec) +
                           "; nsec " + std::to_string(r.nsec) +
                           "\n\tlost 3 records while a reader held the trace\nRecords formatted       : 1\n");
    EXPECT_EQ(fmt.err, "");
}
