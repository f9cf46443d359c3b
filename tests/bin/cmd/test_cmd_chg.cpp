// `kelvo chg`: its usage, its refusals, and what it changes in the header
// of a running trace and what it leaves alone.
#include "cmd_live.h"

using namespace kelvotest;

namespace {

const std::string traceOff = "Can not change params when trace is off.\n";

// A trace with a setting in every field that chg can change.
const std::vector<std::string> everythingSet = {"-m",          "1.2", "-p",     "5",  "-c", "6",   "-this",         "7",
                                                "-rc",         "8",   "-e",     "9",  "-r", "100", "-pause_attrib", "3",
                                                "-pause_mask", "4",   "-crash", "0.1"};
const std::string everything = "mask=1.2.*.*.*.* pid=5 cpid=6 this=0x7 rc=8 e=9 r=100 pa=3 "
                               "pause=4.*.*.*.*.* crash=1.*.*.*.*.*";

}  // namespace

// The usage comes before the facility is asked anything; then the trace is
// attached before the options are read, so with no trace even a wrong
// option is answered with the state of the trace.
TEST(CommandChg, WithoutATrace)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"chg"}, usageText(1)},
        {{"chg", "help"}, usageText(1)},
        {{"change", "help", "-m", "1"}, usageText(1)},
        {{"CHG", "help", "-x"}, usageText(1)},
        {{"chg", "-nonsense"}, traceOff},
        {{"chg", "-e", "5"}, traceOff},
        {{"change", "HELP"}, traceOff},
        {{"chg", "-m"}, traceOff}};
    LiveInstance live;
    for (const auto& [args, out] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(args), out, 1);
    }
}

// A refused command line changes nothing, not even its valid part.
TEST(CommandChg, RefusalsLeaveTheTraceAsItIs)
{
    const std::vector<std::pair<std::vector<std::string>, int>> cases = {{{"-m", "1", "help"}, 102},
                                                                         {{"-s"}, 102},
                                                                         {{"-f", "x"}, 102},
                                                                         {{"-n"}, 102},
                                                                         {{"-mmio"}, 102},
                                                                         {{"-l"}, 102},
                                                                         {{"-i"}, 102},
                                                                         {{"-debug"}, 102},
                                                                         {{"-t"}, 102},
                                                                         {{"-e"}, 101},
                                                                         {{"-e", "5", "-p"}, 101},
                                                                         {{"-m", "x"}, 103},
                                                                         {{"-pause_mask", "x"}, 103},
                                                                         {{"-e", "5", "-m", "bad"}, 103},
                                                                         {{"-e", "0"}, 104},
                                                                         {{"-e", "-2"}, 104},
                                                                         {{"-r", "40000"}, 105},
                                                                         {{"-r", "-1"}, 105},
                                                                         {{"-p", "42.7"}, 108},
                                                                         {{"-c", "z"}, 109},
                                                                         {{"-rc", "0"}, 110},
                                                                         {{"-crash", "x"}, 117},
                                                                         {{"-this", "q"}, 118},
                                                                         {{"-pause_attrib", "-3"}, 424}};
    LiveInstance live;
    EXPECT_RUN(live.run(words("on", everythingSet)), turnedOn, 0);
    const std::string before = live.header();
    ASSERT_EQ(before.size(), sizeof(trcHeader_t));
    for (const auto& [args, message] : cases) {
        SCOPED_TRACE(::testing::PrintToString(args));
        EXPECT_RUN(live.run(words("chg", args)), refusal(1, message), 1);
    }
    EXPECT_TRUE(live.header() == before);
}

// Each row: the options of `on`, those of the change, and the settings in
// which the trace then differs from a plain `on`. What is not named keeps
// its value; the crash and pause bits of the flags are given anew by every
// change, so they go unless repeated, and a mask is replaced whole.
TEST(CommandChg, WhatAChangeSets)
{
    struct Case {
        std::vector<std::string> on, chg;
        std::string differences;
    };
    const std::vector<Case> cases = {
        {everythingSet, {}, "flags=1737 " + everything},
        {everythingSet, {"-e", "5"}, everything + " e=5"},
        {{"-i", "65536", "-debug"},
         {"-m", "2.3", "-p",    "0x2a",   "-c",          "043",         "-this", "0x44",          "-rc", "-45", "-e",
          "-1", "-r",  "32768", "-crash", "1.2.3.4.5.6", "-pause_mask", "7",     "-pause_attrib", "-1",  "-E",  "12"},
         "flags=1617 size=65536 mask=2.3.*.*.*.* pid=42 cpid=35 this=0x44 rc=-45 e=12 "
         "pause=7.*.*.*.*.* crash=2.3.4.5.6.*"},
        {{"-m", "1.2.3.4.5.6"}, {"-m", "3"}, "mask=3.*.*.*.*.*"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.chg));
        LiveInstance live;
        EXPECT_RUN(live.run(words("on", c.on)), turnedOn, 0);
        if (!c.chg.empty()) {
            EXPECT_RUN(live.run(words("chg", c.chg)), "", 0);
        }
        EXPECT_EQ(live.settings(), changed(defaults, c.differences));
    }
}

// A thread filter, which only the facility can set, survives changes of
// other settings and goes with a new process filter.
TEST(CommandChg, ANewProcessDropsTheThreadFilter)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-p", "5"}), turnedOn, 0);
    const auto setThread = live.inChild([] {
        const trcHeader_t* h = trcAttach(0, 0, 0);
        std::printf("%d", h == nullptr
                              ? -1
                              : trcChg(h->mask, h->tracePid, 7, h->traceCpid, h->thisPointer, h->sysErrRc,
                                       h->maxSevereErrors, h->maxRecordSize, 0, nullptr, h->pauseMask, h->pauseAttrib));
    });
    ASSERT_EQ(setThread.out, "0");
    EXPECT_RUN(live.run({"chg", "-e", "2"}), "", 0);
    EXPECT_EQ(live.settings(), changed(defaults, "pid=5 tid=7 e=2"));
    EXPECT_RUN(live.run({"chg", "-p", "42"}), "", 0);
    EXPECT_EQ(live.settings(), changed(defaults, "pid=42 e=2"));
}

// A trace that stopped itself after its severe errors still exists, but
// there is nothing to change any more.
TEST(CommandChg, AStoppedTraceCannotBeChanged)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-e", "1"}), turnedOn, 0);
    live.write(1, "severe", 1, 1);
    ASSERT_EQ(live.run({"web_buffer_info"}).out, "Y|Trace is off.\n");
    EXPECT_RUN(live.run({"chg", "-e", "5"}), traceOff, 1);
}
