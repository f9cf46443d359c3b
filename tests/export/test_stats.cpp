// kelvo-stats: exact figures of a known call tree (nesting, recursion, lost
// entries and exits, error returns and error events), sorting, the row
// limit, both forms, and the messages of its options.
#include <gtest/gtest.h>

#include "export_support.h"
#include "trcmsg.h"

using namespace kelvotest;

namespace {

constexpr uint8_t OPEN = 1, CLOSE = 2, READ = 3;
constexpr uint8_t ENTRY = 22, EXIT = 23, PRINTF = 24, SYSERR = 2, ERRCODE = 10;

// open 0..10000 holds read 1000..3000 (which holds a recursive read
// 1500..2500 with an error event) and close 4000..9000 (error return);
// then an exit of close whose entry was lost, and on thread 2 a read
// entered unseen (first seen at 20000) and still open at 26000.
TraceImage knownTree()
{
    TraceImage img = traceImageNew(65536);
    for (const TraceRecordFields& f : {
             at(1000, ENTRY, OPEN),                                             // open
             at(2000, ENTRY, READ),                                             //   read
             at(2500, ENTRY, READ),                                             //     read
             at(3000, SYSERR, READ, 1, 0, "disk"), at(3500, EXIT, READ, 1, 0),  //     read: 1000
             at(4000, EXIT, READ, 1, 0),                                        //   read: 2000, own 1000
             at(5000, ENTRY, CLOSE),                                            //   close
             at(10000, ERRCODE, CLOSE, 1, -5),                                  // close: 5000, error
             at(11000, EXIT, OPEN, 1, 0),                                       // open: 10000, own 3000
             at(11500, EXIT, CLOSE, 1, 0),                                      // entry lost: no call
             at(21000, PRINTF, READ, 2),                                        // read entered unseen
             at(27000, PRINTF, READ, 2),                                        // still open: 6000
         }) {
        traceImageAdd(img, f);
    }
    return img;
}

const std::string usageText =
    "Usage: kelvo-stats [-m <mask>] [-p <pid>] [-x [first][-[last]]] [-s calls|total|self|max] "
    "[-n <rows>] [--csv] [<source>]\n";
const std::string header = "function,calls,total_ns,self_ns,min_ns,avg_ns,max_ns,errors\n";
const std::string openRow = "\"Core Reader::open\",1,10000,3000,10000,10000,10000,0\n";
const std::string readRow = "\"Core Reader::read\",3,9000,8000,1000,3000,6000,1\n";
const std::string closeRow = "\"Core Reader::close\",1,5000,5000,5000,5000,5000,1\n";

}  // namespace

TEST(Stats, FiguresOfAKnownCallTreeAreExact)
{
    ExportDir d;
    const std::string trace = d.save(knownTree());
    const RunResult csv = d.stats({"--csv", trace});
    EXPECT_EQ(csv.out, header + openRow + readRow + closeRow);
    EXPECT_EQ(csv.err, "");
    EXPECT_EQ(csv.status, 0);

    // Sorted by calls, own time and longest call; ties by name.
    EXPECT_EQ(d.stats({"--csv", "-s", "calls", "-n", "2", trace}).out, header + readRow + closeRow);
    EXPECT_EQ(d.stats({"--csv", "-s", "self", "-n", "1", trace}).out, header + readRow);
    EXPECT_EQ(d.stats({"--csv", "-s", "max", "-n", "0", trace}).out, header);

    // The selection takes the calls that a selected record opens or ends.
    EXPECT_EQ(d.stats({"--csv", "-x", "7-8", trace}).out, header + closeRow);
    EXPECT_EQ(d.stats({"--csv", "-p", "101", trace}).out, header);
}

TEST(Stats, TableAlignsFiguresInReadableUnits)
{
    ExportDir d;
    TraceImage img = traceImageNew(65536);
    traceImageAdd(img, at(0, ENTRY, OPEN));
    traceImageAdd(img, at(999, ENTRY, CLOSE));
    traceImageAdd(img, at(1998, EXIT, CLOSE, 1, 0));
    TraceRecordFields last = at(0, EXIT, OPEN, 1, 0);
    last.sec = 102, last.nsec = 500000000;  // 2.5 s after the start
    traceImageAdd(img, last);
    const RunResult r = d.stats({d.save(img)});
    EXPECT_EQ(r.out, "function            calls    total     self      min      avg      max  errors\n"
                     "Core Reader::open       1  2.500 s  2.500 s  2.500 s  2.500 s  2.500 s       0\n"
                     "Core Reader::close      1   999 ns   999 ns   999 ns   999 ns   999 ns       0\n");
    EXPECT_EQ(r.status, 0);
}

TEST(Stats, MessagesOfOptions)
{
    ExportDir d;
    const std::string trace = d.save(knownTree());
    struct Case {
        std::vector<std::string> args;
        std::string out;
    };
    for (const Case& c : std::vector<Case>{
             {{"-s", "name", trace},
              "kelvo-stats: incorrect sort key \"name\"; use calls, total, self or max.\n\n" + usageText},
             {{"-n", "-1", trace}, "kelvo-stats: incorrect number of rows \"-1\"; give 0 or more.\n\n" + usageText},
             {{"-n"}, trcMsgGet(101) + std::string("\n\n") + usageText},
             {{trace, "out"}, trcMsgGet(100) + std::string("\n\n") + usageText},
             {{"-x", "1-b", trace}, trcMsgGet(113) + std::string("\n\n") + usageText},
             {{"missing.bin"}, "Could not open missing.bin in read mode.\n"},
         }) {
        const RunResult r = d.stats(c.args);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 1);
    }
}
