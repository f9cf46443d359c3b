// kelvo-export: the Trace Event Format of known call trees, of lost
// records, wrapped traces, many threads, awkward texts and missing time
// stamps, checked by parsing it; the CSV form against flw and in sqlite3;
// and the messages of options and loading.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "libtest.h"
#include "export_support.h"
#include "trcmsg.h"

using namespace kelvotest;

namespace {

constexpr uint8_t OPEN = 1, CLOSE = 2, READ = 3;
constexpr uint8_t ENTRY = 22, EXIT = 23, PRINTF = 24, NEW = 20, SYSERR = 2, ERRCODE = 10;

// A call tree of two threads with every kind of ending: an error return,
// an exit whose entry was lost, a call still open, an exit that takes a
// call whose own exit was lost, and an error event inside a call.
TraceImage callTree()
{
    TraceImage img = traceImageNew(65536);
    for (const TraceRecordFields& f : {
             at(1000, ENTRY, OPEN, 1, 0, "hello"),  // 1
             at(2000, ENTRY, CLOSE),                // 2
             at(2500, PRINTF, CLOSE, 1, 0, "in close"), at(3000, EXIT, CLOSE, 1, 0),
             at(5000, EXIT, OPEN, 1, 5),                                       // 5: error return
             at(6000, EXIT, READ, 2, 0),                                       // 6: entry lost
             at(7000, ENTRY, READ, 2),                                         // 7: never returns
             at(9000, SYSERR, READ, 2, 0, "reading"), at(10000, ENTRY, OPEN),  // 9
             at(11000, ENTRY, CLOSE),                                          // 10: exit lost
             at(12000, EXIT, OPEN, 1, 0),                                      // 11
         }) {
        traceImageAdd(img, f);
    }
    return img;
}

const std::string usageText =
    "Usage: kelvo-export [-m <mask>] [-p <pid>] [-x [first][-[last]]] [--csv] [<source> [<destination>]]\n";

}  // namespace

TEST(Export, CallsBecomeNestedSlicesAndOtherRecordsInstants)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    const RunResult r = d.exportTrace({trace, "t.json"});
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(
        d.checked(d.dir.file("t.json")),
        "i 100.1 1500 event \"api_printf Core Reader::close\" {\"record\": 3, \"text\": \"in close\"}\n"
        "X 100.1 1000 +1000 call \"Core Reader::close\" {\"entry\": 2, \"exit\": 4, \"rc\": 0}\n"
        "X 100.1 0 +4000 call,error \"Core Reader::open\" {\"entry\": 1, \"exit\": 5, \"rc\": 5, \"text\": \"hello\"}\n"
        "i 100.2 5000 event \"api_exit Core Reader::read\" {\"entry lost\": \"an exit whose entry is not in the "
        "trace\", \"rc\": 0, \"record\": 6}\n"
        "i 100.2 8000 error \"SYSTEM_ERROR Core Reader::read\" {\"record\": 8, \"text\": \"reading\"}\n"
        "X 100.1 10000 +1000 call \"Core Reader::close\" {\"ended by\": 11, \"entry\": 10, \"exit lost\": \"a "
        "later record of the thread is outside the call\"}\n"
        "X 100.1 9000 +2000 call \"Core Reader::open\" {\"entry\": 9, \"exit\": 11, \"rc\": 0}\n"
        "X 100.2 6000 +2000 call \"Core Reader::read\" {\"entry\": 7, \"last record\": 8, \"still open\": \"no "
        "exit up to the thread's last record\"}\n"
        "M 100.0 process_name \"pid 100\"\n"
        "M 100.1 thread_name \"tid 1\"\n"
        "M 100.2 thread_name \"tid 2\"\n");

    // A range keeps the calls that it opens or ends, at their full length,
    // and names only the threads that show something; to standard output.
    const RunResult part = d.exportTrace({"-x", "10-11", trace});
    EXPECT_EQ(part.status, 0);
    d.dir.write("part.json", part.out);
    EXPECT_EQ(d.checked(d.dir.file("part.json")),
              "X 100.1 10000 +1000 call \"Core Reader::close\" {\"ended by\": 11, \"entry\": 10, \"exit lost\": \"a "
              "later record of the thread is outside the call\"}\n"
              "X 100.1 9000 +2000 call \"Core Reader::open\" {\"entry\": 9, \"exit\": 11, \"rc\": 0}\n"
              "M 100.0 process_name \"pid 100\"\n"
              "M 100.1 thread_name \"tid 1\"\n");
    // -p of a process without records: an empty but valid file.
    const RunResult none = d.exportTrace({"-p", "7", trace});
    d.dir.write("none.json", none.out);
    EXPECT_EQ(d.checked(d.dir.file("none.json")), "");
}

