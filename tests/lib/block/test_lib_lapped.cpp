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

TEST_F(LibLapped, TheOthersDropTheirRecordsRatherThanTakeItsPlace)
{
    pid_t held = stoppedWriter();
    uint32_t dropped = 0;
    uint32_t n = 0;
    for (; n < 20000; ++n)
        dropped += writePattern(n) == 1 ? 1 : 0;
    EXPECT_GT(dropped, 0u);
    kill(held, SIGCONT);
    int status = 0;
    ASSERT_EQ(waitpid(held, &status, 0), held);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ASSERT_EQ(writePattern(n), 0);
    std::vector<std::string> texts = facilityTexts(dumpAndWalk(dir));
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0], "lost " + std::to_string(dropped) + " records while a slow writer held its place ahead");
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
