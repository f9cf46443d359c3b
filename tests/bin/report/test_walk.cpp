// The walk of a record area: end, start, lost records, size in use, count,
// time order; and its behaviour on corrupt areas and headers.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <numeric>
#include <cstdio>
#include <string>
#include <vector>

#include "trace_image.h"
#include "trcwalk.h"

using namespace kelvotest;

namespace {

const std::string corruptText = "Dump file contains corrupt trace records (ignored).\n"
                                "Trace information might be invalid, retry to capture trace information.\n";

struct WalkResult {
    trcWalk_t walk;
    std::string out;               // what counting printed
    std::vector<int32_t> offsets;  // of the records the fill found, in order
    std::vector<int32_t> tags;     // their sec fields
};

// Runs all steps of the walk as a report does, on an exact-size copy so that
// a sanitized build catches any read past the area, and checks what holds for
// any area: the fill finds the counted records, aligned and inside limit.
WalkResult runWalk(TraceImage& img)
{
    std::vector<uint8_t> copy(img.bytes.begin(), img.bytes.end());
    uint8_t* area = copy.data() + TRC_HEADER_SIZE;
    const size_t areaSize = copy.size() - TRC_HEADER_SIZE;
    WalkResult r{};
    trcWalkBounds(reinterpret_cast<trcHeader_t*>(copy.data()), area, areaSize, &r.walk);
    testing::internal::CaptureStdout();
    trcWalkCount(&r.walk, area);
    std::fflush(stdout);
    r.out = testing::internal::GetCapturedStdout();
    std::vector<const trcRecord_t*> records(static_cast<size_t>(r.walk.recordCount) + 1);
    const int32_t filled = trcWalkFill(&r.walk, area, records.data(), static_cast<int32_t>(records.size()));
    EXPECT_EQ(filled, r.walk.recordCount);
    EXPECT_LE(static_cast<size_t>(r.walk.limit), areaSize);
    for (int32_t i = 0; i < filled; ++i) {
        const auto offset = static_cast<int32_t>(reinterpret_cast<const uint8_t*>(records[i]) - area);
        EXPECT_TRUE(offset % 4 == 0 && offset >= 0 && offset + TRC_RECORD_MIN <= r.walk.limit) << offset;
        r.offsets.push_back(offset);
        r.tags.push_back(records[i]->sec);
    }
    img.bytes = copy;  // the walk may cut off a record in place
    return r;
}

// endOffset, startOffset, hasLostRecords, usedBytes, recordCount.
using Bounds = std::array<int32_t, 5>;

Bounds bounds(const WalkResult& r)
{
    const trcWalk_t& w = r.walk;
    return {w.endOffset, w.startOffset, w.hasLostRecords, w.usedBytes, w.recordCount};
}

// Adds a record with dataBytes of text, tagged with its number in sec.
int32_t addTagged(TraceImage& img, size_t dataBytes)
{
    TraceRecordFields rec;
    rec.data.assign(dataBytes, 'a');
    rec.sec = img.recordsAdded + 1;
    return traceImageAdd(img, rec);
}

// Adds records until the image has wrapped rounds times and the end has
// reached until: of dataBytes each, or of 0 to dataBytes varying.
TraceImage image(int32_t bufferSize, int32_t until, size_t dataBytes, int rounds = 0, bool vary = false)
{
    TraceImage img = traceImageNew(bufferSize);
    for (int wraps = 0, i = 0; wraps < rounds || img.writeOffset < until; ++i) {
        const int32_t last = img.writeOffset;
        addTagged(img, vary ? static_cast<size_t>(i * 37 + 11) % (dataBytes + 1) : dataBytes);
        wraps += img.writeOffset < last ? 1 : 0;
    }
    return img;
}

TraceImage wrapped(int32_t bufferSize, int rounds, size_t maxData)
{
    return image(bufferSize, 300, maxData, rounds, true);
}

std::vector<int32_t> range(int32_t first, int32_t last)
{
    std::vector<int32_t> numbers(static_cast<size_t>(std::max(0, last - first + 1)));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

// The records the walk should find: the intact ones, less one that starts
// right behind the end mark, which the backward read cannot tell from a
// damaged one.
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

}  // namespace

// Images made of records with these sizes of data; a 4-byte filler where
// only the end mark's 4 bytes are left; a record right behind the end mark
// that is not reported.
TEST(Walk, SmallAreasAndFillers)
{
    struct Case {
        int32_t bufferSize;
        std::vector<size_t> data;
        Bounds want;
        std::vector<int32_t> tags;
    };
    const Case cases[] = {
        {65536, {}, {8, 8, false, 0, 0}, {}},
        {8, {}, {8, 8, false, 0, 0}, {}},
        {65536, {0}, {52, 8, false, 44, 1}, {1}},
        {65536, {1, 4}, {104, 8, false, 96, 2}, {1, 2}},
        {4096, {4096 - 8 - 4 - 44, 0}, {44, 4092, true, 48, 1}, {2}},
        {256, {0, 0, 0, 0, 24, 4}, {48, 96, true, 256 - 96 + 48, 4}, {3, 4, 5, 6}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        TraceImage img = traceImageNew(c.bufferSize);
        for (size_t data : c.data) {
            addTagged(img, data);
        }
        WalkResult r = runWalk(img);
        EXPECT_EQ(bounds(r), c.want);
        EXPECT_EQ(r.tags, c.tags);
        EXPECT_EQ(r.out, "");
    }
    // Only zeroes: counts as wrapped.
    TraceImage zeroes = traceImageNew(65536);
    traceImagePoke32(zeroes, 0, 0);
    traceImagePoke32(zeroes, 4, 0);
    EXPECT_EQ(bounds(runWalk(zeroes)), (Bounds{0, 0, true, 0, 0}));
}

TEST(Walk, KeepInitialLosesRecordsOnlyWhenFull)
{
    TraceImage full = traceImageNew(4096, TRC_KEEP_INITIAL);
    while (addTagged(full, 100) != 0) {
    }
    ASSERT_EQ(traceImageHeader(full)->traceFull, 1);
    WalkResult r = runWalk(full);
    EXPECT_EQ(bounds(r), (Bounds{full.writeOffset, 8, true, full.writeOffset - 8, full.recordsAdded}));
    EXPECT_EQ(r.tags, range(1, full.recordsAdded));

    TraceImage notFull = traceImageNew(4096, TRC_KEEP_INITIAL);
    addTagged(notFull, 10);
    EXPECT_FALSE(runWalk(notFull).walk.hasLostRecords);
    traceImageHeader(notFull)->flags = TRC_KEEP_LAST;
    traceImageHeader(notFull)->traceFull = 1;
    EXPECT_FALSE(runWalk(notFull).walk.hasLostRecords);
}

TEST(Walk, WrappedAreasGiveTheNewestRecordsInOrder)
{
    const struct {
        int32_t bufferSize;
        int rounds;
        size_t maxData;
    } cases[] = {{4096, 3, 200}, {65536, 2, 900}, {131072, 3, 3000}, {196608, 2, 5000}, {1024, 5, 40}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bufferSize);
        TraceImage img = wrapped(c.bufferSize, c.rounds, c.maxData);
        WalkResult r = runWalk(img);
        const std::vector<int32_t> expected = expectedNumbers(img);
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(expected, range(expected.front(), img.recordsAdded));
        EXPECT_EQ(r.tags, expected);
        // The start is the oldest record kept or the filler in front of it;
        // the size runs from there across the wrap to the end mark.
        const int32_t first = traceImageOffsetOf(img, expected.front());
        const int32_t start = r.walk.startOffset;
        if (start != first) {
            const int32_t fillerEnd = start + traceImagePeek32(img, start);
            EXPECT_EQ(fillerEnd % trcSegmentSize(c.bufferSize), 0);
            EXPECT_EQ(fillerEnd % c.bufferSize, first);
        }
        EXPECT_GT(start, img.writeOffset);
        EXPECT_EQ(bounds(r), (Bounds{img.writeOffset, start, true, img.writeOffset - start + c.bufferSize,
                                     static_cast<int32_t>(expected.size())}));
        EXPECT_EQ(r.out, "");
    }
}

TEST(Walk, RecordEndingOnASegmentBoundaryIsNotCounted)
{
    TraceImage img = image(131072, 60000, 200);
    // A data record that ends exactly on 65536, then one record behind it.
    TraceRecordFields boundary, after;
    boundary.data.assign(static_cast<size_t>(65536 - img.writeOffset - 44), 'b');
    after.sec = 1000;
    EXPECT_EQ(traceImagePut(img, img.writeOffset, boundary), 65536 - img.writeOffset);
    const int32_t afterSize = traceImagePut(img, 65536, after);
    traceImagePoke32(img, 65536 + afterSize, 0);
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.endOffset, 65536 + afterSize);
    std::vector<int32_t> expected = range(1, img.recordsAdded);
    expected.push_back(1000);
    EXPECT_EQ(r.tags, expected);
}

