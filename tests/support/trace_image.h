// Trace images for tests: a trace header and its record area laid out in
// memory the way a correct writer lays them out, plus raw access for the
// corrupt cases a writer never produces.
//
// A new image holds the header and a record area of bufferSize bytes with
// the start marker at offset 0 and the end mark behind it. Each added record
// goes behind the last one; when it and the end mark behind it do not fit in
// the current segment (the smaller of bufferSize and 64 KiB), the rest of the
// segment becomes a filler and the record starts the next segment, or offset
// 0 behind the last segment, overwriting the oldest records. With
// TRC_KEEP_INITIAL in the flags the image never wraps: a record that does
// not fit is not stored and traceFull is set.
//
// Every record added gets a number, 1 for the first, counting all records
// ever added; traceImageSurvivors tells which of them are still intact.
//
//     TraceImage img = traceImageNew(65536);
//     traceImageAddText(img, "hello");            // record 1
//     TraceRecordFields exit = traceRecordRc(11, -5);
//     traceImageAdd(img, exit);                   // record 2
//     TraceImageView v = traceImageView(img);     // header, area, areaSize
//     traceImageSave(img, dir.file("dump.bin"));  // the binary trace file
#ifndef KELVO_TESTS_TRACE_IMAGE_H
#define KELVO_TESTS_TRACE_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kelvo/trcformat.h"

namespace kelvotest {

// The fields of one record. The defaults make a text record of product 1,
// event 30, component 1, class 1, function 1, trace point 1, process 100,
// thread 1, no object, node -1, no companion process, no time stamp.
struct TraceRecordFields {
    uint8_t product = 1;
    uint8_t event = 30;
    uint8_t component = 1;
    uint8_t klass = 1;
    uint8_t function = 1;
    uint8_t tracePoint = 1;
    uint32_t thisPointer = 0;
    uint32_t pid = 100;
    uint32_t tid = 1;
    int32_t node = -1;
    uint32_t cpid = 0;
    int32_t sec = 0;
    int32_t nsec = 0;
    // With a value, the variable part begins with this return code (4 bytes,
    // as the exit events carry it); data follows it.
    std::optional<int32_t> rc;
    // Bytes of the variable part (behind the return code, if any).
    std::string data;
};

// A text record with the given data and event.
TraceRecordFields traceRecordText(const std::string& data, uint8_t event = 30);
// A record of the given event with a return code and no other data.
TraceRecordFields traceRecordRc(uint8_t event, int32_t rc);

// length of a record with these fields: 44 plus the variable part.
int32_t traceRecordLength(const TraceRecordFields& rec);

// Where a record lies in the area.
struct TracePlaced {
    int32_t offset;   // offset in the record area
    int32_t aligned;  // bytes it takes
    int32_t number;   // 1.. in the order added; 0 for the start marker and fillers
};

struct TraceImage {
    std::vector<uint8_t> bytes;      // header (3000 bytes) followed by the record area
    int32_t bufferSize = 0;          // area size the writer lays records out in
    int32_t writeOffset = 0;         // offset of the end mark: where the next record goes
    int32_t recordsAdded = 0;        // records stored so far (the last number given)
    bool wrapped = false;            // some record has gone to offset 0 behind the last segment
    std::vector<TracePlaced> placed; // what is intact in the area, in the order written
};

// A new image. The header has magic, layoutId, the given bufferSize and
// flags, ".......": no product version, -1 ("all") in tracePid, traceTid,
// traceCpid and maxSevereErrors, a mask of all ones, maxRecordSize equal to
// the segment size, everything else 0. bufferSize must be above 0.
TraceImage traceImageNew(int32_t bufferSize, uint32_t flags = 0);

// The header, writable: any field can be set. Changing bufferSize there
// changes what a reader sees, not how traceImageAdd lays out records nor
// the size of the area (see traceImageResize).
trcHeader_t* traceImageHeader(TraceImage& img);
// The record area.
uint8_t* traceImageArea(TraceImage& img);
// Bytes behind the header.
size_t traceImageAreaSize(const TraceImage& img);

// What the walk and the reports take.
struct TraceImageView {
    trcHeader_t* header;
    uint8_t* area;
    size_t areaSize;
};
TraceImageView traceImageView(TraceImage& img);

// Adds a record by the writer's rules. Returns its number, or 0 if it was
// not stored (keep-initial image full). A record with its end mark larger
// than a segment fails the calling test and is not stored.
int32_t traceImageAdd(TraceImage& img, const TraceRecordFields& rec);
int32_t traceImageAddText(TraceImage& img, const std::string& data);

// Records still intact, trace records only, oldest first (by number).
std::vector<TracePlaced> traceImageSurvivors(const TraceImage& img);
// Offset of the record with this number; -1 if it is no longer intact.
int32_t traceImageOffsetOf(const TraceImage& img, int32_t number);

// ---- Raw access, no layout rules -----------------------------------------

// Writes the record's bytes (length, fixed part, variable part, alignment
// zeros, trailing length) at offset of the area; returns its aligned size.
// A given length is written into both length words instead of the true
// one; the bytes laid out stay those of rec. Does not touch the end mark,
// writeOffset or the survivors.
int32_t traceImagePut(TraceImage& img, int32_t offset, const TraceRecordFields& rec,
                      std::optional<int32_t> length = std::nullopt);
// A 32-bit word of the area.
void traceImagePoke32(TraceImage& img, int32_t offset, int32_t value);
int32_t traceImagePeek32(const TraceImage& img, int32_t offset);
// Makes the area areaSize bytes long: cut off, or grown with zero bytes.
// The header's bufferSize stays as it is.
void traceImageResize(TraceImage& img, size_t areaSize);

// The record at offset of the area, as the walk hands it out.
const trcRecord_t* traceImageRecordAt(TraceImage& img, int32_t offset);

// The whole image (header and area) as a string of bytes.
std::string traceImageBytes(const TraceImage& img);
// Writes the whole image to a file; fails the calling test on an error.
void traceImageSave(const TraceImage& img, const std::string& path);

}  // namespace kelvotest

#endif
