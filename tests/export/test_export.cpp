// kelvo-export: the Trace Event Format of a known call tree, awkward texts,
// missing time stamps and a wrapped trace of many threads, checked by
// parsing it; the CSV form against flw through sqlite3; the messages.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
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
    EXPECT_EQ(r.out + r.err, "");
    EXPECT_EQ(r.status, 0);
    const std::string closeLost =
        "X 100.1 10000 +1000 call \"Core Reader::close\" {\"ended by\": 11, \"entry\": 10, "
        "\"exit lost\": \"a later record of the thread is outside the call\"}\n"
        "X 100.1 9000 +2000 call \"Core Reader::open\" {\"entry\": 9, \"exit\": 11, \"rc\": 0}\n";
    const std::string names = "M 100.0 process_name \"pid 100\"\nM 100.1 thread_name \"tid 1\"\n";
    EXPECT_EQ(
        d.checked(d.dir.file("t.json")),
        "i 100.1 1500 event \"api_printf Core Reader::close\" {\"record\": 3, \"text\": \"in close\"}\n"
        "X 100.1 1000 +1000 call \"Core Reader::close\" {\"entry\": 2, \"exit\": 4, \"rc\": 0}\n"
        "X 100.1 0 +4000 call,error \"Core Reader::open\" {\"entry\": 1, \"exit\": 5, \"rc\": 5, \"text\": \"hello\"}\n"
        "i 100.2 5000 event \"api_exit Core Reader::read\" {\"entry lost\": \"an exit whose entry is not in the "
        "trace\", \"rc\": 0, \"record\": 6}\n"
        "i 100.2 8000 error \"SYSTEM_ERROR Core Reader::read\" {\"record\": 8, \"text\": \"reading\"}\n" +
            closeLost +
            "X 100.2 6000 +2000 call \"Core Reader::read\" {\"entry\": 7, \"last record\": 8, \"still open\": \"no "
            "exit up to the thread's last record\"}\n" +
            names + "M 100.2 thread_name \"tid 2\"\n");
    // A range keeps the calls that it opens or ends, at their full length,
    // and names only the threads that show something; to standard output.
    EXPECT_EQ(d.checkedText(d.exportTrace({"-x", "10-11", trace}).out), closeLost + names);
    // -p of a process without records: an empty but valid file.
    EXPECT_EQ(d.checkedText(d.exportTrace({"-p", "7", trace}).out), "");
}

TEST(Export, TextsAreEscapedAndMadeValidUtf8)
{
    ExportDir d;
    TraceImage img = traceImageNew(65536);
    long ns = 1000;
    for (const std::string& t :
         {std::string("say \"hi\" \\ back"), std::string("ctl\x01\x1f\n\t\r\x7f", 9),
          std::string("bad \xff\xfe ok \xc3"), std::string("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"),
          std::string("overlong \xc0\xaf surrogate \xed\xa0\x80 big \xf4\x90\x80\x80"), std::string("zero\0byte", 9)}) {
        traceImageAdd(img, at(ns += 1000, PRINTF, OPEN, 1, 0, t));
    }
    const std::string trace = d.save(img);
    std::string texts;
    std::istringstream lines(d.checkedText(d.exportTrace({trace}).out));
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == 'i') {
            texts += line.substr(line.find("\"text\": ")) + "\n";
        }
    }
    EXPECT_EQ(
        texts,
        "\"text\": \"say \\\"hi\\\" \\\\ back\"}\n"
        "\"text\": \"ctl\\u0001\\u001f\\n\\t\\r\\u007f\"}\n"
        "\"text\": \"bad \\ufffd\\ufffd ok \\ufffd\"}\n"
        "\"text\": \"caf\\u00e9 \\u20ac \\ud83d\\ude00\"}\n"
        "\"text\": \"overlong \\ufffd\\ufffd surrogate \\ufffd\\ufffd\\ufffd big \\ufffd\\ufffd\\ufffd\\ufffd\"}\n"
        "\"text\": \"zero\\u0000byte\"}\n");

    // As CSV fields: quotes doubled, zero bytes and ill-formed sequences replaced.
    const RunResult csv = d.exportTrace({"--csv", "-x", "1", trace});
    EXPECT_EQ(csv.out.substr(csv.out.find('\n') + 1),
              "1,100,2000,100,1,-1,0,1,24,1,1,1,0,\"Alpha\",\"api_printf\",\"Core\",\"Reader\",\"open\",1,,"
              "\"say \"\"hi\"\" \\ back\"\n");
    const std::string rest = d.exportTrace({"--csv", "-x", "3-6", trace}).out;
    for (const char* field : {",\"bad \xef\xbf\xbd\xef\xbf\xbd ok \xef\xbf\xbd\"\n", ",\"zero\xef\xbf\xbd"
                                                                                     "byte\"\n"}) {
        EXPECT_NE(rest.find(field), std::string::npos) << field;
    }
}

