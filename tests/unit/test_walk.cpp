// The walk of a record area: end, start, lost records, size in use, count,
// time order; and its behaviour on corrupt areas and headers.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "trace_image.h"
#include "trcwalk.h"

using namespace kelvotest;

namespace {

const std::string corruptText =
    "Dump file contains corrupt trace records (ignored).\n"
    "Trace information might be invalid, retry to capture trace information.\n";

struct WalkResult {
    trcWalk_t walk;
    std::string out;              // what counting printed
    std::vector<int32_t> offsets; // offsets of the records the fill found, in order
    std::vector<int32_t> tags;    // their sec fields
};

// Runs all steps of the walk over the image as a report does, and checks
// what must hold for any area: the fill finds exactly the counted records,
// each aligned and lying inside what the walk may look at.
// The walk runs on an exact-size copy of the image, so that a sanitized
// build catches any read past the area; what the walk stores goes back.
WalkResult runWalk(TraceImage& img)
{
    std::vector<uint8_t> copy(img.bytes.begin(), img.bytes.end());
    copy.shrink_to_fit();
    struct CopyBack {
        TraceImage& img;
        std::vector<uint8_t>& copy;
        ~CopyBack() { img.bytes = copy; }
    } copyBack{img, copy};
    const TraceImageView v{reinterpret_cast<trcHeader_t*>(copy.data()),
                           copy.data() + TRC_HEADER_SIZE, copy.size() - TRC_HEADER_SIZE};
    WalkResult r{};
    trcWalkBounds(v.header, v.area, v.areaSize, &r.walk);
    testing::internal::CaptureStdout();
    trcWalkCount(&r.walk, v.area);
    std::fflush(stdout);
    r.out = testing::internal::GetCapturedStdout();

    std::vector<const trcRecord_t*> records(static_cast<size_t>(r.walk.recordCount) + 1);
    const int32_t filled =
        trcWalkFill(&r.walk, v.area, records.data(), static_cast<int32_t>(records.size()));
    EXPECT_EQ(filled, r.walk.recordCount);
    for (int32_t i = 0; i < filled; ++i) {
        const auto offset =
            static_cast<int32_t>(reinterpret_cast<const uint8_t*>(records[i]) - v.area);
        EXPECT_EQ(offset % 4, 0);
        EXPECT_GE(offset, 0);
        EXPECT_LE(offset + TRC_RECORD_MIN, r.walk.limit);
        EXPECT_LE(static_cast<size_t>(r.walk.limit), v.areaSize);
        r.offsets.push_back(offset);
        r.tags.push_back(records[i]->sec);
    }
    return r;
}

// Adds a record with dataBytes of text, tagged with its number in sec.
int32_t addTagged(TraceImage& img, size_t dataBytes)
{
    TraceRecordFields rec = traceRecordText(std::string(dataBytes, 'a'));
    rec.sec = img.recordsAdded + 1;
    return traceImageAdd(img, rec);
}

std::vector<int32_t> range(int32_t first, int32_t last)
{
    std::vector<int32_t> numbers;
    for (int32_t n = first; n <= last; ++n) {
        numbers.push_back(n);
    }
    return numbers;
}

// Records the walk should find in an image built by the writer's rules: the
// intact ones, less one that starts right behind the end mark, which the
// backward read cannot tell from a damaged one.
std::vector<int32_t> expectedNumbers(const TraceImage& img)
{
    std::vector<int32_t> numbers;
    for (const TracePlaced& p : traceImageSurvivors(img)) {
        if (!(img.wrapped && p.offset == img.writeOffset + 4)) {
            numbers.push_back(p.number);
        }
    }
    return numbers;
}

// Fills the image with records of varying sizes until it has wrapped the
// given number of times and the end lies inside the first segment.
void wrapTimes(TraceImage& img, int rounds, size_t maxData)
{
    int wraps = 0;
    size_t i = 0;
    int32_t last = img.writeOffset;
    while (wraps < rounds || img.writeOffset < 300) {
        addTagged(img, (i * 37 + 11) % (maxData + 1));
        ++i;
        if (img.writeOffset < last) {
            ++wraps;
        }
        last = img.writeOffset;
    }
}

} // namespace

