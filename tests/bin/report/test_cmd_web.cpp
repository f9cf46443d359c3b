// `kelvo web_buffer_info`: the one-line summary of the live buffer, for each
// state of the trace.
#include <fcntl.h>

#include "cmd_live.h"
#include "trace_image.h"

using namespace kelvotest;

namespace {

const std::vector<std::string> web = {"web_buffer_info"};

// Bytes a text record takes in the area.
int32_t recordBytes(const std::string& text) { return trcAligned(44 + static_cast<int32_t>(text.size())); }

std::string line(const char* mode, bool lost, int64_t used, int64_t count)
{
    return std::string("Y|") + mode + (lost ? "|Y|" : "|N|") + std::to_string(used) + "|" + std::to_string(count) + "|";
}

}  // namespace

// Failures of loading the live trace come behind the first field.
TEST(CommandWeb, NoTraceOrOneThatCannotBeRead)
{
    LiveInstance none, native, stopped;
    EXPECT_RUN(none.run(web), "N|", 1);
    EXPECT_RUN(none.run({"WEB_BUFFER_INFO", "extra", "words"}), "N|", 1);
    EXPECT_RUN(native.run({"on", "-n"}), turnedOn, 0);
    EXPECT_RUN(native.run(web), "Y|Can not format native trace.\n", 1);
    // Stopped after its one severe error: the block is there, but off.
    EXPECT_RUN(stopped.run({"on", "-e", "1"}), turnedOn, 0);
    stopped.write(1, "severe", 1, 1);
    EXPECT_RUN(stopped.run(web), "Y|Trace is off.\n", 1);
}

// Keeping the initial records, the buffer stops when it is full.
TEST(CommandWeb, EmptyFilledAndTruncated)
{
    for (const bool truncating : {false, true}) {
        SCOPED_TRACE(truncating);
        LiveInstance live;
        EXPECT_RUN(live.run({"on", truncating ? "-i" : "-l", "4096"}), turnedOn, 0);
        const char* mode = truncating ? "T" : "W";
        EXPECT_RUN(live.run(web), line(mode, false, 0, 0), 0);
        EXPECT_RUN(live.run({"web_buffer_info", "extra", "-words"}), line(mode, false, 0, 0), 0);
        const std::string text(40, 't');
        const int stored = live.write(truncating ? 100 : 5, text);
        ASSERT_TRUE(truncating ? stored > 0 && stored < 100 : stored == 5) << stored;
        EXPECT_RUN(live.run(web), line(mode, truncating, stored * recordBytes(text), stored), 0);
    }
}

// A trace into a file is read from that file: what it holds is what is
// reported, here a wrapped image with a broken length in its older part,
// whose message lands between the fourth and the fifth field.
TEST(CommandWeb, FileTraceIsReadFromItsFile)
{
    kelvotest::TempDir dir;
    LiveInstance live;
    openToAll(dir);
    const std::string file = dir.file("t.bin");
    EXPECT_RUN(live.run({"on", "-f", file, "-i", "8192"}), turnedOn, 0);
    ASSERT_EQ(live.write(2, "in a file"), 2);
    EXPECT_RUN(live.run(web), line("T", false, 2 * recordBytes("in a file"), 2), 0);

    kelvotest::TraceImage img = kelvotest::traceImageNew(8192, TRC_KEEP_LAST);
    for (int i = 0; i < 400; ++i) {
        kelvotest::traceImageAddText(img, "wrapped record");
    }
    const auto kept = kelvotest::traceImageSurvivors(img);
    ASSERT_TRUE(img.wrapped && kept.size() > 3u && kept[2].offset > img.writeOffset);
    kelvotest::traceImagePoke32(img, kept[2].offset, 0);
    const std::string bytes = kelvotest::traceImageBytes(img);
    const int fd = open(file.c_str(), O_WRONLY);
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    close(fd);
    const auto run = live.run(web);
    EXPECT_EQ(run.status, 0);
    const std::string corrupt = msg(421);
    const auto at = run.out.find(corrupt);
    ASSERT_NE(at, std::string::npos) << run.out;
    // The broken record itself is still counted, nothing behind it.
    EXPECT_EQ(run.out.substr(0, 6) + run.out.substr(at) + run.err, "Y|W|Y|" + corrupt + "3|");
}
