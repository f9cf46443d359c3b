// `kelvo web_buffer_info`: the one-line summary of the live buffer, for each
// state of the trace.
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cmd_live.h"
#include "run_tool.h"
#include "trace_image.h"

using cmdlive::LiveInstance;
using kelvotest::TempDir;

namespace {

const std::string turnedOn = "Trace is turned on\n";

// Bytes a text record takes in the area.
int32_t recordBytes(const std::string& text)
{
    return trcAligned(44 + static_cast<int32_t>(text.size()));
}

std::string line(const char* mode, const char* lost, int64_t used, int64_t count)
{
    return std::string("Y|") + mode + "|" + lost + "|" + std::to_string(used) + "|" +
           std::to_string(count) + "|";
}

}  // namespace

TEST(CommandWeb, NoTrace)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"web_buffer_info"}), "N|", 1);
    EXPECT_RUN(live.run({"WEB_BUFFER_INFO", "extra", "words"}), "N|", 1);
}

TEST(CommandWeb, EmptyAndFilledTrace)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on"}), turnedOn, 0);
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|W|N|0|0|", 0);
    EXPECT_RUN(live.run({"web_buffer_info", "extra", "-words"}), "Y|W|N|0|0|", 0);
    ASSERT_EQ(live.write(5, "hello"), 5);
    EXPECT_RUN(live.run({"web_buffer_info"}), line("W", "N", 5 * recordBytes("hello"), 5), 0);
}

// Keeping the initial records, the buffer stops when it is full.
TEST(CommandWeb, TruncatedTrace)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-i", "4096"}), turnedOn, 0);
    const std::string text(40, 't');
    EXPECT_RUN(live.run({"web_buffer_info"}), "Y|T|N|0|0|", 0);
    const int stored = live.write(100, text);
    ASSERT_GT(stored, 0);
    ASSERT_LT(stored, 100);
    EXPECT_RUN(live.run({"web_buffer_info"}), line("T", "Y", stored * recordBytes(text), stored),
               0);
}

// Keeping the last records, the buffer wraps: the count is what a writer
// by the same rules keeps, and nearly the whole buffer is in use.
TEST(CommandWeb, WrappedTrace)
{
    LiveInstance live;
    EXPECT_RUN(live.run({"on", "-l", "4096"}), turnedOn, 0);
    const std::string text(40, 'w');
    ASSERT_EQ(live.write(200, text), 200);
    kelvotest::TraceImage model = kelvotest::traceImageNew(4096, TRC_KEEP_LAST);
    for (int i = 0; i < 200; ++i) {
        kelvotest::traceImageAddText(model, text);
    }
    const auto kept = static_cast<int64_t>(kelvotest::traceImageSurvivors(model).size());
    const auto run = live.run({"web_buffer_info"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    const std::string head = "Y|W|Y|";
    ASSERT_EQ(run.out.substr(0, head.size()), head);
    const std::string tail = "|" + std::to_string(kept) + "|";
    ASSERT_GT(run.out.size(), head.size() + tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail);
    const long used = std::stol(run.out.substr(head.size()));
    EXPECT_GT(used, 4096 - 2 * recordBytes(text));
    EXPECT_LE(used, 4096);
}

// Failures of loading the live trace come behind the first field.
TEST(CommandWeb, TraceThatCannotBeRead)
{
    LiveInstance native;
    EXPECT_RUN(native.run({"on", "-n"}), turnedOn, 0);
    EXPECT_RUN(native.run({"web_buffer_info"}), "Y|Can not format native trace.\n", 1);

    // Stopped after its one severe error: the block is there, but off.
    LiveInstance stopped;
    EXPECT_RUN(stopped.run({"on", "-e", "1"}), turnedOn, 0);
    stopped.write(1, "severe", 1, 1);
    EXPECT_RUN(stopped.run({"web_buffer_info"}), "Y|Trace is off.\n", 1);
}

// A trace into a file is read from that file.
TEST(CommandWeb, FileTraceIsReadFromItsFile)
{
    // The trace goes off before the directory of its file goes.
    TempDir dir;
    LiveInstance live;
    cmdlive::openToAll(dir);
    const std::string file = dir.file("t.bin");
    EXPECT_RUN(live.run({"on", "-f", file, "-i", "8192"}), turnedOn, 0);
    ASSERT_EQ(live.write(2, "in a file"), 2);
    EXPECT_RUN(live.run({"web_buffer_info"}), line("T", "N", 2 * recordBytes("in a file"), 2), 0);

    // What the file holds is what is reported: here a wrapped image with
    // a broken length in its older part, whose message lands between the
    // fourth and the fifth field.
    kelvotest::TraceImage img = kelvotest::traceImageNew(8192, TRC_KEEP_LAST);
    for (int i = 0; i < 400; ++i) {
        kelvotest::traceImageAddText(img, "wrapped record");
    }
    ASSERT_TRUE(img.wrapped);
    const auto kept = kelvotest::traceImageSurvivors(img);
    ASSERT_GT(kept.size(), 3u);
    ASSERT_GT(kept[2].offset, img.writeOffset);
    kelvotest::traceImagePoke32(img, kept[2].offset, 0);
    const std::string bytes = kelvotest::traceImageBytes(img);
    const int fd = open(file.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    close(fd);
    const auto run = live.run({"web_buffer_info"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    const std::string corrupt = cmdlive::msg(421);
    const auto at = run.out.find(corrupt);
    ASSERT_NE(at, std::string::npos) << run.out;
    EXPECT_EQ(run.out.substr(0, 6), "Y|W|Y|");
    // The broken record itself is still counted, nothing behind it.
    EXPECT_EQ(run.out.substr(at), corrupt + "3|");
}
