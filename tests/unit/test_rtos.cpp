// The two text forms of a record: trcRecToStr and trcRecToFnc.
#include "test_tfi_support.h"
#include "run_tool.h"

#include "trcrtos.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct fields {
    unsigned product = 3, event = 22, component = 7, klass = 1, function = 1, tracePoint = 2;
    uint32_t pid = 100, tid = 0, cpid = 0, thisPointer = 0;
    int32_t sec = 0, nsec = 0;
};

// A record as it lies in a trace: fixed part, data, alignment bytes, and
// the length word that ends the aligned size.
std::vector<unsigned char> record(const fields& f, const std::string& data = {})
{
    trcRecord_t r{};
    r.length = static_cast<int32_t>(TRC_RECORD_MIN + data.size());
    r.ident1 = (f.product << 24) | (f.event << 16);
    r.ident2 = (f.component << 24) | (f.klass << 16) | (f.function << 8) | f.tracePoint;
    r.thisPointer = f.thisPointer;
    r.pid = f.pid;
    r.tid = f.tid;
    r.node = -1;
    r.cpid = f.cpid;
    r.sec = f.sec;
    r.nsec = f.nsec;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(trcAligned(r.length)), 0xEE);
    std::memcpy(bytes.data(), &r, sizeof r);
    std::memcpy(bytes.data() + TRC_RECORD_FIXED, data.data(), data.size());
    std::memcpy(bytes.data() + trcAligned(r.length) - 4, &r.length, 4);
    return bytes;
}

std::vector<unsigned char> rcRecord(fields f, int32_t rc)
{
    std::string data(4, '\0');
    std::memcpy(data.data(), &rc, 4);
    return record(f, data);
}

const trcRecord_t* view(const std::vector<unsigned char>& bytes)
{
    return reinterpret_cast<const trcRecord_t*>(bytes.data());
}

std::string str(const std::vector<unsigned char>& bytes, unsigned long number = 5, int join = 0)
{
    std::vector<char> buffer(524288);
    int n = trcRecToStr(view(bytes), buffer.data(), static_cast<int>(buffer.size()), number, join);
    return std::string(buffer.data(), static_cast<std::size_t>(n));
}

std::string fnc(const std::vector<unsigned char>& bytes)
{
    std::vector<char> buffer(131072, 'Z');
    char* result = trcRecToFnc(view(bytes), buffer.data(), static_cast<int>(buffer.size()));
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
        tfitest::EnvGuard tfiDir("TRCTFIDIR", dir.path());
        trcHeader_t header{};
        for (auto& version : header.prodVersion)
            std::memcpy(version, TRC_NO_VERSION, 8);
        ASSERT_EQ(trcRecToStrInit(&header), 0);
    }
};

const std::string title = "\n5\tapi_entry    Alpha Core Reader::open (3.22.7.1.1.2)";

} // namespace

TEST_F(Rtos, ARecordWithoutDataIsTitleAndPidLine)
{
    EXPECT_EQ(str(record({})), title + "\n\tpid 100\n");
    EXPECT_EQ(fnc(record({})), "api_entry    Core Reader::open (2) ...\n");
}

TEST_F(Rtos, OriginPiecesAppearOnlyWhenSet)
{
    fields f;
    f.tid = 4000000000u;
    f.cpid = 7;
    f.sec = 1700000000;
    f.nsec = -5;
    f.thisPointer = 0xdeadbeef;
    EXPECT_EQ(str(record(f)),
              title + "\n\tpid 100; tid 4000000000; cpid 7; sec 1700000000; nsec -5; this 0xdeadbeef\n");
    fields g;
    g.pid = 0;
    g.nsec = 99;  // without sec no time stamp
    g.thisPointer = 1;
    EXPECT_EQ(str(record(g)), title + "\n\tpid 0; this 0x1\n");
    fields h;
    h.cpid = 3;
    EXPECT_EQ(str(record(h)), title + "\n\tpid 100; cpid 3\n");
}

TEST_F(Rtos, TextOfARecord)
{
    EXPECT_EQ(str(record({}, "a\nb")), title + "\n\tpid 100\n\ta\n\tb\n");
    EXPECT_EQ(str(record({}, "ends\n")), title + "\n\tpid 100\n\tends\n");
    EXPECT_EQ(str(record({}, "\n\n")), title + "\n\tpid 100\n\t\n\t\n");
    EXPECT_EQ(str(record({}, "x")), title + "\n\tpid 100\n\tx\n");
    // A zero byte is copied and counted; what follows it is not cut.
    std::string zero("x\0y", 3);
    EXPECT_EQ(str(record({}, zero)), title + "\n\tpid 100\n\tx" + std::string(1, '\0') + "y\n");
    // Format directives in the data are not expanded.
    EXPECT_EQ(str(record({}, "%s %n %d")), title + "\n\tpid 100\n\t%s %n %d\n");
    EXPECT_EQ(fnc(record({}, "a\nb")), "api_entry    Core Reader::open (2) ...\n");
}