// In the old part of a wrapped area counting stops at a corrupt length with
// message 421 and keeps the records before it; a record of length 0 counts
// too, unless it stands on a segment boundary, where it reads as a filler.
TEST(Walk, CorruptLengthsInAWrappedAreaGiveUpWith421)
{
    const TraceImage model = wrapped(131072, 1, 1000);
    const std::vector<int32_t> expected = expectedNumbers(model);
    std::vector<int32_t> offsets;
    for (int32_t n : expected) {
        offsets.push_back(traceImageOffsetOf(model, n));
    }
    auto indexOf = [&offsets](auto is) {
        return static_cast<int32_t>(std::find_if(offsets.begin(), offsets.end(), is) - offsets.begin());
    };
    const int32_t atBoundary = indexOf([](int32_t at) { return at == 65536; });
    const int32_t lastOld = indexOf([&model](int32_t at) { return at < model.writeOffset; }) - 1;
    ASSERT_GT(offsets.at(9), model.writeOffset);
    ASSERT_LT(atBoundary, lastOld);
    const struct {
        int32_t index, length, kept;
    } cases[] = {
        {9, 0, 10},
        {9, -4, 9},
        {9, INT32_MIN, 9},
        {9, INT32_MAX, 9},
        {9, 131072, 9},
        {atBoundary, 0, atBoundary},
        {lastOld, 131072 - offsets[static_cast<size_t>(lastOld)] + 8, lastOld},  // 8 bytes past the area
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.length) + " in record " + std::to_string(c.index));
        TraceImage img = model;
        traceImagePoke32(img, offsets[static_cast<size_t>(c.index)], c.length);
        WalkResult r = runWalk(img);
        EXPECT_EQ(r.out, corruptText);
        EXPECT_EQ(r.tags, std::vector<int32_t>(expected.begin(), expected.begin() + c.kept));
    }
}