TEST(Walk, EmptyAreas)
{
    // The start marker and an end mark: nothing in use, nothing lost.
    TraceImage fresh = traceImageNew(65536);
    WalkResult r = runWalk(fresh);
    EXPECT_EQ(r.walk.endOffset, 8);
    EXPECT_EQ(r.walk.startOffset, 8);
    EXPECT_FALSE(r.walk.hasLostRecords);
    EXPECT_EQ(r.walk.usedBytes, 0);
    EXPECT_EQ(r.walk.recordCount, 0);
    EXPECT_EQ(r.out, "");

    // Only zeroes: counts as wrapped, start and end at 0.
    TraceImage zeroes = traceImageNew(65536);
    traceImagePoke32(zeroes, 0, 0);
    traceImagePoke32(zeroes, 4, 0);
    r = runWalk(zeroes);
    EXPECT_EQ(r.walk.endOffset, 0);
    EXPECT_EQ(r.walk.startOffset, 0);
    EXPECT_TRUE(r.walk.hasLostRecords);
    EXPECT_EQ(r.walk.usedBytes, 0);
    EXPECT_EQ(r.walk.recordCount, 0);
    EXPECT_EQ(r.out, "");

    // An area of 8 bytes with only the start marker has no end mark.
    TraceImage tiny = traceImageNew(8);
    ASSERT_EQ(traceImageAreaSize(tiny), 8u);
    r = runWalk(tiny);
    EXPECT_EQ(r.walk.endOffset, 8);
    EXPECT_EQ(r.walk.startOffset, 8);
    EXPECT_FALSE(r.walk.hasLostRecords);
    EXPECT_EQ(r.walk.usedBytes, 0);
    EXPECT_EQ(r.walk.recordCount, 0);
    EXPECT_EQ(r.out, "");
}

TEST(Walk, SingleRecordAndItsLayout)
{
    TraceImage img = traceImageNew(65536);
    ASSERT_EQ(traceImageAdd(img, traceRecordText("")), 1);
    EXPECT_EQ(traceImagePeek32(img, 0), 8);
    EXPECT_EQ(traceImagePeek32(img, 4), 8);
    EXPECT_EQ(traceImagePeek32(img, 8), 44);
    EXPECT_EQ(traceImagePeek32(img, 48), 44);
    EXPECT_EQ(traceImagePeek32(img, 52), 0);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.endOffset, 52);
    EXPECT_EQ(r.walk.startOffset, 8);
    EXPECT_EQ(r.walk.usedBytes, 44);
    EXPECT_EQ(r.walk.recordCount, 1);
    EXPECT_FALSE(r.walk.hasLostRecords);
    EXPECT_EQ(r.offsets, std::vector<int32_t>{8});
    EXPECT_EQ(r.out, "");

    // length 45 takes 48 bytes: data at 40, three alignment bytes, trailing
    // word at 44.
    TraceImage odd = traceImageNew(65536);
    TraceRecordFields rec = traceRecordText("Z");
    rec.pid = 0x01020304;
    traceImageAdd(odd, rec);
    traceImageAdd(odd, traceRecordRc(11, -7));
    EXPECT_EQ(traceImagePeek32(odd, 8), 45);
    EXPECT_EQ(traceImageArea(odd)[8 + 40], 'Z');
    EXPECT_EQ(traceImagePeek32(odd, 8 + 44), 45);
    EXPECT_EQ(traceImagePeek32(odd, 56), 48);
    EXPECT_EQ(traceImagePeek32(odd, 56 + 40), -7);
    EXPECT_EQ(traceImagePeek32(odd, 56 + 44), 48);
    r = runWalk(odd);
    EXPECT_EQ(r.walk.endOffset, 104);
    EXPECT_EQ(r.walk.usedBytes, 96);
    EXPECT_EQ(r.offsets, (std::vector<int32_t>{8, 56}));
    EXPECT_EQ(traceImageRecordAt(odd, 8)->pid, 0x01020304u);
    EXPECT_EQ(trcRecEvent(traceImageRecordAt(odd, 56)), 11u);
}