TEST_F(Rtos, ReturnCodes)
{
    fields f;
    f.event = 23;
    std::string head = "\n5\tapi_exit     Alpha Core Reader::open (3.23.7.1.1.2)\n\tpid 100";
    EXPECT_EQ(str(rcRecord(f, 0)), head + "\n");
    EXPECT_EQ(str(rcRecord(f, -1)), head + "\n\trc = -1 = 0xffffffff\n");
    EXPECT_EQ(str(rcRecord(f, 255)), head + "\n\trc = 255 = 0xff\n");
    EXPECT_EQ(str(rcRecord(f, INT32_MIN)), head + "\n\trc = -2147483648 = 0x80000000\n");
    EXPECT_EQ(fnc(rcRecord(f, 0)), "api_exit     Core Reader::open (2) -> 0\n");
    EXPECT_EQ(fnc(rcRecord(f, -1)), "api_exit     Core Reader::open (2) -> 0xffffffff = -1\n");
    EXPECT_EQ(fnc(rcRecord(f, 4096)), "api_exit     Core Reader::open (2) -> 0x1000 = 4096\n");
    // Data behind the return code is not shown; a record without data reads
    // its return code from the length word.
    std::string more(8, '\0');
    more[0] = 2;
    more[4] = 'z';
    EXPECT_EQ(str(record(f, more)), head + "\n\trc = 2 = 0x2\n");
    EXPECT_EQ(str(record(f)), head + "\n\trc = 44 = 0x2c\n");
}

TEST_F(Rtos, EveryEventFamily)
{
    const std::vector<unsigned> rcEvents = {10, 11, 12, 13, 14, 23, 33, 43, 53, 63};
    for (unsigned e = 0; e < 256; ++e) {
        fields f;
        f.event = e;
        std::string data(4, '\0');
        data[0] = 1;
        std::string text = str(record(f, data));
        std::string line = fnc(record(f, data));
        bool isRc = std::find(rcEvents.begin(), rcEvents.end(), e) != rcEvents.end();
        EXPECT_EQ(trcIsRcEvent(e), isRc) << e;
        std::string name = trcNameEvent[e];
        std::string expectedTitle = "\n5\t" + name + " Alpha Core Reader::open (3." + std::to_string(e) + ".7.1.1.2)";
        if (isRc) {
            EXPECT_EQ(text, expectedTitle + "\n\tpid 100\n\trc = 1 = 0x1\n") << e;
            EXPECT_EQ(line, name + " Core Reader::open (2) -> 0x1 = 1\n") << e;
        } else {
            EXPECT_EQ(text, expectedTitle + "\n\tpid 100\n\t" + data + "\n") << e;
            EXPECT_EQ(line, name + " Core Reader::open (2) ...\n") << e;
        }
    }
    fields unnamed;
    unnamed.event = 8;
    EXPECT_EQ(str(record(unnamed)), "\n5\t?  Alpha Core Reader::open (3.8.7.1.1.2)\n\tpid 100\n");
    fields prfExit;
    prfExit.event = 101;
    EXPECT_EQ(str(rcRecord(prfExit, 0)),
              "\n5\tprf_exit     Alpha Core Reader::open (3.101.7.1.1.2)\n\tpid 100\n\t" + std::string(4, '\0') + "\n");
}

TEST_F(Rtos, JoinPutsThePidOnTheTitleLine)
{
    fields f;
    f.tid = 9;
    EXPECT_EQ(str(record(f, "a\nb"), 5, 1),
              "\n5\tapi_entry    Alpha Core Reader::open (3.22.7.1.1.2); pid 100; tid 9\n\ta\n\tb\n");
    f.event = 33;
    EXPECT_EQ(str(rcRecord(f, 7), 12, 1),
              "\n12\tcei_exit     Alpha Core Reader::open (3.33.7.1.1.2); pid 100; tid 9\n\trc = 7 = 0x7\n");
    EXPECT_EQ(str(record({}), 1, 0), "\n1\tapi_entry    Alpha Core Reader::open (3.22.7.1.1.2)\n\tpid 100\n");
}

TEST_F(Rtos, NamesAndNumbers)
{
    fields f;
    f.tracePoint = 0;
    f.function = 2;
    EXPECT_EQ(str(record(f), 4294967296ul),
              "\n4294967296\tapi_entry    Alpha Core Reader::close (3.22.7.1.2.0)\n\tpid 100\n");
    EXPECT_EQ(fnc(rcRecord(f, 0)), "api_entry    Core Reader::close ...\n");

    fields net;
    net.component = 9;
    net.tracePoint = 255;
    EXPECT_EQ(fnc(record(net)), "api_entry    Net  Socket::connect (255) ...\n");

    fields unknown;
    unknown.product = 200;
    unknown.component = 255;
    unknown.klass = 0;
    unknown.function = 0;
    EXPECT_EQ(str(record(unknown)), "\n5\tapi_entry    ?  ?  ? ::?  (200.22.255.0.0.2)\n\tpid 100\n");
    EXPECT_EQ(fnc(record(unknown)), "api_entry    ?    ? ::?  (2) ...\n");

    fields missing;
    missing.function = 5;
    EXPECT_EQ(str(record(missing)), "\n5\tapi_entry    Alpha Core Reader::?  (3.22.7.1.5.2)\n\tpid 100\n");
}

