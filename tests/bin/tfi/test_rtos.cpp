// The two text forms of a record: trcRecToStr and trcRecToFnc.
#include "tfi_support.h"
#include "run_tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// A record of "Alpha Core Reader::open" (by default) at trace point 2, pid 100.
trcRecord_t rec(unsigned event = 22, unsigned product = 3, unsigned component = 7, unsigned klass = 1,
                unsigned function = 1, unsigned tracePoint = 2)
{
    trcRecord_t r{};
    r.ident1 = (product << 24) | (event << 16);
    r.ident2 = (component << 24) | (klass << 16) | (function << 8) | tracePoint;
    r.pid = 100;
    r.node = -1;
    return r;
}

using bytes = std::vector<unsigned char>;

// The record as it lies in a trace: fixed part, data, alignment bytes, and
// the length word that ends the aligned size; nothing behind it to read.
bytes record(trcRecord_t r, const std::string& data = {})
{
    r.length = static_cast<int32_t>(TRC_RECORD_MIN + data.size());
    bytes b(static_cast<std::size_t>(trcAligned(r.length)), 0xEE);
    std::memcpy(b.data(), &r, sizeof r);
    std::memcpy(b.data() + TRC_RECORD_FIXED, data.data(), data.size());
    std::memcpy(b.data() + b.size() - 4, &r.length, 4);
    return b;
}

std::string word(int32_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); }
const trcRecord_t* view(const bytes& b) { return reinterpret_cast<const trcRecord_t*>(b.data()); }

std::string str(const bytes& b, unsigned long number = 5, int join = 0)
{
    std::vector<char> buffer(524288);
    int n = trcRecToStr(view(b), buffer.data(), static_cast<int>(buffer.size()), number, join);
    return std::string(buffer.data(), static_cast<std::size_t>(n));
}

std::string fnc(const bytes& b)
{
    std::vector<char> buffer(131072, 'Z');
    char* result = trcRecToFnc(view(b), buffer.data(), static_cast<int>(buffer.size()));
    EXPECT_EQ(result, buffer.data());
    return result;
}

class Rtos : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        kelvotest::TempDir dir;
        dir.write("a.tfi", "tfiversion 1 bldlvl \"x\" product Alpha 3 component Core 7 class Reader open close\n"
                           "component Net 9 class Socket connect\n");
        ASSERT_EQ(kelvotest::initNames(dir.path()), 0);
    }
};

const std::string title = "\n5\tapi_entry    Alpha Core Reader::open (3.22.7.1.1.2)", pid = "\n\tpid 100";
const std::string exitTitle = "\n5\tapi_exit     Alpha Core Reader::open (3.23.7.1.1.2)" + pid;
const std::string flow = "api_entry    Core Reader::open (2)", exitFlow = "api_exit     Core Reader::open (2) -> ";

}  // namespace

TEST_F(Rtos, OriginTextAndReturnCodes)
{
    trcRecord_t all = rec(), some = rec(), rcExit = rec(23);
    all.tid = 4000000000u, all.cpid = 7, all.sec = 1700000000, all.nsec = -5, all.thisPointer = 0xdeadbeef;
    some.pid = 0, some.cpid = 3, some.nsec = 99, some.thisPointer = 1;  // without sec no time stamp
    const std::string zero("x\0y", 3);
    const std::pair<bytes, std::string> rows[] = {
        {record(rec()), title + pid + "\n"},
        {record(all), title + pid + "; tid 4000000000; cpid 7; sec 1700000000; nsec -5; this 0xdeadbeef\n"},
        {record(some), title + "\n\tpid 0; cpid 3; this 0x1\n"},
        {record(rec(), "a\nb"), title + pid + "\n\ta\n\tb\n"},
        {record(rec(), "\n\n"), title + pid + "\n\t\n\t\n"},
        {record(rec(), zero), title + pid + "\n\t" + zero + "\n"},  // a zero byte is copied, nothing cut
        {record(rec(), "%s %n %d"), title + pid + "\n\t%s %n %d\n"},
        {record(rcExit, word(0)), exitTitle + "\n"},
        {record(rcExit, word(-1)), exitTitle + "\n\trc = -1 = 0xffffffff\n"},
        {record(rcExit, word(2) + "zzzz"), exitTitle + "\n\trc = 2 = 0x2\n"},  // data behind it is not shown
        {record(rcExit), exitTitle + "\n\trc = 44 = 0x2c\n"},                  // no data: the length word is read
    };
    for (const auto& [laid, text] : rows)
        EXPECT_EQ(str(laid), text);
    EXPECT_EQ(fnc(record(rec(), "a\nb")), flow + " ...\n");
    EXPECT_EQ(fnc(record(rcExit, word(0))), exitFlow + "0\n");
    EXPECT_EQ(fnc(record(rcExit, word(-1))), exitFlow + "0xffffffff = -1\n");
}