// Before any wrap a bad length or a cut inside a record is where the data
// ends, without a message; a record past the area is cut off with a 0 word.
TEST(Walk, CorruptOrTruncatedUnwrappedData)
{
    // With cut, the area ends that many bytes into the record.
    const struct {
        int32_t number, length;
        size_t cut;
    } cases[] = {{3, 0, 0}, {3, -60, 0}, {3, 65536, 0}, {4, 0, 4}, {4, 0, 83}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.length) + " cut " + std::to_string(c.cut));
        TraceImage img = image(65536, 300, 40);
        const int32_t at = traceImageOffsetOf(img, c.number);
        if (c.cut != 0) {
            traceImageResize(img, static_cast<size_t>(at) + c.cut);
        } else {
            traceImagePoke32(img, at, c.length);
        }
        WalkResult r = runWalk(img);
        EXPECT_EQ(bounds(r), (Bounds{at, 8, false, at - 8, c.number - 1}));
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(traceImagePeek32(img, at), c.length < 0 ? c.length : 0);
    }
}

TEST(Walk, TruncatedArea)
{
    // Cut right behind a record, and less than a word: the end is the size.
    TraceImage img = image(65536, 200, 40);
    traceImageResize(img, static_cast<size_t>(img.writeOffset));
    WalkResult r = runWalk(img);
    EXPECT_EQ(r.walk.endOffset, img.writeOffset);
    EXPECT_EQ(r.tags, range(1, img.recordsAdded));
    for (size_t size : {0u, 3u}) {
        traceImageResize(img, size);
        r = runWalk(img);
        EXPECT_EQ(r.walk.endOffset, 0);
        EXPECT_EQ(r.walk.recordCount, 0);
    }
    // Data to the last byte, closed by a filler, no end mark: the walk stops
    // at the end of the area rather than go on at 0; the same for a file cut
    // behind its second segment (header of 262144, 131072 bytes present).
    for (int32_t bufferSize : {4096, 131072, 262144}) {
        SCOPED_TRACE(bufferSize);
        const int32_t areaEnd = std::min(bufferSize, 131072);
        TraceImage full = image(areaEnd, areaEnd - 200, 100);
        traceImagePoke32(full, full.writeOffset, areaEnd - full.writeOffset);
        traceImagePoke32(full, areaEnd - 4, areaEnd - full.writeOffset);
        traceImageHeader(full)->bufferSize = bufferSize;
        r = runWalk(full);
        EXPECT_EQ(r.walk.endOffset, areaEnd);
        EXPECT_EQ(r.walk.usedBytes, areaEnd - 8);
        EXPECT_EQ(r.tags, range(1, full.recordsAdded));
        EXPECT_EQ(r.out, "");
    }
}

