// `kelvo chg`: its usage, its refusals, and what it changes in the header
// of a running trace and what it leaves alone.
#include <sstream>

#include "cmd_live.h"

using namespace kelvotest;

namespace {

const std::string traceOff = "Can not change params when trace is off.\n";

// A trace with a setting in every field that chg can change.
const std::string everythingSet = "-m 1.2 -p 5 -c 6 -this 7 -rc 8 -e 9 -r 100 -pause_attrib 3 -pause_mask 4 -crash 0.1";
const std::string everything = "mask=1.2.*.*.*.* pid=5 cpid=6 this=0x7 rc=8 e=9 r=100 pa=3 "
                               "pause=4.*.*.*.*.* crash=1.*.*.*.*.*";

}  // namespace

// The usage comes before the facility is asked anything; then the trace is
// attached before the options are read, so with no trace even a wrong
// option is answered with the state of the trace.
TEST(CommandChg, WithoutATrace)
{
    LiveInstance live;
    for (const char* args : {"chg", "chg help", "CHG help -x"}) {
        SCOPED_TRACE(args);
        EXPECT_RUN(live.run(split(args)), usageText(1), 1);
    }
    for (const char* args : {"chg -nonsense", "chg -e 5", "change HELP"}) {
        SCOPED_TRACE(args);
        EXPECT_RUN(live.run(split(args)), traceOff, 1);
    }
}

// A refused command line changes nothing, not even its valid part. Each
// row: a message, then the command lines ("|" between two) refused with it.
TEST(CommandChg, RefusalsLeaveTheTraceAsItIs)
{
    LiveInstance live;
    EXPECT_RUN(live.run(split("on " + everythingSet)), turnedOn, 0);
    const std::string before = live.header();
    ASSERT_EQ(before.size(), sizeof(trcHeader_t));
    for (const char* row :
         {"102:-m 1 help|-s|-f x|-mmio|-l", "101:-e|-e 5 -p", "103:-e 5 -m bad", "104:-e 0", "105:-r 40000",
          "108:-p 42.7", "109:-c z", "110:-rc 0", "117:-crash x", "118:-this q", "424:-pause_attrib -3"}) {
        std::istringstream in(std::strchr(row, ':') + 1);
        for (std::string args; std::getline(in, args, '|');) {
            SCOPED_TRACE(args);
            EXPECT_RUN(live.run(split("chg " + args)), refusal(1, std::atoi(row)), 1);
        }
    }
    EXPECT_TRUE(live.header() == before);
}

// Each row: the options of `on`, those of the change, and the settings in
// which the trace then differs from a plain `on`. What is not named keeps
// its value; the crash and pause bits of the flags are given anew by every
// change, so they go unless repeated, and a mask is replaced whole.
TEST(CommandChg, WhatAChangeSets)
{
    const struct {
        std::string on, chg, differences;
    } cases[] = {
        {everythingSet, "", "flags=1737 " + everything},
        {everythingSet, "-e 5", everything + " e=5"},
        {"-i 65536 -debug",
         "-m 2.3 -p 0x2a -c 043 -this 0x44 -rc -45 -e -1 -r 32768 -crash 1.2.3.4.5.6 -pause_mask 7 -pause_attrib -1 -E 12",
         "flags=1617 size=65536 mask=2.3.*.*.*.* pid=42 cpid=35 this=0x44 rc=-45 e=12 "
         "pause=7.*.*.*.*.* crash=2.3.4.5.6.*"},
        {"-m 1.2.3.4.5.6", "-m 3", "mask=3.*.*.*.*.*"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.chg);
        LiveInstance live;
        EXPECT_RUN(live.run(split("on " + c.on)), turnedOn, 0);
        if (!c.chg.empty()) {
            EXPECT_RUN(live.run(split("chg " + c.chg)), "", 0);
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
