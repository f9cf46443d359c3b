// A process whose writes found no trace stops entering the library, and
// still sees a trace that another process turns on.
#include "libtest.h"
#include "run_tool.h"

#include <gtest/gtest.h>

#include <unistd.h>

using namespace kelvotest;

namespace {

int writeText(const char* text) { return trcWrite(3, TRC_EVENT_API_PRINTF, 1, 1, 1, 1, nullptr, text, 4); }

}  // namespace

TEST(LibIdle, AWriterThatFoundNoTraceSeesOneTurnedOnElsewhere)
{
    Instance instance;
    TempDir dir;
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(writeText("idle"), 1);
    EXPECT_NE(__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED), 0);

    kelvotest::RunResult on = kelvotest::runTool({"on"});
    ASSERT_EQ(on.out, "Trace is turned on\n");
    // The watching thread reopens the way within 100 ms; allow far more on
    // a loaded machine, then fail.
    int stored = 1;
    for (int attempt = 0; attempt < 1000 && stored != 0; ++attempt) {
        stored = writeText("seen");
        if (stored != 0)
            usleep(5000);
    }
    ASSERT_EQ(stored, 0);
    Walked w = dumpAndWalk(dir);
    ASSERT_EQ(w.records.size(), 1u);
    EXPECT_EQ(w.records[0].data, "seen");

    kelvotest::RunResult off = kelvotest::runTool({"off"});
    ASSERT_EQ(off.status, 0);
    for (int i = 0; i < 100 && __atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED) == 0; ++i) {
        EXPECT_EQ(writeText("gone"), 1);
        usleep(5000);
    }
    EXPECT_NE(__atomic_load_n(&trcWriterIdle, __ATOMIC_RELAXED), 0);
}