TEST(Walk, KeepInitialAndLostRecords)
{
    // Filled up with TRC_KEEP_INITIAL: truncated, all records from the first.
    TraceImage full = traceImageNew(4096, TRC_KEEP_INITIAL);
    int32_t stored = 0;
    while (addTagged(full, 100) != 0) {
        ++stored;
    }
    EXPECT_EQ(traceImageHeader(full)->traceFull, 1);
    EXPECT_FALSE(full.wrapped);
    WalkResult r = runWalk(full);
    EXPECT_TRUE(r.walk.hasLostRecords);
    EXPECT_EQ(r.walk.startOffset, 8);
    EXPECT_EQ(r.walk.endOffset, full.writeOffset);
    EXPECT_EQ(r.walk.usedBytes, full.writeOffset - 8);
    EXPECT_EQ(r.tags, range(1, stored));

    // Not full yet, or full without TRC_KEEP_INITIAL: nothing lost.
    TraceImage notFull = traceImageNew(4096, TRC_KEEP_INITIAL);
    addTagged(notFull, 10);
    EXPECT_FALSE(runWalk(notFull).walk.hasLostRecords);
    traceImageHeader(notFull)->flags = TRC_KEEP_LAST;
    traceImageHeader(notFull)->traceFull = 1;
    EXPECT_FALSE(runWalk(notFull).walk.hasLostRecords);
}

TEST(Walk, WrappedAreasGiveTheNewestRecordsInOrder)
{
    struct Case {
        int32_t bufferSize;
        int rounds;
        size_t maxData;
    };
    const Case cases[] = {
        {4096, 3, 200}, {65536, 2, 900}, {131072, 3, 3000}, {196608, 2, 5000}, {1024, 5, 40},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bufferSize);
        TraceImage img = traceImageNew(c.bufferSize);
        wrapTimes(img, c.rounds, c.maxData);
        ASSERT_TRUE(img.wrapped);
        WalkResult r = runWalk(img);
        const std::vector<int32_t> expected = expectedNumbers(img);
        ASSERT_FALSE(expected.empty());
        // The newest records, without a gap, in the order written.
        EXPECT_EQ(expected.back(), img.recordsAdded);
        EXPECT_EQ(expected, range(expected.front(), img.recordsAdded));
        EXPECT_EQ(r.tags, expected);
        EXPECT_EQ(r.walk.recordCount, static_cast<int32_t>(expected.size()));
        EXPECT_TRUE(r.walk.hasLostRecords);
        EXPECT_EQ(r.walk.endOffset, img.writeOffset);
        for (size_t i = 0; i < r.offsets.size(); ++i) {
            EXPECT_EQ(r.offsets[i], traceImageOffsetOf(img, r.tags[i]));
        }
        // The start is the oldest record kept, or the filler in front of it;
        // the size runs from there to the end mark, across the wrap.
        const int32_t first = traceImageOffsetOf(img, expected.front());
        const int32_t start = r.walk.startOffset;
        if (start != first) {
            const int32_t fillerEnd = start + traceImagePeek32(img, start);
            EXPECT_EQ(fillerEnd % trcSegmentSize(c.bufferSize), 0);
            EXPECT_EQ(fillerEnd % c.bufferSize, first);
        }
        EXPECT_GT(start, img.writeOffset);
        EXPECT_EQ(r.walk.usedBytes, img.writeOffset - start + c.bufferSize);
        EXPECT_EQ(r.out, "");
    }
}