TEST(Walk, HeaderBufferSizeThatDoesNotMatchTheArea)
{
    // Larger than the bytes present: the walk keeps to the bytes present.
    TraceImage flat = image(65536, 4000, 40), wrap = wrapped(65536, 2, 500);
    traceImageHeader(flat)->bufferSize = 1 << 24;
    traceImageHeader(wrap)->bufferSize = 1 << 20;
    EXPECT_EQ(runWalk(flat).tags, range(1, flat.recordsAdded));
    EXPECT_EQ(runWalk(wrap).tags, expectedNumbers(wrap));
    EXPECT_EQ(runWalk(flat).out + runWalk(wrap).out, "");

    // Smaller than the data: round the smaller area at most once, then 421.
    TraceImage big = image(131072, 70000, 300);
    traceImageHeader(big)->bufferSize = 65536;
    WalkResult r = runWalk(big);
    EXPECT_EQ(r.walk.endOffset, big.writeOffset);
    EXPECT_EQ(r.out, corruptText);
    EXPECT_LE(r.walk.recordCount, big.recordsAdded + 1);

    // Not a power of two and larger than the area: the filler of 56 bytes
    // at 4040 that closes the area no longer ends on a boundary, reads as a
    // record, and leads to the end of the bytes present.
    TraceImage notPower = image(4096, 300, 100, 1);
    ASSERT_EQ(traceImagePeek32(notPower, 4040), 56);
    traceImageHeader(notPower)->bufferSize = 100000;
    r = runWalk(notPower);
    EXPECT_EQ(r.out, corruptText);
    ASSERT_FALSE(r.offsets.empty());
    EXPECT_EQ(r.offsets.back(), 4040);

    // Any size at all: whatever is found lies inside the area (runWalk
    // checks it) and the walk ends.
    for (int32_t size : {100000, 65535, 4095, 4093, 4094, 12, 3, 1, 0, -4096, INT32_MIN}) {
        for (int rounds : {0, 2}) {
            SCOPED_TRACE(std::to_string(size) + " after wraps: " + std::to_string(rounds));
            TraceImage img = wrapped(4096, rounds, 100);
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
    EXPECT_EQ(bounds(r), (Bounds{0, 2095, true, 4095 - 2095, 0}));
    EXPECT_EQ(r.out, corruptText);
}

TEST(Walk, FillStopsAtCapacityAndEachStopsWhenAsked)
{
    TraceImage img = image(65536, 500, 8);
    WalkResult r = runWalk(img);
    ASSERT_EQ(r.walk.recordCount, 10);
    const uint8_t* area = traceImageArea(img);
    const trcRecord_t* records[4] = {};
    EXPECT_EQ(trcWalkFill(&r.walk, area, records, 3), 3);
    EXPECT_EQ(records[2]->sec, 3);
    EXPECT_EQ(records[3], nullptr);
    EXPECT_EQ(trcWalkFill(&r.walk, area, records, 0), 0);
    int32_t seen = 0;
    EXPECT_FALSE(trcWalkEach(&r.walk, area, [&](const trcRecord_t* rec) { return ++seen, rec->sec < 6; }));
    EXPECT_EQ(seen, 6);
    EXPECT_TRUE(trcWalkEach(&r.walk, area, [](const trcRecord_t*) { return true; }));
}
