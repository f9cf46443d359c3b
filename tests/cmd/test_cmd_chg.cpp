// `kelvo chg`: its usage, its refusals, and what it changes in the header
// of a running trace and what it leaves alone.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cmd_live.h"
#include "run_tool.h"
#include "trcmask.h"

using cmdlive::LiveInstance;
using cmdlive::refusal;
using cmdlive::usageText;

namespace {

const std::string traceOff = "Can not change params when trace is off.\n";

std::string maskText(const uint8_t* mask)
{
    std::vector<char> buffer(trcMaskTextMax + 1);
    unsigned char copy[trcMaskBytes];
    std::memcpy(copy, mask, sizeof copy);
    trcMaskToStr(copy, buffer.data());
    return buffer.data();
}

std::vector<std::string> chg(std::vector<std::string> options)
{
    options.insert(options.begin(), "chg");
    return options;
}

// A trace with a setting in every field that chg can change.
const std::vector<std::string> everythingSet = {
    "on", "-m", "1.2", "-p", "5", "-c", "6", "-this", "7", "-rc", "8", "-e", "9", "-r", "100",
    "-pause_attrib", "3", "-pause_mask", "4", "-crash", "0.1"};

}  // namespace

// The usage text comes before the facility is asked anything, so no trace
// is needed for it.
TEST(CommandChg, UsageWithoutAnError)
{
    LiveInstance live;
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"chg"}, {"chg", "help"}, {"change", "help", "-m", "1"}, {"CHG", "help", "-x"}}) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(args), usageText(1), 1);
    }
}

// The trace is attached before the options are read: with no trace even a
// wrong option is answered with the state of the trace.
TEST(CommandChg, NoTraceToChange)
{
    LiveInstance live;
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"chg", "-nonsense"}, {"chg", "-e", "5"}, {"change", "HELP"}, {"chg", "-m"}}) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(args), traceOff, 1);
    }
}

// A refused command line changes nothing, not even its valid part.
TEST(CommandChg, RefusalsLeaveTheTraceAsItIs)
{
    struct Case {
        std::vector<std::string> options;
        int message;
    };
    const std::vector<Case> cases = {
        {{"-m", "1", "help"}, 102}, {{"-s"}, 102},          {{"-f", "x"}, 102},
        {{"-n"}, 102},              {{"-mmio"}, 102},       {{"-l"}, 102},
        {{"-i"}, 102},              {{"-debug"}, 102},      {{"-t"}, 102},
        {{"-e"}, 101},              {{"-e", "5", "-p"}, 101}, {{"-m", "x"}, 103},
        {{"-pause_mask", "x"}, 103}, {{"-e", "5", "-m", "bad"}, 103},
        {{"-e", "0"}, 104},         {{"-e", "-2"}, 104},    {{"-r", "40000"}, 105},
        {{"-r", "-1"}, 105},        {{"-p", "42.7"}, 108},  {{"-c", "z"}, 109},
        {{"-rc", "0"}, 110},        {{"-crash", "x"}, 117}, {{"-this", "q"}, 118},
        {{"-pause_attrib", "-3"}, 424},
    };
    LiveInstance live;
    EXPECT_RUN(live.run(everythingSet), "Trace is turned on\n", 0);
    const auto before = live.header();
    ASSERT_TRUE(before.has_value());
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.options));
        EXPECT_RUN(live.run(chg(c.options)), refusal(1, c.message), 1);
    }
    const auto after = live.header();
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(std::memcmp(&*before, &*after, sizeof(trcHeader_t)), 0);
}