TEST(Export, TextsAreEscapedAndMadeValidUtf8)
{
    ExportDir d;
    TraceImage img = traceImageNew(65536);
    const std::vector<std::string> texts = {"say \"hi\" \\ back",
                                            std::string("ctl\x01\x1f\n\t\r\x7f", 9),
                                            "bad \xff\xfe ok \xc3",
                                            "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
                                            "overlong \xc0\xaf surrogate \xed\xa0\x80 big \xf4\x90\x80\x80",
                                            std::string("zero\0byte", 9)};
    long ns = 1000;
    for (const std::string& t : texts) {
        traceImageAdd(img, at(ns += 1000, PRINTF, OPEN, 1, 0, t));
    }
    const std::string trace = d.save(img);
    const RunResult r = d.exportTrace({trace, "t.json"});
    EXPECT_EQ(r.status, 0);
    std::string texts_seen;
    std::istringstream lines(d.checked(d.dir.file("t.json")));
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find("\"text\": ");
        if (line.rfind("i ", 0) == 0 && at != std::string::npos) {
            texts_seen += line.substr(at) + "\n";
        }
    }
    EXPECT_EQ(
        texts_seen,
        "\"text\": \"say \\\"hi\\\" \\\\ back\"}\n"
        "\"text\": \"ctl\\u0001\\u001f\\n\\t\\r\\u007f\"}\n"
        "\"text\": \"bad \\ufffd\\ufffd ok \\ufffd\"}\n"
        "\"text\": \"caf\\u00e9 \\u20ac \\ud83d\\ude00\"}\n"
        "\"text\": \"overlong \\ufffd\\ufffd surrogate \\ufffd\\ufffd\\ufffd big \\ufffd\\ufffd\\ufffd\\ufffd\"}\n"
        "\"text\": \"zero\\u0000byte\"}\n");

    // The same texts as CSV fields: quotes doubled, zero bytes and
    // ill-formed sequences replaced.
    const RunResult csv = d.exportTrace({"--csv", "-x", "1", trace});
    EXPECT_EQ(csv.out.substr(csv.out.find('\n') + 1),
              "1,100,2000,100,1,-1,0,1,24,1,1,1,0,\"Alpha\",\"api_printf\",\"Core\",\"Reader\",\"open\",1,,"
              "\"say \"\"hi\"\" \\ back\"\n");
    const RunResult zero = d.exportTrace({"--csv", "-x", "3-6", trace});
    std::string fields;
    for (size_t at = 0; (at = zero.out.find(",1,,\"", at)) != std::string::npos; at += 5) {
        fields += zero.out.substr(at + 4, zero.out.find('\n', at) - at - 4) + "|";
    }
    EXPECT_EQ(fields, "\"bad \xef\xbf\xbd\xef\xbf\xbd ok \xef\xbf\xbd\"|\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\"|"
                      "\"overlong \xef\xbf\xbd\xef\xbf\xbd surrogate \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd big "
                      "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"|\"zero\xef\xbf\xbd"
                      "byte\"|");
}