TEST(Walk, WrapThroughBothFillersOf131072)
{
    TraceImage img = traceImageNew(131072);
    wrapTimes(img, 1, 1000);
    ASSERT_TRUE(img.wrapped);
    WalkResult r = runWalk(img);
    ASSERT_GT(r.walk.startOffset, r.walk.endOffset);
    ASSERT_LT(r.walk.startOffset, 65536);

    // Step through the pass: the two fillers that close the segments come
    // in between, uncounted, and the pass goes on at 0 after the second.
    const TraceImageView v = traceImageView(img);
    trcWalkPos_t pos = trcWalkFirst(&r.walk);
    std::vector<int32_t> fillerEnds;
    int32_t at = -1;
    int32_t records = 0;
    for (trcWalkStep_t step; (step = trcWalkNext(&r.walk, v.area, &pos, &at)) != TRC_WALK_DONE;) {
        ASSERT_NE(step, TRC_WALK_BROKEN);
        if (step == TRC_WALK_FILLER) {
            fillerEnds.push_back(at + trcAligned(traceImagePeek32(img, at)));
            EXPECT_EQ(pos.cur, fillerEnds.back() == 131072 ? 0 : fillerEnds.back());
        } else {
            ++records;
        }
    }
    EXPECT_EQ(fillerEnds, (std::vector<int32_t>{65536, 131072}));
    EXPECT_EQ(records, r.walk.recordCount);
    EXPECT_EQ(trcWalkNext(&r.walk, v.area, &pos, &at), TRC_WALK_DONE);
}

TEST(Walk, SmallFillersAndTheDroppedRecordBehindTheEndMark)
{
    // A record that leaves exactly the 4 bytes of the end mark in the segment:
    // the next record makes those 4 bytes a filler of one word and wraps.
    TraceImage img = traceImageNew(4096);
    addTagged(img, 4096 - 8 - 4 - 44);
    EXPECT_EQ(img.writeOffset, 4092);
    addTagged(img, 0);
    EXPECT_TRUE(img.wrapped);
    EXPECT_EQ(traceImagePeek32(img, 4092), 4);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.startOffset, 4092);
    EXPECT_EQ(r.walk.endOffset, 44);
    EXPECT_EQ(r.walk.usedBytes, 48);
    EXPECT_EQ(r.tags, std::vector<int32_t>{2});

    // After the wrap the newest record ends at 48 with the end mark at 48;
    // the old record at 52 is intact but is not reported.
    TraceImage drop = traceImageNew(256);
    addTagged(drop, 0);   // 1 at 8..52
    addTagged(drop, 0);   // 2 at 52..96
    addTagged(drop, 0);   // 3 at 96..140
    addTagged(drop, 0);   // 4 at 140..184
    addTagged(drop, 24);  // 5 at 184..252, end mark 252..256
    addTagged(drop, 4);   // filler 252..256; 6 at 0..48, end mark 48..52
    ASSERT_TRUE(drop.wrapped);
    ASSERT_EQ(drop.writeOffset, 48);
    ASSERT_EQ(traceImageOffsetOf(drop, 1), -1);
    ASSERT_EQ(traceImageOffsetOf(drop, 2), 52);
    r = runWalk(drop);
    EXPECT_EQ(r.walk.startOffset, 96);
    EXPECT_EQ(r.tags, (std::vector<int32_t>{3, 4, 5, 6}));
    EXPECT_EQ(r.walk.usedBytes, 256 - 96 + 48);
}

TEST(Walk, RecordEndingOnASegmentBoundaryIsNotCounted)
{
    TraceImage img = traceImageNew(131072);
    while (img.writeOffset < 60000) {
        addTagged(img, 200);
    }
    const int32_t before = img.recordsAdded;
    // A data record that ends exactly on 65536, then one record behind it.
    TraceRecordFields boundary = traceRecordText(std::string(65536 - img.writeOffset - 44, 'b'));
    boundary.sec = 999;
    EXPECT_EQ(traceImagePut(img, img.writeOffset, boundary), 65536 - img.writeOffset);
    TraceRecordFields after = traceRecordText("after");
    after.sec = 1000;
    const int32_t afterSize = traceImagePut(img, 65536, after);
    traceImagePoke32(img, 65536 + afterSize, 0);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.endOffset, 65536 + afterSize);
    std::vector<int32_t> expected = range(1, before);
    expected.push_back(1000);
    EXPECT_EQ(r.tags, expected);
    EXPECT_EQ(r.walk.recordCount, before + 1);
}

