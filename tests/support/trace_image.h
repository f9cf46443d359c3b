// Trace images for tests: a trace header and its record area laid out in
// memory the way a correct writer lays them out, plus raw access for the
// corrupt cases a writer never produces.
//
// A new image has the start marker at offset 0 and the end mark behind it.
// Each added record goes behind the last one; when it and its end mark do not
// fit the current segment (the smaller of bufferSize and 64 KiB), the rest of
// the segment becomes a filler and the record starts the next segment, or
// offset 0 behind the last one, overwriting the oldest records. With
// TRC_KEEP_INITIAL the image never wraps: a record that does not fit is not
// stored and traceFull is set. Records are numbered 1, 2, ... as added.
#ifndef KELVO_TESTS_TRACE_IMAGE_H
#define KELVO_TESTS_TRACE_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kelvo/trcformat.h"

namespace kelvotest {

// The fields of one record; the defaults make a text record (event 30).
struct TraceRecordFields {
    uint8_t product = 1, event = 30, component = 1, klass = 1, function = 1, tracePoint = 1;
    uint32_t thisPointer = 0, pid = 100, tid = 1;
    int32_t node = -1;
    uint32_t cpid = 0;
    int32_t sec = 0, nsec = 0;
    std::optional<int32_t> rc;  // with a value, the variable part begins with it
    std::string data;           // the variable part behind the return code
};

struct TracePlaced {
    int32_t offset;   // in the record area
    int32_t aligned;  // bytes it takes
    int32_t number;   // 1.. in the order added; 0 for the start marker and fillers
};

struct TraceImage {
    std::vector<uint8_t> bytes;       // header followed by the record area
    int32_t bufferSize = 0;           // area size records are laid out in
    int32_t writeOffset = 0;          // offset of the end mark
    int32_t recordsAdded = 0;         // the last number given
    bool wrapped = false;             // some record has gone back to offset 0
    std::vector<TracePlaced> placed;  // what is intact in the area, in the order written
};

// A header with magic, layoutId, bufferSize and flags, no product versions,
// -1 in tracePid, traceTid, traceCpid and maxSevereErrors, a mask of all
// ones, maxRecordSize equal to the segment size, everything else 0.
TraceImage traceImageNew(int32_t bufferSize, uint32_t flags = 0);
// Writable; its bufferSize changes what a reader sees, not the layout.
trcHeader_t* traceImageHeader(TraceImage& img);
uint8_t* traceImageArea(TraceImage& img);

// Adds a record by the writer's rules; returns its number, or 0 if it was
// not stored (keep-initial image full, or larger than a segment: a failure).
int32_t traceImageAdd(TraceImage& img, const TraceRecordFields& rec);
int32_t traceImageAddText(TraceImage& img, const std::string& data);
// Records still intact, oldest first; offset of one by number, or -1.
std::vector<TracePlaced> traceImageSurvivors(const TraceImage& img);
int32_t traceImageOffsetOf(const TraceImage& img, int32_t number);

// Raw access. traceImagePut writes the record's bytes at offset, with length
// in both length words if given; it returns the aligned size and leaves end
// mark and survivors alone. traceImageResize cuts or grows the area only.
int32_t traceImagePut(TraceImage& img, int32_t offset, const TraceRecordFields& rec,
                      std::optional<int32_t> length = std::nullopt);
void traceImagePoke32(TraceImage& img, int32_t offset, int32_t value);
int32_t traceImagePeek32(const TraceImage& img, int32_t offset);
void traceImageResize(TraceImage& img, size_t areaSize);

// The whole image as bytes, or written to a file.
std::string traceImageBytes(const TraceImage& img);
void traceImageSave(const TraceImage& img, const std::string& path);

}  // namespace kelvotest

#endif