TEST(Export, RecordsWithoutTimeStampsArePlacedByRecordOrder)
{
    ExportDir d;
    TraceImage none = traceImageNew(65536);
    traceImageAdd(none, at(-1, ENTRY, OPEN));
    traceImageAdd(none, at(-1, NEW, OPEN));
    traceImageAdd(none, at(-1, EXIT, OPEN, 1, 0));
    const RunResult r = d.exportTrace({d.save(none), "none.json"});
    EXPECT_EQ(r.err, "kelvo-export: no record has a time stamp; records are placed 1 us apart in record order.\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(d.checked(d.dir.file("none.json")),
              "i 100.1 2000 event \"api_new Core Reader::open\" {\"record\": 2, \"text\": \"\"}\n"
              "X 100.1 1000 +2000 call \"Core Reader::open\" {\"entry\": 1, \"exit\": 3, \"rc\": 0}\n"
              "M 100.0 process_name \"pid 100\"\n"
              "M 100.1 thread_name \"tid 1\"\n");

    // Among stamped records, one without a stamp takes the time of the
    // record before it; times never go back on a thread.
    TraceImage some = traceImageNew(65536);
    traceImageAdd(some, at(5000, ENTRY, OPEN));
    traceImageAdd(some, at(-1, NEW, OPEN, 2));
    traceImageAdd(some, at(4000, PRINTF, OPEN));
    traceImageAdd(some, at(9000, EXIT, OPEN, 1, 0));
    const RunResult m = d.exportTrace({d.save(some, "some.bin"), "some.json"});
    EXPECT_EQ(m.err, "kelvo-export: 1 of 4 records have no time stamp; each is placed at the time of the record "
                     "before it.\n");
    EXPECT_EQ(d.checked(d.dir.file("some.json")),
              "i 100.2 1000 event \"api_new Core Reader::open\" {\"record\": 2, \"text\": \"\"}\n"
              "i 100.1 1000 event \"api_printf Core Reader::open\" {\"record\": 3, \"text\": \"\"}\n"
              "X 100.1 1000 +4000 call \"Core Reader::open\" {\"entry\": 1, \"exit\": 4, \"rc\": 0}\n"
              "M 100.0 process_name \"pid 100\"\n"
              "M 100.1 thread_name \"tid 1\"\n"
              "M 100.2 thread_name \"tid 2\"\n");
}

// A wrapped trace of 60 threads, whose calls have lost entries and exits
// at the wrap: the file parses, nests, names every thread, and accounts for
// every surviving record as an instant or an end of a slice.
TEST(Export, WrappedTraceOfManyThreadsAccountsForEveryRecord)
{
    ExportDir d;
    TraceImage img = traceImageNew(65536);
    const uint8_t pattern[] = {ENTRY, ENTRY, PRINTF, EXIT, ENTRY, ERRCODE, EXIT, NEW, SYSERR};
    const uint8_t functions[] = {OPEN, CLOSE, CLOSE, CLOSE, READ, READ, OPEN, OPEN, READ};
    long ns = 0;
    for (int n = 0; n < 4000; ++n) {
        const uint32_t tid = static_cast<uint32_t>(n / 9 % 60 + 1);
        TraceRecordFields f = at(ns += 100, pattern[n % 9], functions[n % 9], tid, n % 7 == 0 ? -1 : 0, "x");
        traceImageAdd(img, f);
    }
    ASSERT_TRUE(img.wrapped);
    const std::vector<TracePlaced> survivors = traceImageSurvivors(img);
    const RunResult r = d.exportTrace({d.save(img), "t.json"});
    EXPECT_EQ(r.status, 0);
    const std::string lines = d.checked(d.dir.file("t.json"));
    std::set<long> seen;
    std::set<std::string> threads;
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("M ", 0) == 0 && line.find("thread_name") != std::string::npos) {
            threads.insert(line);
        }
        for (const char* key : {"\"record\": ", "\"entry\": ", "\"exit\": ", "\"ended by\": ", "\"last record\": "}) {
            const size_t at = line.find(key);
            if (at != std::string::npos) {
                seen.insert(std::stol(line.substr(at + std::strlen(key))));
            }
        }
    }
    EXPECT_EQ(threads.size(), 60u);
    // The walk gives up the oldest survivor, which the wrap has cut into.
    const RunResult fmt = kelvotest::runProgram(
        kelvotest::toolPath(), {"kelvo", "fmt", "-x", "0", d.dir.file("t.bin")},
        {{"TRCTFIDIR", d.dir.path()}, {"KELVO_HOME", std::nullopt}, {"KELVO_INSTANCE", d.instance}});
    EXPECT_NE(fmt.out.find("Records in trace        : " + std::to_string(survivors.size() - 1) + "\n"),
              std::string::npos);
    EXPECT_EQ(seen.size(), survivors.size() - 1);
    EXPECT_EQ(*seen.begin(), 1);
    EXPECT_EQ(*seen.rbegin(), static_cast<long>(survivors.size() - 1));
}