TEST(Walk, ZeroLengthBehindTheEndMark)
{
    TraceImage img = traceImageNew(131072);
    wrapTimes(img, 1, 1000);
    std::vector<int32_t> expected = expectedNumbers(img);
    ASSERT_GT(expected.size(), 20u);
    // Zero out the length of the tenth record kept, in the old part of the
    // area: counting stops there with message 421. That record keeps the
    // count it got; everything behind it is given up.
    const int32_t tenth = traceImageOffsetOf(img, expected[9]);
    ASSERT_GT(tenth, img.writeOffset);
    traceImagePoke32(img, tenth, 0);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_EQ(r.walk.recordCount, 10);
    EXPECT_EQ(r.tags, std::vector<int32_t>(expected.begin(), expected.begin() + 10));
    EXPECT_EQ(r.offsets.back(), tenth);

    // At a segment boundary a zero length reads as a filler: not counted.
    TraceImage seg = traceImageNew(131072);
    wrapTimes(seg, 1, 1000);
    expected = expectedNumbers(seg);
    std::vector<int32_t> beforeBoundary;
    for (int32_t n : expected) {
        if (traceImageOffsetOf(seg, n) > seg.writeOffset && traceImageOffsetOf(seg, n) < 65536) {
            beforeBoundary.push_back(n);
        }
    }
    ASSERT_EQ(traceImageOffsetOf(seg, beforeBoundary.back() + 1), 65536);
    traceImagePoke32(seg, 65536, 0);
    r = runWalk(seg);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_EQ(r.tags, beforeBoundary);

    // Inside the unwrapped data a zero length is where the data ends: no
    // message, the records before it.
    TraceImage flat = traceImageNew(65536);
    for (int i = 0; i < 5; ++i) {
        addTagged(flat, 10);
    }
    traceImagePoke32(flat, traceImageOffsetOf(flat, 4), 0);
    r = runWalk(flat);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.walk.endOffset, traceImageOffsetOf(flat, 4));
    EXPECT_EQ(r.tags, range(1, 3));
}

TEST(Walk, BadLengthsStayInsideTheArea)
{
    // Negative, huge, and past-the-area lengths in the old part of a wrapped
    // area: 421, and the records before the bad one.
    const int32_t badLengths[] = {-4, -8, INT32_MIN, INT32_MAX, 0x7FFFFFF0, 131072};
    for (int32_t bad : badLengths) {
        SCOPED_TRACE(bad);
        TraceImage img = traceImageNew(131072);
        wrapTimes(img, 1, 1000);
        const std::vector<int32_t> expected = expectedNumbers(img);
        const int32_t fifth = traceImageOffsetOf(img, expected[4]);
        traceImagePoke32(img, fifth, bad);
        WalkResult r = runWalk(img);
        EXPECT_EQ(r.out, corruptText);
        EXPECT_EQ(r.tags, std::vector<int32_t>(expected.begin(), expected.begin() + 4));
    }

    // The last record of the area claims to run 8 bytes past its end.
    TraceImage img = traceImageNew(4096);
    wrapTimes(img, 1, 100);
    const std::vector<int32_t> expected = expectedNumbers(img);
    std::vector<int32_t> kept;
    int32_t lastOld = -1;
    for (int32_t n : expected) {
        if (traceImageOffsetOf(img, n) > img.writeOffset) {
            lastOld = n;
        }
    }
    ASSERT_GT(lastOld, 0);
    for (int32_t n : expected) {
        if (n < lastOld) {
            kept.push_back(n);
        }
    }
    const int32_t lastOffset = traceImageOffsetOf(img, lastOld);
    traceImagePoke32(img, lastOffset, 4096 - lastOffset + 8);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_EQ(r.tags, kept);

    // In unwrapped data a negative length ends the data, a length past the
    // area is cut off with a 0 word.
    TraceImage flat = traceImageNew(65536);
    for (int i = 0; i < 5; ++i) {
        addTagged(flat, 10);
    }
    const int32_t third = traceImageOffsetOf(flat, 3);
    traceImagePoke32(flat, third, -60);
    r = runWalk(flat);
    EXPECT_EQ(r.walk.endOffset, third);
    EXPECT_EQ(r.tags, range(1, 2));
    traceImagePoke32(flat, third, 65536);
    r = runWalk(flat);
    EXPECT_EQ(r.walk.endOffset, third);
    EXPECT_EQ(traceImagePeek32(flat, third), 0);
    EXPECT_EQ(r.tags, range(1, 2));
    EXPECT_EQ(r.out, "");
}