TEST_F(Rtos, EveryEventFamily)
{
    const std::vector<unsigned> rcEvents = {10, 11, 12, 13, 14, 23, 33, 43, 53, 63};
    for (unsigned event = 0; event < 256; ++event) {
        trcRecord_t f = rec(event);
        std::string name = trcNameEvent[event], e = std::to_string(event);
        bool isRc = std::find(rcEvents.begin(), rcEvents.end(), event) != rcEvents.end();
        EXPECT_EQ(trcIsRcEvent(static_cast<int>(event)), isRc) << e;
        std::string head = "\n5\t" + name + " Alpha Core Reader::open (3." + e + ".7.1.1.2)" + pid;
        EXPECT_EQ(str(record(f, word(1))), head + (isRc ? "\n\trc = 1 = 0x1\n" : "\n\t" + word(1) + "\n")) << e;
        EXPECT_EQ(fnc(record(f, word(1))), name + " Core Reader::open (2)" + (isRc ? " -> 0x1 = 1\n" : " ...\n")) << e;
    }
}

TEST_F(Rtos, JoinNamesAndNumbers)
{
    trcRecord_t f = rec(), close = rec(22, 3, 7, 1, 2, 0), net = rec(22, 3, 9, 1, 1, 255),
                unknown = rec(22, 200, 255, 0, 0);
    f.tid = 9;
    EXPECT_EQ(str(record(f, "a\nb"), 5, 1), title + "; pid 100; tid 9\n\ta\n\tb\n");
    f.ident1 = rec(33).ident1;
    EXPECT_EQ(str(record(f, word(7)), 12, 1),
              "\n12\tcei_exit     Alpha Core Reader::open (3.33.7.1.1.2); pid 100; tid 9\n\trc = 7 = 0x7\n");
    EXPECT_EQ(str(record(close), 4294967296ul),
              "\n4294967296\tapi_entry    Alpha Core Reader::close (3.22.7.1.2.0)" + pid + "\n");
    EXPECT_EQ(fnc(record(close, word(0))), "api_entry    Core Reader::close ...\n");
    EXPECT_EQ(fnc(record(net)), "api_entry    Net  Socket::connect (255) ...\n");
    EXPECT_EQ(str(record(unknown)), "\n5\tapi_entry    ?  ?  ? ::?  (200.22.255.0.0.2)" + pid + "\n");
    EXPECT_EQ(fnc(record(unknown)), "api_entry    ?    ? ::?  (2) ...\n");
    EXPECT_EQ(str(record(rec(22, 3, 7, 1, 5))), "\n5\tapi_entry    Alpha Core Reader::?  (3.22.7.1.5.2)" + pid + "\n");
}

// A damaged trace may hold a record shorter than its fixed part and length
// word; only its first 44 bytes are read. A return code still comes from the
// four bytes behind the fixed part; "..." shows data beyond 40 bytes.
TEST_F(Rtos, RecordsShorterThanFortyFourBytes)
{
    for (int32_t length : {0, 40, 41, 43}) {
        bytes rc = record(rec(23)), text = record(rec());
        ASSERT_EQ(rc.size(), 44u);
        std::memcpy(rc.data(), &length, 4);
        std::memcpy(rc.data() + TRC_RECORD_FIXED, word(-2).data(), 4);
        std::memcpy(text.data(), &length, 4);
        EXPECT_EQ(str(rc), exitTitle + "\n\trc = -2 = 0xfffffffe\n") << length;
        EXPECT_EQ(fnc(rc), exitFlow + "0xfffffffe = -2\n") << length;
        EXPECT_EQ(str(text), title + pid + "\n") << length;
        EXPECT_EQ(fnc(text), flow + (length > 40 ? " ...\n" : "\n")) << length;
    }
}

TEST_F(Rtos, TextThatDoesNotFitIsCutWithTheLineEndKept)
{
    std::string text(1000, 'w');
    text[500] = '\n';
    bytes b = record(rec(), text);
    std::string full = str(b);
    ASSERT_EQ(full, title + pid + "\n\t" + text.substr(0, 501) + "\t" + text.substr(501) + "\n");
    for (int size : {0, 1, 2, 10, 60, static_cast<int>(full.size()) - 1, static_cast<int>(full.size())}) {
        std::string buffer(static_cast<std::size_t>(size) + 16, 'Z');
        ASSERT_EQ(trcRecToStr(view(b), buffer.data(), size, 5, 0), size);
        std::string expected =
            size == static_cast<int>(full.size()) || size == 0 ? full.substr(0, size) : full.substr(0, size - 1) + "\n";
        EXPECT_EQ(buffer.substr(0, size + 1), expected + "Z") << size;
    }
    std::string line = flow + " ...\n";
    for (int size : {1, 2, 5, static_cast<int>(line.size()), static_cast<int>(line.size()) + 1}) {
        std::string buffer(static_cast<std::size_t>(size) + 8, 'Z');
        trcRecToFnc(view(record(rec())), buffer.data(), size);
        // Cut to size - 2 bytes and the line end, then the terminating zero; nothing behind.
        std::string expected = size == 1 ? "" : line.substr(0, std::min<std::size_t>(size - 2, line.size() - 1)) + "\n";
        const std::size_t fill = size - expected.size();
        expected.append(1, '\0').append(fill, 'Z');
        EXPECT_EQ(buffer.substr(0, size + 1), expected) << size;
    }
}