TEST(Export, RecordsWithoutTimeStampsArePlacedByRecordOrder)
{
    ExportDir d;
    TraceImage none = traceImageNew(65536);
    for (uint8_t event : {ENTRY, NEW, EXIT}) {
        traceImageAdd(none, at(-1, event, OPEN, 1, 0));
    }
    const RunResult r = d.exportTrace({d.save(none)});
    EXPECT_EQ(r.err, "kelvo-export: no record has a time stamp; records are placed 1 us apart in record order.\n");
    EXPECT_EQ(r.status, 0);
    const std::string names = "M 100.0 process_name \"pid 100\"\nM 100.1 thread_name \"tid 1\"\n";
    EXPECT_EQ(d.checkedText(r.out),
              "i 100.1 2000 event \"api_new Core Reader::open\" {\"record\": 2, \"text\": \"\"}\n"
              "X 100.1 1000 +2000 call \"Core Reader::open\" {\"entry\": 1, \"exit\": 3, \"rc\": 0}\n" +
                  names);

    // Among stamped records, one without a stamp takes the time of the
    // record before it; times never go back on a thread.
    TraceImage some = traceImageNew(65536);
    for (const TraceRecordFields& f :
         {at(5000, ENTRY, OPEN), at(-1, NEW, OPEN, 2), at(4000, PRINTF, OPEN), at(9000, EXIT, OPEN, 1, 0)}) {
        traceImageAdd(some, f);
    }
    const RunResult m = d.exportTrace({d.save(some, "some.bin")});
    EXPECT_EQ(m.err, "kelvo-export: 1 of 4 records have no time stamp; each is placed at the time of the record "
                     "before it.\n");
    EXPECT_EQ(d.checkedText(m.out),
              "i 100.2 1000 event \"api_new Core Reader::open\" {\"record\": 2, \"text\": \"\"}\n"
              "i 100.1 1000 event \"api_printf Core Reader::open\" {\"record\": 3, \"text\": \"\"}\n"
              "X 100.1 1000 +4000 call \"Core Reader::open\" {\"entry\": 1, \"exit\": 4, \"rc\": 0}\n" +
                  names + "M 100.2 thread_name \"tid 2\"\n");
}

// A wrapped trace of 60 threads, whose calls have lost entries and exits
// at the wrap: the file parses, nests, names every thread, and accounts for
// every record that the walk keeps as an instant or an end of a slice.
TEST(Export, WrappedTraceOfManyThreadsAccountsForEveryRecord)
{
    ExportDir d;
    TraceImage img = traceImageNew(65536);
    const uint8_t pattern[] = {ENTRY, ENTRY, PRINTF, EXIT, ENTRY, ERRCODE, EXIT, NEW, SYSERR};
    const uint8_t functions[] = {OPEN, CLOSE, CLOSE, CLOSE, READ, READ, OPEN, OPEN, READ};
    for (int n = 0; n < 4000; ++n) {
        const auto tid = static_cast<uint32_t>(n / 9 % 60 + 1);
        traceImageAdd(img, at(100 * (n + 1), pattern[n % 9], functions[n % 9], tid, n % 7 == 0 ? -1 : 0, "x"));
    }
    ASSERT_TRUE(img.wrapped);
    // The walk gives up the oldest survivor, which the wrap has cut into.
    const long kept = static_cast<long>(traceImageSurvivors(img).size()) - 1;
    const std::string trace = d.save(img);
    EXPECT_NE(d.tool({"fmt", "-x", "0", trace}).out.find("Records in trace        : " + std::to_string(kept) + "\n"),
              std::string::npos);
    std::set<long> seen;
    std::set<std::string> threads;
    std::istringstream in(d.checkedText(d.exportTrace({trace}).out));
    for (std::string line; std::getline(in, line);) {
        if (line.find("thread_name") != std::string::npos) {
            threads.insert(line);
        }
        for (const char* key : {"\"record\": ", "\"entry\": ", "\"exit\": ", "\"ended by\": ", "\"last record\": "}) {
            if (const size_t at = line.find(key); at != std::string::npos) {
                seen.insert(std::stol(line.substr(at + std::strlen(key))));
            }
        }
    }
    EXPECT_EQ(threads.size(), 60u);
    EXPECT_EQ(seen.size(), static_cast<size_t>(kept));
    EXPECT_EQ(*seen.begin(), 1);
    EXPECT_EQ(*seen.rbegin(), kept);
}