TEST(Walk, TruncatedArea)
{
    // A file cut inside its fourth record: the partial record is cut off.
    for (size_t cut : {size_t{0}, size_t{20}, size_t{43}}) {
        SCOPED_TRACE(cut);
        TraceImage img = traceImageNew(65536);
        for (int i = 0; i < 5; ++i) {
            addTagged(img, 40);
        }
        const int32_t fourth = traceImageOffsetOf(img, 4);
        traceImageResize(img, static_cast<size_t>(fourth) + 4 + cut);
        WalkResult r = runWalk(img);
        EXPECT_EQ(r.walk.endOffset, fourth);
        EXPECT_EQ(traceImagePeek32(img, fourth), 0);
        EXPECT_EQ(r.walk.usedBytes, fourth - 8);
        EXPECT_EQ(r.tags, range(1, 3));
        EXPECT_EQ(r.out, "");
    }
    // Cut right behind a record, with no end mark: the end is the size.
    TraceImage img = traceImageNew(65536);
    for (int i = 0; i < 3; ++i) {
        addTagged(img, 40);
    }
    traceImageResize(img, static_cast<size_t>(img.writeOffset));
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.endOffset, img.writeOffset);
    EXPECT_EQ(r.tags, range(1, 3));
    // Data that fills the area to its last byte, the last segment closed by a
    // filler and no end mark: the end is the end of the area, and the walk
    // must stop there rather than go on at 0.
    for (int32_t bufferSize : {4096, 131072}) {
        SCOPED_TRACE(bufferSize);
        TraceImage full = traceImageNew(bufferSize);
        while (full.writeOffset < bufferSize - 200) {
            addTagged(full, 100);
        }
        traceImagePoke32(full, full.writeOffset, bufferSize - full.writeOffset);
        traceImagePoke32(full, bufferSize - 4, bufferSize - full.writeOffset);
        r = runWalk(full);
        EXPECT_EQ(r.walk.endOffset, bufferSize);
        EXPECT_EQ(r.walk.usedBytes, bufferSize - 8);
        EXPECT_EQ(r.tags, range(1, full.recordsAdded));
        EXPECT_EQ(r.out, "");
        if (bufferSize < 2 * TRC_SEGMENT_MAX) {
            continue;
        }
        // The same data as a file cut behind its second segment.
        traceImageHeader(full)->bufferSize = 2 * bufferSize;
        r = runWalk(full);
        EXPECT_EQ(r.tags, range(1, full.recordsAdded));
        EXPECT_EQ(r.out, "");
    }
    // Less than a word.
    for (size_t size : {size_t{0}, size_t{3}}) {
        traceImageResize(img, size);
        r = runWalk(img);
        EXPECT_EQ(r.walk.endOffset, 0);
        EXPECT_EQ(r.walk.recordCount, 0);
    }
}