TEST_F(Rtos, FlowLineShowsDotsAboveFortyBytes)
{
    std::vector<unsigned char> bytes = record({});
    trcRecord_t r;
    std::memcpy(&r, bytes.data(), sizeof r);
    r.length = 40;
    std::memcpy(bytes.data(), &r, sizeof r);
    EXPECT_EQ(fnc(bytes), "api_entry    Core Reader::open (2)\n");
    EXPECT_EQ(str(bytes), title + "\n\tpid 100\n");
    r.length = 41;
    std::memcpy(bytes.data(), &r, sizeof r);
    EXPECT_EQ(fnc(bytes), "api_entry    Core Reader::open (2) ...\n");
}

// A record shorter than its fixed part and length word may come from a
// damaged trace; only its first 44 bytes are there to read. A return code
// still comes from the four bytes behind the fixed part.
TEST_F(Rtos, RecordsShorterThanFortyFourBytes)
{
    fields f;
    f.event = 23;
    std::string head = "\n5\tapi_exit     Alpha Core Reader::open (3.23.7.1.1.2)\n\tpid 100";
    for (int32_t length : {0, 8, 40, 43}) {
        std::vector<unsigned char> rc = record(f);
        ASSERT_EQ(rc.size(), 44u);
        std::memcpy(rc.data(), &length, sizeof length);
        int32_t code = -2;
        std::memcpy(rc.data() + TRC_RECORD_FIXED, &code, sizeof code);
        EXPECT_EQ(str(rc), head + "\n\trc = -2 = 0xfffffffe\n") << length;
        EXPECT_EQ(fnc(rc), "api_exit     Core Reader::open (2) -> 0xfffffffe = -2\n") << length;

        std::vector<unsigned char> text = record({});
        std::memcpy(text.data(), &length, sizeof length);
        EXPECT_EQ(str(text), title + "\n\tpid 100\n") << length;
        EXPECT_EQ(fnc(text), length > 40 ? "api_entry    Core Reader::open (2) ...\n"
                                         : "api_entry    Core Reader::open (2)\n")
            << length;
    }
}

TEST_F(Rtos, TextThatDoesNotFitIsCutWithTheLineEndKept)
{
    std::string text(1000, 'w');
    text[500] = '\n';
    std::vector<unsigned char> bytes = record({}, text);
    std::string full = str(bytes);
    ASSERT_EQ(full.size(), title.size() + 9 + 2 + 1001 + 1);
    for (int size : {1, 2, 10, 60, static_cast<int>(full.size()) - 1}) {
        std::vector<char> buffer(static_cast<std::size_t>(size) + 16, 'Z');
        int n = trcRecToStr(view(bytes), buffer.data(), size, 5, 0);
        ASSERT_EQ(n, size);
        EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(size - 1)), full.substr(0, static_cast<std::size_t>(size - 1)));
        EXPECT_EQ(buffer[static_cast<std::size_t>(size - 1)], '\n');
        EXPECT_EQ(buffer[static_cast<std::size_t>(size)], 'Z');
    }
    std::vector<char> exact(full.size() + 1, 'Z');
    EXPECT_EQ(trcRecToStr(view(bytes), exact.data(), static_cast<int>(full.size()), 5, 0),
              static_cast<int>(full.size()));
    EXPECT_EQ(std::string(exact.data(), full.size()), full);
    EXPECT_EQ(exact[full.size()], 'Z');
    char none = 'Z';
    EXPECT_EQ(trcRecToStr(view(bytes), &none, 0, 5, 0), 0);
    EXPECT_EQ(none, 'Z');
}

TEST_F(Rtos, FlowLineThatDoesNotFitIsCutWithTheLineEndKept)
{
    std::vector<unsigned char> bytes = record({});
    std::string full = "api_entry    Core Reader::open (2) ...\n";
    for (int size : {2, 5, static_cast<int>(full.size())}) {
        std::vector<char> buffer(static_cast<std::size_t>(size) + 8, 'Z');
        trcRecToFnc(view(bytes), buffer.data(), size);
        EXPECT_EQ(std::string(buffer.data()), full.substr(0, static_cast<std::size_t>(size - 2)) + "\n");
        EXPECT_EQ(buffer[static_cast<std::size_t>(size)], 'Z');
    }
    std::vector<char> exact(full.size() + 2, 'Z');
    trcRecToFnc(view(bytes), exact.data(), static_cast<int>(full.size()) + 1);
    EXPECT_EQ(std::string(exact.data()), full);
    char one = 'Z';
    trcRecToFnc(view(bytes), &one, 1);
    EXPECT_EQ(one, '\0');
}