// The CSV form loads into sqlite3 and answers by query.
TEST(ExportCsv, LoadsIntoSqlite)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    const RunResult csv = d.exportTrace({"--csv", trace, "t.csv"});
    ASSERT_EQ(csv.status, 0);
    const std::string rows = kelvotest::readFile(d.dir.file("t.csv"));
    EXPECT_EQ(rows.substr(0, rows.find('\n') + 1),
              "record,sec,nsec,pid,tid,node,cpid,product,event,component,class,function,tracepoint,"
              "product_name,event_name,component_name,class_name,function_name,depth,rc,text\n");
    const RunResult q = kelvotest::runProgram(
        "/usr/bin/sqlite3",
        {"sqlite3", ":memory:", ".import --csv t.csv rec",
         "SELECT count(*), count(DISTINCT tid), sum(rc <> '') FROM rec;",
         "SELECT record, function_name FROM rec WHERE event_name = 'api_exit' AND CAST(rc AS INTEGER) <> 0;",
         "SELECT group_concat(text, '/') FROM rec WHERE text <> '';",
         "SELECT group_concat(record || ' ' || depth, ' ') FROM (SELECT * FROM rec ORDER BY CAST(record AS INTEGER));"},
        {}, d.dir.path());
    EXPECT_EQ(q.err, "");
    // Depths as flw shows them: record 6 is an exit whose entry was lost.
    EXPECT_EQ(q.out, "11|2|4\n5|open\nhello/in close/reading\n1 1 2 2 3 2 4 2 5 1 6 0 7 1 8 1 9 1 10 2 11 1\n");
}

TEST(Export, MessagesOfOptionsAndLoadingAreThoseOfFmt)
{
    ExportDir d;
    const std::string trace = d.save(callTree());
    d.dir.write("exists.json", "keep");
    const std::string m = "\n\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
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
    };
    for (const auto& [args, out] : cases) {
        const RunResult r = d.exportTrace(args);
        EXPECT_EQ(r.out, out) << args.size();
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 1);
    }
    EXPECT_EQ(kelvotest::readFile(d.dir.file("exists.json")), "keep");

    // A dictionary that fails after the destination was created leaves no
    // partial file behind.
    d.dir.write("z.tfi", "tfiversion 2\n");
    const RunResult bad = d.exportTrace({trace, "out.json"});
    EXPECT_EQ(bad.out, "Could not read the translation info.\n");
    EXPECT_NE(bad.err, "");
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(access(d.dir.file("out.json").c_str(), F_OK), 0);
}

// "-" reads the live trace under the semaphore, as fmt does, and lets it go.
TEST(ExportLive, TheLiveTraceIsReadAsFmtReadsIt)
{
    kelvotest::Instance instance;
    ExportDir d;
    d.instance = instance.name();
    ASSERT_EQ(kelvotest::turnOn(kelvotest::OnArgs{}), 0);
    ASSERT_EQ(trcWrite(1, TRC_EVENT_API_ENTRY, 1, 1, 1, 0, nullptr, nullptr, 0), 0);
    ASSERT_EQ(trcWritef(1, TRC_EVENT_API_PRINTF, 1, 1, 1, 0, nullptr, "n=%d", 5), 0);
    ASSERT_EQ(trcWriteRc(1, TRC_EVENT_API_EXIT, 1, 1, 1, 0, nullptr, -1), 0);
    const std::string pid = std::to_string(getpid()), tid = std::to_string(syscall(SYS_gettid));
    const std::string where = pid + "." + tid;
    for (const std::vector<std::string>& args : {std::vector<std::string>{}, {"-"}, {"-", "live.json"}}) {
        const RunResult r = d.exportTrace(args);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        // Times vary: the time of a slice or instant and a slice's duration go.
        std::istringstream lines(d.checkedText(args.size() < 2 ? r.out : kelvotest::readFile(d.dir.file("live.json"))));
        std::string kept;
        for (std::string line, word; std::getline(lines, line); kept += "\n") {
            std::istringstream words(line);
            for (int n = 0; words >> word; ++n) {
                const bool time = line[0] != 'M' && (n == 2 || (line[0] == 'X' && n == 3));
                kept += time ? "" : (n == 0 ? "" : " ") + word;
            }
        }
        EXPECT_EQ(kept, "i " + where + " event \"api_printf Core Reader::open\" {\"record\": 2, \"text\": \"n=5\"}\n" +
                            "X " + where +
                            " call,error \"Core Reader::open\" {\"entry\": 1, \"exit\": 3, \"rc\": -1}\n" + "M " + pid +
                            ".0 process_name \"pid " + pid + "\"\nM " + where + " thread_name \"tid " + tid + "\"\n");
    }
    const RunResult stats = d.stats({"--csv"});
    EXPECT_EQ(stats.out.substr(0, stats.out.find(',', stats.out.find('\n'))),
              "function,calls,total_ns,self_ns,min_ns,avg_ns,max_ns,errors\n\"Core Reader::open\"");
    // The semaphore is free again: fmt can take it.
    EXPECT_EQ(d.tool({"fmt", "-x", "0"}).status, 0);
    trcOff(0);
    EXPECT_EQ(d.exportTrace({"-"}).out, "Trace is off.\n");
}

// A standard output that cannot be written fails with status 1.
TEST(Export, AnOutputThatCannotBeWrittenFails)
{
    ExportDir d;
    const RunResult r =
        kelvotest::runProgram("/bin/sh",
                              {"sh", "-c", std::string(KELVO_EXPORT_PATH) + " \"$1\" >/dev/full; echo \"status $?\"",
                               "sh", d.save(callTree())},
                              {{"TRCTFIDIR", d.dir.path()}, {"KELVO_INSTANCE", d.instance}});
    EXPECT_EQ(r.out, "status 1\n");
}