TEST(Walk, HeaderBufferSizeThatDoesNotMatchTheArea)
{
    // Larger than the bytes present: the walk keeps to the bytes present.
    TraceImage flat = traceImageNew(65536);
    for (int i = 0; i < 50; ++i) {
        addTagged(flat, 40);
    }
    traceImageHeader(flat)->bufferSize = 1 << 24;
    WalkResult r = runWalk(flat);
    EXPECT_EQ(r.tags, range(1, 50));
    EXPECT_EQ(r.out, "");

    TraceImage wrapped = traceImageNew(65536);
    wrapTimes(wrapped, 2, 500);
    const std::vector<int32_t> expected = expectedNumbers(wrapped);
    traceImageHeader(wrapped)->bufferSize = 1 << 20;
    r = runWalk(wrapped);
    EXPECT_EQ(r.tags, expected);
    EXPECT_EQ(r.out, "");

    // Smaller than the data: the walk goes round the smaller area at most
    // once and gives up with 421.
    TraceImage big = traceImageNew(131072);
    while (big.writeOffset < 70000) {
        addTagged(big, 300);
    }
    traceImageHeader(big)->bufferSize = 65536;
    r = runWalk(big);
    EXPECT_EQ(r.walk.endOffset, big.writeOffset);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_LE(r.walk.recordCount, big.recordsAdded + 1);

    // Not a power of two and larger than the area: the filler that closes the
    // area no longer ends on a boundary, reads as a record, and leads to the
    // end of the bytes present, where the walk gives up.
    TraceImage notPower = traceImageNew(4096);
    while (!notPower.wrapped || notPower.writeOffset < 300) {
        addTagged(notPower, 100);
    }
    // Records of 144 bytes: 28 of them fill 8..4040, a filler of 56 follows.
    const int32_t fillerAt = 4040;
    ASSERT_EQ(traceImageOffsetOf(notPower, 28), fillerAt - 144);
    ASSERT_EQ(traceImagePeek32(notPower, fillerAt), 56);
    traceImageHeader(notPower)->bufferSize = 100000;
    r = runWalk(notPower);
    EXPECT_EQ(r.out, corruptText);
    ASSERT_FALSE(r.offsets.empty());
    EXPECT_EQ(r.offsets.back(), fillerAt);

    // Not a power of two, odd, zero, negative: whatever is found, it lies
    // inside the area (checked by runWalk) and the walk ends.
    const int32_t sizes[] = {100000, 65535, 4095, 4093, 4094, 12, 3, 1, 0, -4096, INT32_MIN};
    for (int32_t size : sizes) {
        SCOPED_TRACE(size);
        for (bool wrap : {false, true}) {
            TraceImage img = traceImageNew(4096);
            wrapTimes(img, wrap ? 2 : 0, 100);
            traceImageHeader(img)->bufferSize = size;
            r = runWalk(img);
            EXPECT_TRUE(r.out.empty() || r.out == corruptText);
            EXPECT_LE(r.walk.recordCount, img.recordsAdded + 1);
            EXPECT_GE(r.walk.usedBytes, 0);
        }
    }

    // An odd bufferSize puts the backward read off the 4-byte grid: a start
    // that is not on it cannot be walked.
    TraceImage odd = traceImageNew(4096);
    traceImagePoke32(odd, 0, 0);
    traceImagePoke32(odd, 4, 0);
    traceImagePoke32(odd, 4091, 2000);
    traceImageHeader(odd)->bufferSize = 4095;
    r = runWalk(odd);
    EXPECT_EQ(r.walk.endOffset, 0);
    EXPECT_EQ(r.walk.startOffset, 2095);
    EXPECT_EQ(r.walk.usedBytes, 0 - 2095 + 4095);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_EQ(r.walk.recordCount, 0);
}

TEST(Walk, FillStopsAtCapacityAndEachStopsWhenAsked)
{
    TraceImage img = traceImageNew(65536);
    for (int i = 0; i < 10; ++i) {
        addTagged(img, 8);
    }
    WalkResult r = runWalk(img);
    ASSERT_EQ(r.walk.recordCount, 10);
    const TraceImageView v = traceImageView(img);
    const trcRecord_t* records[4] = {};
    EXPECT_EQ(trcWalkFill(&r.walk, v.area, records, 3), 3);
    EXPECT_EQ(records[2]->sec, 3);
    EXPECT_EQ(records[3], nullptr);
    EXPECT_EQ(trcWalkFill(&r.walk, v.area, records, 0), 0);

    int32_t seen = 0;
    EXPECT_FALSE(trcWalkEach(&r.walk, v.area, [&](const trcRecord_t* rec) {
        ++seen;
        return rec->sec < 6;
    }));
    EXPECT_EQ(seen, 6);
    EXPECT_TRUE(trcWalkEach(&r.walk, v.area, [](const trcRecord_t*) { return true; }));
}
