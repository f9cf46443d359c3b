// doFlw called directly on an index: the depth field after a flow report,
// the closing line, and that one thread's report does not depend on the
// reports of other threads made before it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "run_tool.h"
#include "trace_image.h"
#include "trcf.h"
#include "trcrtos.h"

using kelvotest::TraceImage;
using kelvotest::TraceRecordFields;

namespace {

TraceRecordFields record(uint8_t event, uint8_t function, uint32_t tid)
{
    TraceRecordFields f;
    f.event = event;
    f.function = function;
    f.tracePoint = 0;
    f.tid = tid;
    if (event == 23) {
        f.rc = 0;
    }
    return f;
}

std::vector<flowIndex_t> indexOf(TraceImage& img)
{
    std::vector<flowIndex_t> index;
    for (const kelvotest::TracePlaced& p : kelvotest::traceImageSurvivors(img)) {
        index.push_back(flowIndex_t{12345, kelvotest::traceImageRecordAt(img, p.offset)});
    }
    return index;
}

std::string readStream(FILE* f)
{
    std::string text;
    std::rewind(f);
    int c;
    while ((c = std::fgetc(f)) != EOF) {
        text += static_cast<char>(c);
    }
    return text;
}

}  // namespace

TEST(FlowReport, DepthsOfOneThreadAndMarksOfTheOthers)
{
    kelvotest::TempDir dir;
    dir.write("a.tfi", "tfiversion 1 bldlvl \"x\" product Alpha 1 component Core 1 class Reader open close\n");
    TraceImage img = kelvotest::traceImageNew(65536);
    kelvotest::traceImageAdd(img, record(22, 1, 1));  // 1: thread 1, depth 1
    kelvotest::traceImageAdd(img, record(22, 2, 2));  // 2: thread 2
    kelvotest::traceImageAdd(img, record(22, 2, 1));  // 3: thread 1, depth 2
    kelvotest::traceImageAdd(img, record(23, 1, 1));  // 4: thread 1, depth 1
    kelvotest::traceImageAdd(img, record(23, 2, 2));  // 5: thread 2
    std::vector<flowIndex_t> index = indexOf(img);
    ASSERT_EQ(index.size(), 5u);

    kelvotest::RunResult r = kelvotest::captureChild([&] {
        setenv("TRCTFIDIR", dir.path().c_str(), 1);
        trcHeader_t header{};
        for (auto& version : header.prodVersion) {
            std::memcpy(version, TRC_NO_VERSION, 8);
        }
        if (trcRecToStrInit(&header) != 0) {
            std::exit(3);
        }
        unsigned char mask[6][32];
        std::memset(mask, 0xFF, sizeof mask);
        FILE* out = std::tmpfile();
        // Thread 2 first: its depths must not leak into thread 1's.
        doFlw(5, index.data(), 100, 2, mask, 1, 0, 5, out, "out");
        doFlw(5, index.data(), 100, 1, mask, -1, 1, 5, out, "out");
        std::printf("depths");
        for (const flowIndex_t& e : index) {
            std::printf(" %ld", e.depth);
        }
        std::printf("\n%s", readStream(out).c_str());
    });
    EXPECT_EQ(r.out, "Records formatted       : 2      (pid: 100; tid: 2; node: -1)\n"
                     "Records formatted       : 2      (pid: 100; tid: 1; node: -1)\n"
                     "depths 1 -9999 2 1 -9999\n"
                     "     2  1|api_entry    Core Reader::close ...\n"
                     "     5  1|api_exit     Core Reader::close -> 0\n"
                     "     4  1|api_exit     Core Reader::open -> 0\n"
                     "     3  2|  api_entry    Core Reader::close ...\n");
    EXPECT_EQ(r.status, kelvotest::childReturned);
}