// Everything not named keeps the value of the running trace; the crash and
// pause bits are given anew by every change, so they go unless repeated.
TEST(CommandChg, OneChangeKeepsTheRest)
{
    LiveInstance live;
    EXPECT_RUN(live.run(everythingSet), "Trace is turned on\n", 0);
    const auto before = live.header();
    ASSERT_TRUE(before.has_value());
    EXPECT_EQ(before->flags, 137u | 64u | 512u | 1024u);

    EXPECT_RUN(live.run({"chg", "-e", "5"}), "", 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(h->maxSevereErrors, 5);
    EXPECT_EQ(maskText(h->mask), "1.2.*.*.*.*");
    EXPECT_EQ(h->tracePid, 5);
    EXPECT_EQ(h->traceTid, -1);
    EXPECT_EQ(h->traceCpid, 6);
    EXPECT_EQ(h->thisPointer, 7u);
    EXPECT_EQ(h->sysErrRc, 8);
    EXPECT_EQ(h->maxRecordSize, 100);
    EXPECT_EQ(h->pauseAttrib, 3);
    EXPECT_EQ(maskText(h->pauseMask), "4.*.*.*.*.*");
    EXPECT_EQ(std::memcmp(h->crashMask, before->crashMask, TRC_MASK_SIZE), 0);
    EXPECT_EQ(h->flags, 137u);
    EXPECT_EQ(h->bufferSize, 1048576);
}

TEST(CommandChg, EveryOptionReachesTheHeader)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-i", "65536", "-debug"}), "Trace is turned on\n", 0);
    EXPECT_RUN(live.run({"change", "-m", "2.3", "-p", "0x2a", "-c", "043", "-this", "0x44",
                         "-rc", "-45", "-e", "-1", "-r", "32768", "-crash", "1.2.3.4.5.6",
                         "-pause_mask", "7", "-pause_attrib", "-1", "-E", "12"}),
               "", 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(maskText(h->mask), "2.3.*.*.*.*");
    EXPECT_EQ(h->tracePid, 42);
    EXPECT_EQ(h->traceTid, -1);
    EXPECT_EQ(h->traceCpid, 35);
    EXPECT_EQ(h->thisPointer, 0x44u);
    EXPECT_EQ(h->sysErrRc, -45);
    EXPECT_EQ(h->maxSevereErrors, 12);
    EXPECT_EQ(h->maxRecordSize, 32768);
    EXPECT_EQ(maskText(h->crashMask), "2.3.4.5.6.*");
    EXPECT_EQ(maskText(h->pauseMask), "7.*.*.*.*.*");
    EXPECT_EQ(h->pauseAttrib, -1);
    // Destination and retention stay those of `on`.
    EXPECT_EQ(h->flags, 1u | 16u | 64u | 512u | 1024u);
    EXPECT_EQ(h->bufferSize, 65536);
}

// A new mask replaces the old one whole: what its text leaves out is all
// ones again.
TEST(CommandChg, AMaskIsReplacedWhole)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-m", "1.2.3.4.5.6"}), "Trace is turned on\n", 0);
    EXPECT_RUN(live.run({"chg", "-m", "3"}), "", 0);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(maskText(h->mask), "3.*.*.*.*.*");
}

// A thread filter, which only the facility can set, survives changes of
// other settings and goes with a new process filter.
TEST(CommandChg, ANewProcessDropsTheThreadFilter)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-p", "5"}), "Trace is turned on\n", 0);
    const auto setThread = live.inChild([] {
        const trcHeader_t* h = trcAttach(0, 0, 0);
        if (h == nullptr) {
            return;
        }
        std::printf("%d", trcChg(h->mask, h->tracePid, 7, h->traceCpid, h->thisPointer,
                                 h->sysErrRc, h->maxSevereErrors, h->maxRecordSize, 0, nullptr,
                                 h->pauseMask, h->pauseAttrib));
    });
    ASSERT_EQ(setThread.out, "0");
    EXPECT_RUN(live.run({"chg", "-e", "2"}), "", 0);
    auto h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(h->tracePid, 5);
    EXPECT_EQ(h->traceTid, 7);
    EXPECT_RUN(live.run({"chg", "-p", "42"}), "", 0);
    h = live.header();
    ASSERT_TRUE(h.has_value());
    EXPECT_EQ(h->tracePid, 42);
    EXPECT_EQ(h->traceTid, -1);
}

// A trace that stopped itself after its severe errors still exists, but
// there is nothing to change any more.
TEST(CommandChg, AStoppedTraceCannotBeChanged)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-e", "1"}), "Trace is turned on\n", 0);
    live.write(1, "severe", 1, 1);
    const auto h = live.header();
    ASSERT_TRUE(h.has_value());
    ASSERT_NE(h->traceOff, 0);
    EXPECT_RUN(live.run({"chg", "-e", "5"}), traceOff, 1);
}