// The depth column is the flow report's depth, record for record.
TEST(ExportCsv, DepthsAreThoseOfTheFlowReport)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    const RunResult csv = d.exportTrace({"--csv", trace});
    ASSERT_EQ(csv.status, 0);
    std::map<long, long> csvDepth;
    std::istringstream rows(csv.out);
    std::string row;
    std::getline(rows, row);
    EXPECT_EQ(row, "record,sec,nsec,pid,tid,node,cpid,product,event,component,class,function,tracepoint,"
                   "product_name,event_name,component_name,class_name,function_name,depth,rc,text");
    while (std::getline(rows, row)) {
        std::vector<std::string> cells;
        std::stringstream split(row);
        for (std::string cell; std::getline(split, cell, ',');) {
            cells.push_back(cell);
        }
        ASSERT_GE(cells.size(), 19u) << row;
        csvDepth[std::stol(cells[0])] = std::stol(cells[18]);
    }
    const RunResult flw = kelvotest::runProgram(
        kelvotest::toolPath(), {"kelvo", "flw", trace},
        {{"TRCTFIDIR", d.dir.path()}, {"KELVO_HOME", std::nullopt}, {"KELVO_INSTANCE", d.instance}});
    std::map<long, long> flwDepth;
    std::istringstream out(flw.out);
    for (std::string l; std::getline(out, l);) {
        // "%6ld %2d|": the record number and its depth before the bar.
        long number = 0, depth = 0;
        char bar = 0;
        if (l.size() > 10 && std::sscanf(l.c_str(), "%6ld %2ld%c", &number, &depth, &bar) == 3 && bar == '|') {
            flwDepth[number] = depth;
        }
    }
    EXPECT_EQ(flwDepth.size(), 11u);
    EXPECT_EQ(csvDepth, flwDepth);
}

// An export loaded into sqlite3 answers by query.
TEST(ExportCsv, LoadsIntoSqlite)
{
    ExportDir d;
    const RunResult csv = d.exportTrace({"--csv", d.save(callTree()), "t.csv"});
    ASSERT_EQ(csv.status, 0);
    const RunResult q = kelvotest::runProgram(
        "/usr/bin/sqlite3",
        {"sqlite3", ":memory:", ".import --csv t.csv rec",
         "SELECT count(*), count(DISTINCT tid), sum(rc <> '') FROM rec;",
         "SELECT depth, count(*) FROM rec GROUP BY depth ORDER BY depth;",
         "SELECT record, function_name FROM rec WHERE event_name = 'api_exit' AND CAST(rc AS INTEGER) <> 0;",
         "SELECT group_concat(text, '/') FROM rec WHERE text <> '';"},
        {}, d.dir.path());
    EXPECT_EQ(q.err, "");
    EXPECT_EQ(q.out, "11|2|4\n0|1\n1|6\n2|4\n5|open\nhello/in close/reading\n");
}

TEST(Export, MessagesOfOptionsAndLoadingAreThoseOfFmt)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    d.dir.write("exists.json", "keep");
    struct Case {
        std::vector<std::string> args;
        std::string out;
    };
    const std::string m = "\n\n";
    for (const Case& c : std::vector<Case>{
             {{"-x", "abc", trace}, trcMsgGet(111) + m + usageText},
             {{"-x"}, trcMsgGet(101) + m + usageText},
             {{"-r", trace}, trcMsgGet(102) + m + usageText},
             {{"-P", "1.5", trace}, trcMsgGet(108) + m + usageText},
             {{"-m", "nonsense", trace}, trcMsgGet(103) + m + usageText},
             {{trace, "a", "b"}, trcMsgGet(100) + m + usageText},
             {{trace, "exists.json"}, trcMsgGet(119) + m + usageText},
             {{"help"}, usageText},
             {{"missing.bin", "out.json"}, "Could not open missing.bin in read mode.\n"},
             {{"exists.json", "out.json"}, "exists.json is an invalid binary trace file.\n"},
             {{}, "Trace is off.\n"},
         }) {
        const RunResult r = d.exportTrace(c.args);
        EXPECT_EQ(r.out, c.out) << c.args.size();
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 1);
    }
    EXPECT_EQ(kelvotest::readFile(d.dir.file("exists.json")), "keep");
    EXPECT_FALSE(std::ifstream(d.dir.file("out.json")).good());

    // A dictionary that fails after the destination was created leaves no
    // partial file behind.
    d.dir.write("z.tfi", "tfiversion 2\n");
    const RunResult bad = d.exportTrace({trace, "out.json"});
    EXPECT_EQ(bad.out, "Could not read the translation info.\n");
    EXPECT_NE(bad.err, "");
    EXPECT_EQ(bad.status, 1);
    EXPECT_FALSE(std::ifstream(d.dir.file("out.json")).good());
}

