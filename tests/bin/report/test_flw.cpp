// doFlw on an index: the depths it leaves behind, the closing lines, and one
// thread's report not depending on the threads reported before it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "report_support.h"
#include "trcf.h"
#include "trcrtos.h"

TEST(FlowReport, DepthsOfOneThreadAndMarksOfTheOthers)
{
    kelvotest::ReportDir d;
    kelvotest::TraceImage img = kelvotest::traceImageNew(65536);
    // Thread 1: open, close inside it, open's exit; thread 2: close and its exit.
    for (auto [event, function, tid] : {std::tuple{22, 1, 1}, {22, 2, 2}, {22, 2, 1}, {23, 1, 1}, {23, 2, 2}}) {
        kelvotest::traceImageAdd(img, kelvotest::rec(event, function, tid, 100, 1, 0));
    }
    std::vector<flowIndex_t> index;
    for (const kelvotest::TracePlaced& p : kelvotest::traceImageSurvivors(img)) {
        index.push_back(flowIndex_t{12345, kelvotest::traceImageRecordAt(img, p.offset)});
    }
    kelvotest::RunResult r = kelvotest::captureChild([&] {
        setenv("TRCTFIDIR", d.dir.path().c_str(), 1);
        trcHeader_t header{};
        for (auto& version : header.prodVersion) {
            std::memcpy(version, TRC_NO_VERSION, 8);
        }
        unsigned char mask[6][32];
        std::memset(mask, 0xFF, sizeof mask);
        FILE* out = std::tmpfile();
        if (trcRecToStrInit(&header) != 0 || out == nullptr || index.size() != 5) {
            std::exit(3);
        }
        // Thread 2 first: its depths must not leak into thread 1's.
        doFlw(5, index.data(), 100, 2, mask, 1, 0, 5, out, "out");
        doFlw(5, index.data(), 100, 1, mask, -1, 1, 5, out, "out");
        std::printf("depths");
        for (const flowIndex_t& e : index) {
            std::printf(" %ld", e.depth);
        }
        std::printf("\n");
        std::rewind(out);
        for (int c; (c = std::fgetc(out)) != EOF;) {
            std::putchar(c);
        }
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
