// A writer held up between taking its place and finishing its record while
// the other writers come round the whole buffer: they drop their records
// rather than take its place, and count them; once it has been held up for
// longer than a writer may take, it is given up and they go on.
#include "libtest.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <chrono>

using namespace kelvotest;

namespace {

// A fault_writer that stops itself in the middle of its one record.
pid_t stoppedWriter()
{
    pid_t pid = fork();
    if (pid == 0) {
        execl(FAULT_WRITER_PATH, FAULT_WRITER_PATH, "1", "stop", "1", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WUNTRACED), pid);
    EXPECT_TRUE(WIFSTOPPED(status)) << status;
    return pid;
}

int writePattern(uint32_t n)
{
    std::string text = patternText(n);
    return trcWrite(1, 30, 1, 1, 1, 1, nullptr, text.data(), static_cast<unsigned>(text.size()));
}

// Every record whole, the pattern records in order, and the text of the
// facility's records.
std::vector<std::string> facilityTexts(const Walked& w)
{
    EXPECT_TRUE(w.complete);
    std::vector<std::string> texts;
    int64_t last = -1;
    for (const Found& f : w.records) {
        EXPECT_TRUE(f.whole);
        if (f.ids[0] == 255) {
            texts.push_back(f.data);
            continue;
        }
        int64_t n = patternNumber(f.data);
        EXPECT_GT(n, last) << f.data;
        last = n;
    }
    return texts;
}

class LibLapped : public testing::Test {
protected:
    void SetUp() override
    {
        args.bufferSize = 65536 * 4;
        ASSERT_EQ(turnOn(args), 0);
    }
    Instance instance;
    TempDir dir;
    OnArgs args;
};

}  // namespace

// The writer is let go a few records after the others began to drop: well
// within the time after which it would be given up, unless this process
// was itself held up; then the case is tried again.
TEST_F(LibLapped, TheOthersDropTheirRecordsRatherThanTakeItsPlace)
{
    using Clock = std::chrono::steady_clock;
    for (int attempt = 0; attempt < 5; ++attempt) {
        ASSERT_EQ(attempt == 0 || (trcOff(0) == 0 && turnOn(args) == 0), true);
        pid_t held = stoppedWriter();
        uint32_t dropped = 0, n = 0;
        Clock::time_point firstDrop;
        for (; dropped < 100 && n < 1'000'000; ++n) {
            if (writePattern(n) == 1 && dropped++ == 0)
                firstDrop = Clock::now();
        }
        kill(held, SIGCONT);
        int status = 0;
        ASSERT_EQ(waitpid(held, &status, 0), held);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        ASSERT_EQ(dropped, 100u);
        if (Clock::now() - firstDrop > std::chrono::milliseconds(30))
            continue;
        ASSERT_EQ(writePattern(n), 0);
        std::vector<std::string> texts = facilityTexts(dumpAndWalk(dir));
        ASSERT_EQ(texts.size(), 1u);
        EXPECT_EQ(texts[0], "lost 100 records while a slow writer held its place ahead");
        return;
    }
    FAIL() << "this process was held up too long in every attempt";
}

TEST_F(LibLapped, AWriterHeldUpTooLongIsGivenUp)
{
    pid_t held = stoppedWriter();
    auto start = std::chrono::steady_clock::now();
    bool dropping = false, storedAgain = false;
    for (uint32_t n = 0; !storedAgain && std::chrono::steady_clock::now() - start < std::chrono::seconds(5); ++n) {
        int rc = writePattern(n);
        storedAgain = dropping && rc == 0;
        dropping = dropping || rc == 1;
        if (dropping)
            usleep(1000);
    }
    EXPECT_TRUE(storedAgain);
    kill(held, SIGKILL);
    waitpid(held, nullptr, 0);
    std::vector<std::string> texts = facilityTexts(dumpAndWalk(dir));
    ASSERT_FALSE(texts.empty());
    EXPECT_NE(texts[0].find("while a slow writer held its place ahead"), std::string::npos) << texts[0];
}