// "-" reads the live trace under the semaphore, as fmt does, and lets it go.
TEST(ExportLive, TheLiveTraceIsReadAsFmtReadsIt)
{
    kelvotest::Instance instance;
    ExportDir d;
    d.instance = instance.name();
    kelvotest::OnArgs on;
    on.flags |= TRC_OPTION_T;
    ASSERT_EQ(kelvotest::turnOn(on), 0);
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 0, nullptr, nullptr, 0), 0);
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 0, nullptr, "n=%d", 5), 0);
    ASSERT_EQ(trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, -1), 0);
    const std::string where = std::to_string(getpid()) + "." + std::to_string(syscall(SYS_gettid));
    for (const std::vector<std::string>& args : {std::vector<std::string>{}, {"-"}, {"-", "live.json"}}) {
        const RunResult r = d.exportTrace(args);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        if (args.size() < 2) {
            d.dir.write("live.json", r.out);
        }
        std::string lines = d.checked(d.dir.file("live.json"));
        // Times vary: keep the phase, thread, name and args.
        std::istringstream in(lines);
        lines.clear();
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::string word, kept;
            for (int n = 0; words >> word; ++n) {
                // Third word of a slice or instant: its time; then a slice's duration.
                const bool time = line[0] != 'M' && (n == 2 || (line[0] == 'X' && n == 3));
                if (!time) {
                    kept += (kept.empty() ? "" : " ") + word;
                }
            }
            lines += kept + "\n";
        }
        EXPECT_EQ(lines, "i " + where + " event \"api_printf Core Reader::open\" {\"record\": 2, \"text\": \"n=5\"}\n" +
                             "X " + where +
                             " call,error \"Core Reader::open\" {\"entry\": 1, \"exit\": 3, \"rc\": -1}\n" + "M " +
                             std::to_string(getpid()) + ".0 process_name \"pid " + std::to_string(getpid()) + "\"\nM " +
                             where + " thread_name \"tid " + std::to_string(syscall(SYS_gettid)) + "\"\n");
        unlink(d.dir.file("live.json").c_str());
    }
    const RunResult stats = d.stats({"--csv"});
    EXPECT_EQ(stats.out.substr(0, stats.out.find(',', stats.out.find('\n'))),
              "function,calls,total_ns,self_ns,min_ns,avg_ns,max_ns,errors\n\"Core Reader::open\"");
    EXPECT_EQ(stats.status, 0);
    // The semaphore is free again: fmt can take it.
    const RunResult fmt = kelvotest::runProgram(
        kelvotest::toolPath(), {"kelvo", "fmt", "-x", "0"},
        {{"TRCTFIDIR", d.dir.path()}, {"KELVO_HOME", std::nullopt}, {"KELVO_INSTANCE", d.instance}});
    EXPECT_EQ(fmt.status, 0);
    // With the trace off, "-" is "Trace is off." as for fmt.
    trcOff(0);
    EXPECT_EQ(d.exportTrace({"-"}).out, "Trace is off.\n");
}

// A standard output that cannot be written is message 403, status 1.
TEST(Export, AnOutputThatCannotBeWrittenFails)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    const RunResult r = kelvotest::runProgram(
        "/bin/sh", {"sh", "-c", std::string(KELVO_EXPORT_PATH) + " \"$1\" >/dev/full; echo \"status $?\"", "sh", trace},
        {{"TRCTFIDIR", d.dir.path()}, {"KELVO_INSTANCE", d.instance}});
    EXPECT_EQ(r.out, "status 1\n");
}
